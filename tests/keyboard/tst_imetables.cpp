// The pinyin table as the keyboard reads it: candidates most used first, and lookups of the
// longest syllable that starts a composition that leave the table as it was.
#include "imetables.h"

#include <QTest>

class TestImeTables : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { initImeTables(); }

    void mostUsedFirst()
    {
        const QStringList rows = QStringLiteral("shi 是 le 了 hai 还 zhe 这 ni 妮").split(' ');
        for (qsizetype i = 0; i < rows.size(); i += 2)
            QCOMPARE(pinyinMap().value(rows[i]).left(1), rows[i + 1]);
    }

    void longestSyllable_data()
    {
        QTest::addColumn<QString>("py");
        QTest::addColumn<int>("length");
        QTest::newRow("longest") << "xianz" << 4;
        QTest::newRow("stops at first miss") << "lve" << 2;
        QTest::newRow("long, no syllable") << QString(4096, u'v') << -1;
    }

    void longestSyllable()
    {
        QFETCH(QString, py);
        QFETCH(int, length);
        QCOMPARE(longestSyllablePrefix(py, py), length);
        // The prefixes tried are not kept, however long the input.
        QCOMPARE(pinyinMap().size(), 396);
    }
};

QTEST_GUILESS_MAIN(TestImeTables)
#include "tst_imetables.moc"
