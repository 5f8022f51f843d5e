// Static data of the soft keyboard's pinyin input: the punctuation and pinyin tables (GB2312),
// their Unicode maps and the lookups over them. Links only QtCore so it is testable without
// widgets.
#pragma once

#include <QMap>
#include <QString>

// Rows are plain C-string pairs sorted by key in strcmp order, searched with bsearch.
struct PunctDef
{
    const char *key;   // one ASCII punctuation character
    const char *value; // its full-width form, GB2312
};

struct PinyinDef
{
    const char *key;   // toneless syllable, lower case, "v" for u-umlaut
    const char *value; // candidates, GB2312, first offered first
};

extern const PunctDef punctTable[33];
extern const PinyinDef pinyinTable[396]; // pinyintable_data.cpp, generated

int punctTableSize();
int pinyinTableSize();
const PunctDef *findPunct(const char *key);
const PinyinDef *findPinyin(const char *key);

struct FullWidthPunct
{
    QString text;
    bool alternate = false; // each use yields one character of text, alternating
    int next = 0;           // index of the character the next use yields
};

// The decoded tables, shared by every keyboard and filled by initImeTables().
QMap<QString, QString> &pinyinMap();
QMap<QString, FullWidthPunct> &punctMap();

// (Re)builds both maps from the tables; resets every alternation.
void initImeTables();

// Full-width form of a one-character ASCII string, or empty. Advances the alternation.
QString fullWidthPunct(const QString &ascii);

// Length of the longest syllable prefix of py grown one letter at a time, or -1. preEdit is
// only quoted in the final debug line. Leaves pinyinMap() as it is.
int longestSyllablePrefix(const QString &py, const QString &preEdit);
