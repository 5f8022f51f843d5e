#include "imetables.h"

#include <QDebug>
#include <QLoggingCategory>
#include <QStringDecoder>

#include <cstdlib>
#include <cstring>

Q_LOGGING_CATEGORY(lcIme, "tide.keyboard.ime")

// ASCII punctuation -> full-width form, GB2312. Keys in strcmp order for bsearch.
const PunctDef punctTable[33] = {
    {" ", "\xa1\xa1"},          // 　
    {"!", "\xa3\xa1"},          // ！
    {"\"", "\xa1\xb0\xa1\xb1"}, // “”
    {"#", "\xa3\xa3"},          // ＃
    {"$", "\xa3\xa4"},          // ￥
    {"%", "\xa3\xa5"},          // ％
    {"&", "\xa3\xa6"},          // ＆
    {"'", "\xa1\xae\xa1\xaf"},  // ‘’
    {"(", "\xa3\xa8"},          // （
    {")", "\xa3\xa9"},          // ）
    {"*", "\xa1\xc1"},          // ×
    {"+", "\xa3\xab"},          // ＋
    {",", "\xa3\xac"},          // ，
    {"-", "\xa3\xad"},          // －
    {".", "\xa1\xa3"},          // 。
    {"/", "\xa1\xa2"},          // 、
    {":", "\xa3\xba"},          // ：
    {";", "\xa3\xbb"},          // ；
    {"<", "\xa1\xb6"},          // 《
    {"=", "\xa3\xbd"},          // ＝
    {">", "\xa1\xb7"},          // 》
    {"?", "\xa3\xbf"},          // ？
    {"@", "\xa3\xc0"},          // ＠
    {"[", "\xa1\xbe"},          // 【
    {"\\", "\xa3\xdc"},         // ＼
    {"]", "\xa1\xbf"},          // 】
    {"^", "\xa1\xad\xa1\xad"},  // ……
    {"_", "\xa1\xaa\xa1\xaa"},  // ――
    {"`", "\xa1\xa4"},          // ・
    {"{", "\xa3\xfb"},          // ｛
    {"|", "\xa3\xfc"},          // ｜
    {"}", "\xa3\xfd"},          // ｝
    {"~", "\xa1\xab"},          // ～
};

namespace {

template <typename Row> int compareRow(const void *key, const void *row)
{
    return std::strcmp(static_cast<const char *>(key), static_cast<const Row *>(row)->key);
}

template <typename Row, int N> const Row *search(const Row (&table)[N], const char *key)
{
    if (!key)
        return nullptr;
    return static_cast<const Row *>(std::bsearch(key, table, N, sizeof(Row), compareRow<Row>));
}

// The tables are GB2312; GB18030 is a superset and serves where GB2312 is missing. Both come
// from ICU in Qt 6, so a Qt built without ICU leaves the maps empty instead of guessing.
QStringDecoder *gbCodec()
{
    static QStringDecoder gb2312("GB2312", QStringConverter::Flag::Stateless);
    static QStringDecoder gb18030("GB18030", QStringConverter::Flag::Stateless);
    if (gb2312.isValid())
        return &gb2312;
    if (gb18030.isValid())
        return &gb18030;
    return nullptr;
}

} // namespace

int punctTableSize()
{
    return int(sizeof(punctTable) / sizeof(punctTable[0]));
}

int pinyinTableSize()
{
    return int(sizeof(pinyinTable) / sizeof(pinyinTable[0]));
}

const PunctDef *findPunct(const char *key)
{
    return search(punctTable, key);
}

const PinyinDef *findPinyin(const char *key)
{
    return search(pinyinTable, key);
}

QMap<QString, QString> &pinyinMap()
{
    static QMap<QString, QString> map;
    return map;
}

QMap<QString, FullWidthPunct> &punctMap()
{
    static QMap<QString, FullWidthPunct> map;
    return map;
}

void initImeTables()
{
    QStringDecoder *codec = gbCodec();
    if (!codec) {
        qCWarning(lcIme) << "no GB2312 or GB18030 decoder; pinyin input has no candidates";
        return;
    }
    for (const PunctDef &row : punctTable) {
        FullWidthPunct record;
        record.text = codec->decode(QByteArrayView(row.value));
        // Paired marks (quotes) alternate between opening and closing; a doubled mark ("……")
        // is used whole. A single character counts as alternating too, see fullWidthPunct().
        record.alternate = record.text.size() == 1 || record.text.at(0) != record.text.at(1);
        punctMap()[QString::fromLatin1(row.key)] = record;
    }
    for (const PinyinDef &row : pinyinTable)
        pinyinMap()[QString::fromLatin1(row.key)] = codec->decode(QByteArrayView(row.value));
}

QString fullWidthPunct(const QString &ascii)
{
    auto it = punctMap().find(ascii);
    if (it == punctMap().end())
        return QString();
    FullWidthPunct &record = *it;
    if (!record.alternate)
        return record.text;
    // A one-character form alternates with the slot past its end, so every other use of it
    // yields U+0000; the keyboard reads it twice per tap (press and release) and relies on it.
    const QChar c = record.next < record.text.size() ? record.text.at(record.next) : QChar();
    record.next = (record.next == 0 || record.next == 1) ? 1 - record.next : 0;
    return QString(c);
}

int longestSyllablePrefix(const QString &py, const QString &preEdit)
{
    if (py.isEmpty())
        return -1;
    // Read-only lookups: a miss must not be stored, or every prefix tried of a long pre-edit
    // that starts no syllable would stay in the map (quadratic in its length).
    const QMap<QString, QString> &map = pinyinMap();
    int n = 1;
    while (map.value(py.left(n)).isEmpty()) {
        ++n;
        if (n > py.size())
            return -1;
    }
    qDebug() << "found a valid py" << py.left(n);
    for (++n; n <= py.size(); ++n) {
        const QString candidates = map.value(py.left(n));
        qDebug() << "try longer py:" << py.left(n) << "result:" << candidates;
        if (candidates.isEmpty())
            break;
    }
    --n;
    qDebug() << "using" << preEdit.left(n);
    return n > py.size() ? -1 : n;
}
