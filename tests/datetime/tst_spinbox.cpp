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

// Rows of the panel in a box of the given height, scaled like the artwork (57 / 70 / 57).
QRect panelRect(const QSize &size)
{
    const int top = size.height() * 57 / 184;
    const int bottom = size.height() * 127 / 184;
    return QRect(0, top, size.width(), bottom - top);
}

} // namespace

class TestSpinBox : public QObject
{
    Q_OBJECT

private:
    void showAt(SpinBox &box, int width, int height)
    {
        box.resize(width, height);
        box.show();
        QVERIFY(QTest::qWaitForWindowExposed(&box));
        QCOMPARE(box.size(), QSize(width, height));
    }

    void tap(SpinBox &box, const QPoint &pos)
    {
        QTest::mousePress(&box, Qt::LeftButton, {}, pos);
        QTest::mouseRelease(&box, Qt::LeftButton, {}, pos);
    }

private slots:
    void pressBeforeAnyResizeDoesNothing()
    {
        SpinBox box;
        box.setValue(50);
        tap(box, QPoint(10, 5));
        tap(box, QPoint(10, 400));
        QCOMPARE(box.value(), 50);
    }

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
        tap(box, QPoint(box.width() / 2, y));
        QCOMPARE(box.value(), 50 + step);
        // the regions span the whole width
        tap(box, QPoint(box.width() - 1, y));
        QCOMPARE(box.value(), 50 + 2 * step);
    }

    void pressOnPanelDoesNotRepaint()
    {
        SpinBox box;
        box.setValue(50);
        showAt(box, 111, 184);
        PaintCounter counter;
        box.installEventFilter(&counter);
        QTest::qWait(50);

        const int before = counter.paints;
        QTest::mousePress(&box, Qt::LeftButton, {}, QPoint(55, 90));
        QTest::qWait(100);
        QCOMPARE(counter.paints, before);
        QCOMPARE(box.value(), 50);
        QTest::mouseRelease(&box, Qt::LeftButton, {}, QPoint(55, 90));

        // the same counter does see the repaint of a press on a cap
        QTest::mousePress(&box, Qt::LeftButton, {}, QPoint(55, 10));
        QTRY_VERIFY(counter.paints > before);
        QTest::mouseRelease(&box, Qt::LeftButton, {}, QPoint(55, 10));
    }

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

        QTest::mousePress(&box, Qt::LeftButton, {}, pressAt);
        QCOMPARE(box.value(), start + direction); // the first step comes at once
        QTest::qWait(1000);
        // then one after 500 ms and one every 100 ms: about 7 steps in a second
        const int steps = (box.value() - start) * direction;
        QVERIFY2(steps >= 6 && steps <= 8, qPrintable(QString::number(steps)));

        QTest::mouseRelease(&box, Qt::LeftButton, {}, releaseAt);
        const int released = box.value();
        QTest::qWait(400);
        QCOMPARE(box.value(), released);
    }

    void holdAtMaximumKeepsRepeating()
    {
        SpinBox box;
        box.setRange(0, 5);
        box.setValue(5);
        showAt(box, 111, 184);
        QTest::mousePress(&box, Qt::LeftButton, {}, QPoint(55, 20));
        QTest::qWait(700);
        QCOMPARE(box.value(), 5);
        // still held: once there is room again the repeat carries on by itself
        box.setMaximum(10);
        QTRY_VERIFY(box.value() > 5);
        QTest::mouseRelease(&box, Qt::LeftButton, {}, QPoint(55, 20));
    }

    void capIsActiveOnlyWhileHeld_data()
    {
        QTest::addColumn<QPoint>("pressAt");
        QTest::addColumn<QPoint>("heldSample");
        QTest::addColumn<QPoint>("otherSample");

        QTest::newRow("top") << QPoint(55, 20) << QPoint(10, 30) << QPoint(10, 150);
        QTest::newRow("bottom") << QPoint(55, 160) << QPoint(10, 150) << QPoint(10, 30);
    }

    void capIsActiveOnlyWhileHeld()
    {
        QFETCH(QPoint, pressAt);
        QFETCH(QPoint, heldSample);
        QFETCH(QPoint, otherSample);
        SpinBox box;
        box.setValue(50);
        showAt(box, 111, 184);

        const QImage idle = box.grab().toImage();
        QTest::mousePress(&box, Qt::LeftButton, {}, pressAt);
        const QImage held = box.grab().toImage();
        QTest::mouseRelease(&box, Qt::LeftButton, {}, pressAt);
        const QImage released = box.grab().toImage();

        QVERIFY(qGray(held.pixel(heldSample)) + 30 < qGray(idle.pixel(heldSample)));
        QCOMPARE(held.pixel(otherSample), idle.pixel(otherSample));
        QCOMPARE(released.pixel(heldSample), idle.pixel(heldSample));
    }

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

        // Bounding box of the number's dark pixels inside the panel (its frame is mid-grey).
        const QImage face = box.grab().toImage();
        const QRect panel = panelRect(size);
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
