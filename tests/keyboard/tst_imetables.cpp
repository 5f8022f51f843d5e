// The pinyin and punctuation tables: their shape, the generated pinyin rows, and the lookups.
#include "imetables.h"

#include <QSet>
#include <QTest>

#include <cstring>

class TestImeTables : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { initImeTables(); }
    void init() { initImeTables(); }

    void tablesAreSortedForBsearch();
    void pinyinRowsCoverLevelOneOnce();
    void shownRows_data();
    void shownRows();
    void punctuationDecodes();
    void lookups();
    void fullWidthAlternates_data();
    void fullWidthAlternates();
    void rebuildingResetsAlternation();
    void validPrefix_data();
    void validPrefix();
    void validPrefixDebugLines();
};

static const char *const syllables =
    "a ai an ang ao ba bai ban bang bao bei ben beng bi bian biao bie bin bing bo bu ca cai can "
    "cang cao ce ceng cha chai chan chang chao che chen cheng chi chong chou chu chuai chuan "
    "chuang chui chun chuo ci cong cou cu cuan cui cun cuo da dai dan dang dao de deng di dian "
    "diao die ding diu dong dou du duan dui dun duo e en er fa fan fang fei fen feng fo fou fu "
    "ga gai gan gang gao ge gei gen geng gong gou gu gua guai guan guang gui gun guo ha hai han "
    "hang hao he hei hen heng hong hou hu hua huai huan huang hui hun huo ji jia jian jiang jiao "
    "jie jin jing jiong jiu ju juan jue jun ka kai kan kang kao ke ken keng kong kou ku kua kuai "
    "kuan kuang kui kun kuo la lai lan lang lao le lei leng li lian liang liao lie lin ling liu "
    "long lou lu luan lue lun luo lv ma mai man mang mao me mei men meng mi mian miao mie min "
    "ming miu mo mou mu na nai nan nang nao ne nei nen neng ni nian niang niao nie nin ning niu "
    "nong nu nuan nue nuo nv o ou pa pai pan pang pao pei pen peng pi pian piao pie pin ping po "
    "pou pu qi qia qian qiang qiao qie qin qing qiong qiu qu quan que qun ran rang rao re ren "
    "reng ri rong rou ru ruan rui run ruo sa sai san sang sao se sen seng sha shai shan shang "
    "shao she shen sheng shi shou shu shua shuai shuan shuang shui shun shuo si song sou su suan "
    "sui sun suo ta tai tan tang tao te teng ti tian tiao tie ting tong tou tu tuan tui tun tuo "
    "wa wai wan wang wei wen weng wo wu xi xia xian xiang xiao xie xin xing xiong xiu xu xuan "
    "xue xun ya yan yang yao ye yi yin ying yo yong you yu yuan yue yun za zai zan zang zao ze "
    "zei zen zeng zha zhai zhan zhang zhao zhe zhen zheng zhi zhong zhou zhu zhua zhuai zhuan "
    "zhuang zhui zhun zhuo zi zong zou zu zuan zui zun zuo";

void TestImeTables::tablesAreSortedForBsearch()
{
    QCOMPARE(punctTableSize(), 33);
    QCOMPARE(pinyinTableSize(), 396);

    QByteArray punctKeys;
    for (int i = 0; i < punctTableSize(); ++i) {
        QCOMPARE(std::strlen(punctTable[i].key), size_t(1));
        punctKeys += punctTable[i].key;
        if (i > 0)
            QVERIFY(std::strcmp(punctTable[i - 1].key, punctTable[i].key) < 0);
    }
    QCOMPARE(punctKeys, QByteArray(" !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~"));

    QList<QByteArray> keys;
    for (int i = 0; i < pinyinTableSize(); ++i) {
        QVERIFY(pinyinTable[i].key && pinyinTable[i].value);
        keys << pinyinTable[i].key;
        if (i > 0)
            QVERIFY2(std::strcmp(pinyinTable[i - 1].key, pinyinTable[i].key) < 0,
                     pinyinTable[i].key);
    }
    QCOMPARE(keys, QByteArray(syllables).split(' '));
}

