// Pinyin composition over whatever letters a user (or a remote "skey") can type: the longest
// syllable found is a real one, and punctuation lookups stay inside their tables.
#include "fuzzsupport.h"
#include "imetables.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    silenceQtMessages();
    initImeTables();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Lookups remember every prefix they try; start over now and then so that a long run
    // measures the code and not the growth of one map.
    if (pinyinMap().size() > 200000) {
        pinyinMap().clear();
        initImeTables();
    }
    const QByteArray bytes = fuzzBytes(data, size);
    const QString py = QString::fromLatin1(bytes);
    const int n = longestSyllablePrefix(py, py);
    FUZZ_CHECK(n == -1 || (n >= 1 && n <= py.size()));
    if (n > 0)
        FUZZ_CHECK(!pinyinMap().value(py.left(n)).isEmpty());

    const QByteArray key = bytes.left(bytes.indexOf('\0')); // the tables take C strings
    if (const PinyinDef *row = findPinyin(key.constData()))
        FUZZ_CHECK(key == row->key);
    if (const PunctDef *row = findPunct(key.constData()))
        FUZZ_CHECK(key == row->key);
    for (const QChar c : py)
        (void)fullWidthPunct(QString(c));
    return 0;
}
