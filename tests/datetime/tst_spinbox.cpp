#include "spinbox.h"

#include <QImage>
#include <QPixmap>
#include <QTest>

namespace {

// Counts paint events, to tell a press that repaints from one that does not.
class PaintCounter : public QObject
{
public:
    int paints = 0;

protected:
    bool eventFilter(QObject *, QEvent *e) override
    {
        if (e->type() == QEvent::Paint)
            ++paints;
        return false;
    }
};

} // namespace

class TestSpinBox : public QObject
{
    Q_OBJECT

    void showAt(SpinBox &box, int width, int height)
    {
        box.resize(width, height);
        box.show();
        QVERIFY(QTest::qWaitForWindowExposed(&box));
        QCOMPARE(box.size(), QSize(width, height));
    }

private slots:
    // Both caps are touch regions across the whole width; a press between them, on the panel,
    // neither steps nor repaints.
    void touchRegions_data()
    {
        QTest::addColumn<int>("height");
        QTest::addColumn<int>("y");
        QTest::addColumn<int>("step");
        QTest::newRow("184: top row") << 184 << 0 << 1;
        QTest::newRow("184: last up row") << 184 << 56 << 1;
        QTest::newRow("184: first panel row") << 184 << 57 << 0;
        QTest::newRow("184: last panel row") << 184 << 126 << 0;
        QTest::newRow("184: first down row") << 184 << 127 << -1;
        QTest::newRow("184: bottom row") << 184 << 183 << -1;
        QTest::newRow("92: last up row") << 92 << 27 << 1;
        QTest::newRow("92: first panel row") << 92 << 28 << 0;
        QTest::newRow("92: last panel row") << 92 << 63 << 0;
        QTest::newRow("92: first down row") << 92 << 64 << -1;
        QTest::newRow("92: bottom row") << 92 << 91 << -1;
    }

    void touchRegions()
    {
        QFETCH(int, height);
        QFETCH(int, y);
        QFETCH(int, step);
        SpinBox box;
        box.setValue(50);
        showAt(box, 111 * height / 184, height);
        PaintCounter counter;
        box.installEventFilter(&counter);

        int expected = 50;
        for (const QPoint pos : {QPoint(box.width() / 2, y), QPoint(box.width() - 1, y)}) {
            QTest::qWait(50); // let the last release's repaint land
            const int before = counter.paints;
            QTest::mousePress(&box, Qt::LeftButton, {}, pos);
            QCOMPARE(box.value(), expected += step);
            if (step == 0) {
                QTest::qWait(100);
                QCOMPARE(counter.paints, before);
            } else {
                QTRY_VERIFY(counter.paints > before);
            }
            QTest::mouseRelease(&box, Qt::LeftButton, {}, pos);
        }
    }

    // One step at once, one after 500 ms, then one every 100 ms until the release, wherever it
    // happens. The held cap is drawn active until then.
    void holdRepeatsUntilRelease_data()
    {
        QTest::addColumn<int>("start");
        QTest::addColumn<QPoint>("pressAt");
        QTest::addColumn<QPoint>("releaseAt");
        QTest::addColumn<int>("direction");
        QTest::newRow("up, released on the cap") << 0 << QPoint(55, 20) << QPoint(55, 20) << 1;
        QTest::newRow("down, released on the panel")
            << 40 << QPoint(55, 160) << QPoint(55, 90) << -1;
        QTest::newRow("up, released outside the box")
            << 0 << QPoint(55, 20) << QPoint(300, -40) << 1;
    }

    void holdRepeatsUntilRelease()
    {
        QFETCH(int, start);
        QFETCH(QPoint, pressAt);
        QFETCH(QPoint, releaseAt);
        QFETCH(int, direction);
        SpinBox box;
        box.setValue(start);
        showAt(box, 111, 184);
        const QPoint cap(10, pressAt.y() < 92 ? 30 : 150), otherCap(10, 180 - cap.y());
        const QImage idle = box.grab().toImage();

        QTest::mousePress(&box, Qt::LeftButton, {}, pressAt);
        QCOMPARE(box.value(), start + direction);
        const QImage held = box.grab().toImage();
        QVERIFY(qGray(held.pixel(cap)) + 30 < qGray(idle.pixel(cap)));
        QCOMPARE(held.pixel(otherCap), idle.pixel(otherCap));
        QTest::qWait(1000);
        const int steps = (box.value() - start) * direction;
        QVERIFY2(steps >= 6 && steps <= 8, qPrintable(QString::number(steps)));

        QTest::mouseRelease(&box, Qt::LeftButton, {}, releaseAt);
        const int released = box.value();
        QCOMPARE(box.grab().toImage().pixel(cap), idle.pixel(cap));
        QTest::qWait(400);
        QCOMPARE(box.value(), released);
    }

    // The number is scaled to the panel whatever its length: compare the painted digits'
    // bounding box with the panel (rows 57 to 126 of 184, scaled with the box).
    void numberFillsPanel_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<QSize>("size");
        QTest::newRow("one digit, natural size") << 5 << QSize(111, 184);
        QTest::newRow("four digits, natural size") << 2026 << QSize(111, 184);
        QTest::newRow("one digit, half size") << 7 << QSize(55, 92);
        QTest::newRow("four digits, half size") << 1970 << QSize(55, 92);
    }

    void numberFillsPanel()
    {
        QFETCH(int, value);
        QFETCH(QSize, size);
        SpinBox box;
        box.setRange(0, 9999);
        box.setValue(value);
        showAt(box, size.width(), size.height());

        // Dark pixels only: the panel's frame is mid-grey.
        const QImage face = box.grab().toImage();
        const int top = size.height() * 57 / 184;
        const QRect panel(0, top, size.width(), size.height() * 127 / 184 - top);
        QRect ink;
        for (int y = panel.top(); y <= panel.bottom(); ++y) {
            for (int x = panel.left(); x <= panel.right(); ++x) {
                if (qGray(face.pixel(x, y)) < 100)
                    ink |= QRect(x, y, 1, 1);
            }
        }
        QVERIFY(!ink.isEmpty());
        const double widthShare = double(ink.width()) / panel.width();
        const double heightShare = double(ink.height()) / panel.height();
        QVERIFY2(qMax(widthShare, heightShare) >= 0.55,
                 qPrintable(QStringLiteral("number covers %1 x %2 of the panel")
                                .arg(widthShare)
                                .arg(heightShare)));
    }
};

QTEST_MAIN(TestSpinBox)
#include "tst_spinbox.moc"