// Every GB2312 level-1 character (rows 16-55, row 55 ending at cell 89) exactly once, plus one
// level-2 character (rows 56-87), and no row empty.
void TestImeTables::pinyinRowsCoverLevelOneOnce()
{
    QSet<QByteArray> seen;
    int levelOne = 0;
    int levelTwo = 0;
    int characters = 0;
    for (int i = 0; i < pinyinTableSize(); ++i) {
        const QByteArray value(pinyinTable[i].value);
        QVERIFY2(!value.isEmpty(), pinyinTable[i].key);
        QVERIFY2(value.size() % 2 == 0, pinyinTable[i].key);
        for (int k = 0; k < value.size(); k += 2) {
            const uchar high = uchar(value[k]);
            const uchar low = uchar(value[k + 1]);
            QVERIFY2(low >= 0xA1 && low <= 0xFE, pinyinTable[i].key);
            if (high >= 0xB0 && high <= 0xD7 && (high < 0xD7 || low <= 0xF9))
                ++levelOne;
            else if (high >= 0xD8 && high <= 0xF7)
                ++levelTwo;
            else
                QFAIL(qPrintable(QStringLiteral("not a hanzi in row %1").arg(pinyinTable[i].key)));
            seen.insert(value.mid(k, 2));
            ++characters;
        }
    }
    QCOMPARE(characters, 3756);
    QCOMPARE(seen.size(), 3756);
    QCOMPARE(levelOne, 3755);
    QCOMPARE(levelTwo, 1);
    QCOMPARE(QByteArray(findPinyin("ji")->value).size(), 54 * 2);
    int longest = 0;
    for (int i = 0; i < pinyinTableSize(); ++i)
        longest = qMax(longest, int(std::strlen(pinyinTable[i].value)));
    QCOMPARE(longest, 54 * 2);
}

void TestImeTables::shownRows_data()
{
    QTest::addColumn<QString>("syllable");
    QTest::addColumn<QString>("characters");
    QTest::newRow("a") << "a"
                       << "啊阿";
    QTest::newRow("o") << "o"
                       << "哦";
    QTest::newRow("de") << "de"
                        << "得德的";
    QTest::newRow("ni") << "ni"
                        << "妮尼泥倪霓你拟逆匿溺腻";
    QTest::newRow("hao") << "hao"
                         << "毫豪嚎壕好郝号浩耗";
    QTest::newRow("lv") << "lv"
                        << "滤驴吕侣旅铝屡缕履律虑率绿氯";
    QTest::newRow("chuang") << "chuang"
                            << "闯疮窗床创";
    QTest::newRow("zuo") << "zuo"
                         << "昨左佐作坐座做";
}

void TestImeTables::shownRows()
{
    QFETCH(QString, syllable);
    QFETCH(QString, characters);
    QCOMPARE(pinyinMap().value(syllable), characters);
}

void TestImeTables::punctuationDecodes()
{
    const char16_t *const expected[33] = {
        u"\u3000", u"\uff01",       u"\u201c\u201d", u"\uff03",       u"\uffe5", u"\uff05",
        u"\uff06", u"\u2018\u2019", u"\uff08",       u"\uff09",       u"\u00d7", u"\uff0b",
        u"\uff0c", u"\uff0d",       u"\u3002",       u"\u3001",       u"\uff1a", u"\uff1b",
        u"\u300a", u"\uff1d",       u"\u300b",       u"\uff1f",       u"\uff20", u"\u3010",
        u"\uff3c", u"\u3011",       u"\u2026\u2026", u"\u2015\u2015", u"\u30fb", u"\uff5b",
        u"\uff5c", u"\uff5d",       u"\uff5e"};
    QCOMPARE(punctMap().size(), 33);
    for (int i = 0; i < 33; ++i) {
        const FullWidthPunct record = punctMap().value(QString::fromLatin1(punctTable[i].key));
        QCOMPARE(record.text, QString::fromUtf16(expected[i]));
        const bool doubled = punctTable[i].key[0] == '^' || punctTable[i].key[0] == '_';
        QCOMPARE(record.alternate, !doubled);
    }
}

