// The pinyin and punctuation tables: their shape, the generated pinyin rows, and the lookups.
#include "imetables.h"

#include <QSet>
#include <QTest>

#include <cstring>

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

class TestImeTables : public QObject
{
    Q_OBJECT

private slots:
    // Every test starts from a rebuild, so each also checks that a rebuild restores the maps.
    void init() { initImeTables(); }

    // Sorted for bsearch and found by it, each ASCII mark once, decoding to its full-width form;
    // the doubled marks are used whole, the others alternate.
    void punctRows()
    {
        const QStringList expected =
            QStringLiteral("\u3000 \uff01 \u201c\u201d \uff03 \uffe5 \uff05 \uff06 \u2018\u2019 "
                           "\uff08 \uff09 \u00d7 \uff0b \uff0c \uff0d \u3002 \u3001 \uff1a \uff1b "
                           "\u300a \uff1d \u300b \uff1f \uff20 \u3010 \uff3c \u3011 \u2026\u2026 "
                           "\u2015\u2015 \u30fb \uff5b \uff5c \uff5d \uff5e")
                .split(' ');
        QCOMPARE(punctTableSize(), 33);
        QCOMPARE(punctMap().size(), 33);
        QCOMPARE(expected.size(), 33);
        QByteArray keys;
        for (int i = 0; i < 33; ++i) {
            const char *key = punctTable[i].key;
            QCOMPARE(std::strlen(key), size_t(1));
            QVERIFY(i == 0 || std::strcmp(punctTable[i - 1].key, key) < 0);
            keys += key;
            QCOMPARE(findPunct(key), &punctTable[i]);
            const FullWidthPunct record = punctMap().value(QString::fromLatin1(key));
            QCOMPARE(record.text, expected[i]);
            QCOMPARE(record.alternate, key[0] != '^' && key[0] != '_');
        }
        QCOMPARE(findPunct("0"), nullptr);
        QCOMPARE(findPunct(""), nullptr);
        QCOMPARE(keys, QByteArray(" !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~"));
    }

    // The generator's promises: the listed syllables in bsearch order (each found), no row empty,
    // every GB2312 level-1 character (rows 16-55, row 55 ending at cell 89) exactly once plus one
    // level-2 character (rows 56-87), "ji" the longest row, and the rows written out by hand.
    void pinyinRows()
    {
        QCOMPARE(pinyinTableSize(), 396);
        QList<QByteArray> keys;
        QSet<QByteArray> seen;
        int levelOne = 0, levelTwo = 0, longest = 0;
        for (int i = 0; i < pinyinTableSize(); ++i) {
            const char *key = pinyinTable[i].key;
            QVERIFY(key && pinyinTable[i].value);
            QVERIFY2(i == 0 || std::strcmp(pinyinTable[i - 1].key, key) < 0, key);
            keys << key;
            QCOMPARE(findPinyin(key), &pinyinTable[i]);
            const QByteArray value(pinyinTable[i].value);
            QVERIFY2(!value.isEmpty() && value.size() % 2 == 0, key);
            longest = qMax(longest, int(value.size()));
            for (int k = 0; k < value.size(); k += 2) {
                const uchar high = uchar(value[k]);
                const uchar low = uchar(value[k + 1]);
                const bool one = high >= 0xB0 && high <= 0xD7 && (high < 0xD7 || low <= 0xF9);
                const bool two = high >= 0xD8 && high <= 0xF7;
                QVERIFY2((one || two) && low >= 0xA1 && low <= 0xFE, key);
                levelOne += one;
                levelTwo += two;
                seen.insert(value.mid(k, 2));
            }
        }
        QCOMPARE(keys, QByteArray(syllables).split(' '));
        QCOMPARE(seen.size(), 3756);
        QCOMPARE(levelOne, 3755);
        QCOMPARE(levelTwo, 1);
        QCOMPARE(QByteArray(findPinyin("ji")->value).size(), longest);
        QCOMPARE(findPinyin(nullptr), nullptr);
        for (const QString &row :
             QStringLiteral(
                 "a 啊阿,o 哦,de 得德的,ni 妮尼泥倪霓你拟逆匿溺腻,hao 毫豪嚎壕好郝号浩耗,"
                 "lv 滤驴吕侣旅铝屡缕履律虑率绿氯,chuang 闯疮窗床创,zuo 昨左佐作坐座做")
                 .split(','))
            QCOMPARE(pinyinMap().value(row.section(' ', 0, 0)), row.section(' ', 1));
    }

    void fullWidthAlternates_data()
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

    void fullWidthAlternates()
    {
        QFETCH(QString, ascii);
        QFETCH(QStringList, uses);
        for (const QString &expected : uses)
            QCOMPARE(fullWidthPunct(ascii), expected);
        // a rebuild starts every alternation over
        fullWidthPunct(ascii);
        initImeTables();
        QCOMPARE(fullWidthPunct(ascii), uses.first());
    }

    void validPrefix_data()
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
        QTest::newRow("past the last row") << "zuoo" << 3;
        QTest::newRow("long, no syllable") << QString(4096, u'v') << -1;
    }

    void validPrefix()
    {
        QFETCH(QString, py);
        QFETCH(int, length);
        QCOMPARE(longestSyllablePrefix(py, py), length);
        // bsearch finds exactly the whole syllables
        QCOMPARE(findPinyin(py.toLatin1()) != nullptr, length == py.size());
        // The prefixes tried are not kept, however long the input.
        QCOMPARE(pinyinMap().size(), pinyinTableSize());
    }

    void validPrefixDebugLines()
    {
        QTest::ignoreMessage(QtDebugMsg, "found a valid py \"xi\"");
        for (const char *longer : {"xia", "xian"})
            QTest::ignoreMessage(QtDebugMsg, "try longer py: \"" + QByteArray(longer) +
                                                 "\" result: \"" +
                                                 pinyinMap().value(longer).toUtf8() + "\"");
        QTest::ignoreMessage(QtDebugMsg, "try longer py: \"xianz\" result: \"\"");
        // The last line quotes the composition, not the string searched.
        QTest::ignoreMessage(QtDebugMsg, "using \"abcd\"");
        QCOMPARE(longestSyllablePrefix("xianz", "abcdef"), 4);
    }
};

QTEST_GUILESS_MAIN(TestImeTables)
#include "tst_imetables.moc"