void TestImeTables::lookups()
{
    QCOMPARE(findPunct(" "), &punctTable[0]);
    QCOMPARE(findPunct("~"), &punctTable[32]);
    QCOMPARE(findPunct("0"), nullptr);
    QCOMPARE(findPunct(""), nullptr);
    QCOMPARE(findPinyin("a"), &pinyinTable[0]);
    QCOMPARE(findPinyin("zuo"), &pinyinTable[395]);
    QVERIFY(findPinyin("lv"));
    QCOMPARE(findPinyin("zh"), nullptr);
    QCOMPARE(findPinyin("zuoo"), nullptr);
    QCOMPARE(findPinyin(nullptr), nullptr);
}

void TestImeTables::fullWidthAlternates_data()
{
    QTest::addColumn<QString>("ascii");
    QTest::addColumn<QStringList>("uses");
    const QString nul(QChar(0));
    QTest::newRow("doubled mark whole") << "^" << QStringList{u"……"_qs, u"……"_qs, u"……"_qs};
    QTest::newRow("dash whole") << "_" << QStringList{u"――"_qs, u"――"_qs};
    QTest::newRow("double quotes pair") << "\"" << QStringList{u"“"_qs, u"”"_qs, u"“"_qs};
    QTest::newRow("single quotes pair") << "'" << QStringList{u"‘"_qs, u"’"_qs, u"‘"_qs};
    QTest::newRow("single mark and NUL") << "!" << QStringList{u"！"_qs, nul, u"！"_qs, nul};
    QTest::newRow("not punctuation") << "a" << QStringList{QString(), QString()};
    QTest::newRow("two characters") << "!!" << QStringList{QString()};
}

void TestImeTables::fullWidthAlternates()
{
    QFETCH(QString, ascii);
    QFETCH(QStringList, uses);
    for (const QString &expected : uses)
        QCOMPARE(fullWidthPunct(ascii), expected);
}

void TestImeTables::rebuildingResetsAlternation()
{
    QCOMPARE(fullWidthPunct("\""), u"“"_qs);
    initImeTables();
    QCOMPARE(fullWidthPunct("\""), u"“"_qs);
    QCOMPARE(pinyinMap().value("ni"), u"妮尼泥倪霓你拟逆匿溺腻"_qs);
}

void TestImeTables::validPrefix_data()
{
    QTest::addColumn<QString>("py");
    QTest::addColumn<int>("length");
    QTest::newRow("empty") << "" << -1;
    QTest::newRow("no syllable") << "x" << -1;
    QTest::newRow("initial alone") << "zh" << -1;
    QTest::newRow("whole") << "xi" << 2;
    QTest::newRow("longest") << "xianz" << 4;
    QTest::newRow("stops at first miss") << "lve" << 2;
    QTest::newRow("one letter") << "a" << 1;
    QTest::newRow("with separator") << "an'" << 2;
}

void TestImeTables::validPrefix()
{
    QFETCH(QString, py);
    QFETCH(int, length);
    QCOMPARE(longestSyllablePrefix(py, py), length);
    // Misses are remembered as empty entries and must still read as no candidates.
    QCOMPARE(longestSyllablePrefix(py, py), length);
    QVERIFY(pinyinMap().value(py.left(1) + "q").isEmpty());
}

void TestImeTables::validPrefixDebugLines()
{
    QTest::ignoreMessage(QtDebugMsg, "found a valid py \"xi\"");
    QTest::ignoreMessage(QtDebugMsg, "try longer py: \"xia\" result: \"" +
                                         pinyinMap().value("xia").toUtf8() + "\"");
    QTest::ignoreMessage(QtDebugMsg, "try longer py: \"xian\" result: \"" +
                                         pinyinMap().value("xian").toUtf8() + "\"");
    QTest::ignoreMessage(QtDebugMsg, "try longer py: \"xianz\" result: \"\"");
    // The last line quotes the composition, not the string searched.
    QTest::ignoreMessage(QtDebugMsg, "using \"abcd\"");
    QCOMPARE(longestSyllablePrefix("xianz", "abcdef"), 4);
}

QTEST_GUILESS_MAIN(TestImeTables)
#include "tst_imetables.moc"
