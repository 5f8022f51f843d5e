// Paints every picture the shell carries in its resources and writes them as PNG files under the
// directory given on the command line (the source tree's resources/). The pictures are committed;
// rerun this only when one of them is redrawn. Sizes are fixed by the widgets that use them: the
// scroll-number pieces stack to exactly 111 x 184 and the spin box positions itself from them.
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <QtMath>

#include <cstdio>

namespace {

// Shared colours, so the menu icons, the keyboard picture and the spin box look like one set.
const QColor kInk(0x2f, 0x3b, 0x48);
const QColor kSteelLight(0x9a, 0xa7, 0xb4);
const QColor kSteelDark(0x4d, 0x5a, 0x67);
const QColor kTide(0x1d, 0x86, 0x9c);
const QColor kTideLight(0x5f, 0xc4, 0xd3);
const QColor kFoam(0xf4, 0xfb, 0xfc);
// The dialog's window colour (Fusion): the opaque spin box pieces show it around their rounded
// corners, because the spin box composes them on a canvas it never clears.
const QColor kDialogWindow(0xef, 0xef, 0xef);

QImage blank(int w, int h)
{
    QImage img(w, h, QImage::Format_ARGB32_Premultiplied);
    img.fill(Qt::transparent);
    return img;
}

bool save(const QImage &img, const QDir &root, const QString &relPath,
          QImage::Format format = QImage::Format_ARGB32)
{
    const QString path = root.filePath(relPath);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QImage out = img.convertToFormat(format);
    if (!out.save(path, "PNG")) {
        std::fprintf(stderr, "tide_artwork: cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s %dx%d\n", qPrintable(relPath), out.width(), out.height());
    return true;
}

QPointF polar(const QPointF &centre, qreal radius, qreal degrees)
{
    const qreal a = qDegreesToRadians(degrees);
    return centre + QPointF(radius * qCos(a), -radius * qSin(a));
}

// --- system menu icons, 24 x 24 ---

QImage settingIcon()
{
    QImage img = blank(24, 24);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    const QPointF c(12, 12);
    const int teeth = 8;
    QPolygonF outline;
    for (int i = 0; i < teeth; ++i) {
        const qreal a = i * 360.0 / teeth;
        outline << polar(c, 8.2, a - 15) << polar(c, 11.2, a - 9) << polar(c, 11.2, a + 9)
                << polar(c, 8.2, a + 15);
    }
    QPainterPath gear;
    gear.addPolygon(outline);
    gear.closeSubpath();
    gear.addEllipse(c, 3.4, 3.4);
    gear.setFillRule(Qt::OddEvenFill);

    QLinearGradient g(0, 0, 24, 24);
    g.setColorAt(0, kSteelLight);
    g.setColorAt(1, kSteelDark);
    p.setBrush(g);
    p.setPen(QPen(kInk, 1.0));
    p.drawPath(gear);
    return img;
}

QImage rebootIcon()
{
    QImage img = blank(24, 24);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    const QPointF c(12, 12.5);
    const qreal r = 7.5;
    const qreal start = 65; // the arrow head sits here, pointing clockwise into the gap
    const qreal sweep = 285;
    const QColor arrow(0xd0, 0x4a, 0x2f);

    QPainterPath arc;
    const QRectF box(c.x() - r, c.y() - r, 2 * r, 2 * r);
    arc.arcMoveTo(box, start);
    arc.arcTo(box, start, sweep);
    p.setPen(QPen(arrow, 3.2, Qt::SolidLine, Qt::RoundCap));
    p.setBrush(Qt::NoBrush);
    p.drawPath(arc);

    const qreal a = qDegreesToRadians(start);
    const QPointF tip = polar(c, r, start);
    const QPointF along(qSin(a), qCos(a)); // clockwise tangent on screen
    const QPointF out(qCos(a), -qSin(a));
    QPolygonF head;
    head << tip + along * 4.5 << tip + out * 4.5 - along * 1.0 << tip - out * 4.5 - along * 1.0;
    p.setPen(Qt::NoPen);
    p.setBrush(arrow);
    p.drawPolygon(head);
    return img;
}

QImage programIcon()
{
    QImage img = blank(24, 24);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF frame(1.5, 2.5, 21, 19);
    p.setPen(QPen(kInk, 1.0));
    p.setBrush(kFoam);
    p.drawRoundedRect(frame, 2, 2);

    // title strip with its close box
    QPainterPath title;
    title.addRoundedRect(frame, 2, 2);
    p.save();
    p.setClipRect(QRectF(0, 0, 24, 7.5));
    p.setBrush(kTide);
    p.drawPath(title);
    p.restore();
    p.setPen(Qt::NoPen);
    p.setBrush(kFoam);
    p.drawRect(QRectF(18, 4, 2, 2));

    // a 2 x 2 grid of program tiles
    const QColor tiles[4] = {QColor(0xe0, 0x8a, 0x2c), QColor(0x3f, 0xa3, 0x4d),
                             QColor(0x3a, 0x78, 0xc8), QColor(0xc8, 0x45, 0x5a)};
    for (int i = 0; i < 4; ++i) {
        const qreal x = 4.5 + (i % 2) * 8;
        const qreal y = 9.5 + (i / 2) * 6;
        p.setBrush(tiles[i]);
        p.drawRoundedRect(QRectF(x, y, 6.5, 4.5), 1, 1);
    }
    return img;
}

QImage runIcon()
{
    QImage img = blank(24, 24);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    QRadialGradient g(QPointF(9, 8), 14);
    g.setColorAt(0, QColor(0x7c, 0xd6, 0x7a));
    g.setColorAt(1, QColor(0x25, 0x8a, 0x3a));
    p.setPen(QPen(QColor(0x1c, 0x5e, 0x2a), 1.0));
    p.setBrush(g);
    p.drawEllipse(QPointF(12, 12), 10.5, 10.5);

    QPolygonF play;
    play << QPointF(9.5, 6.5) << QPointF(17.5, 12) << QPointF(9.5, 17.5);
    p.setPen(QPen(Qt::white, 1.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::white);
    p.drawPolygon(play);
    return img;
}

// --- the bar's keyboard button, 128 x 128 ---

QImage keyboardPicture()
{
    QImage img = blank(128, 128);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);

    const QRectF body(4, 28, 120, 74);
    QLinearGradient bg(0, body.top(), 0, body.bottom());
    bg.setColorAt(0, QColor(0x5a, 0x66, 0x73));
    bg.setColorAt(1, QColor(0x33, 0x3c, 0x46));
    p.setPen(QPen(QColor(0x22, 0x29, 0x30), 2));
    p.setBrush(bg);
    p.drawRoundedRect(body, 9, 9);

    auto key = [&p](const QRectF &r) {
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0x1e, 0x24, 0x2a));
        p.drawRoundedRect(r.translated(0, 1.5), 2.5, 2.5); // key shadow
        QLinearGradient kg(0, r.top(), 0, r.bottom());
        kg.setColorAt(0, QColor(0xfa, 0xfb, 0xfc));
        kg.setColorAt(1, QColor(0xc9, 0xd0, 0xd7));
        p.setBrush(kg);
        p.drawRoundedRect(r, 2.5, 2.5);
    };

    // three rows of letter keys, each row shifted a little like a real keyboard
    const qreal pitch = 11.0;
    const qreal keyW = 9.0;
    const qreal keyH = 12.0;
    const int rowKeys[3] = {10, 9, 8};
    const qreal rowShift[3] = {0, 5.5, 11};
    for (int row = 0; row < 3; ++row) {
        const qreal y = 35 + row * 15.5;
        for (int k = 0; k < rowKeys[row]; ++k)
            key(QRectF(10.5 + rowShift[row] + k * pitch, y, keyW, keyH));
    }
    // bottom row: two modifiers either side of the space bar
    const qreal y = 35 + 3 * 15.5;
    key(QRectF(10.5, y, 20, keyH));
    key(QRectF(34.5, y, 59, keyH));
    key(QRectF(97.5, y, 20, keyH));
    return img;
}

// --- application logos ---

// A sine line from left to right, period and phase in pixels and radians.
QPainterPath sineLine(qreal left, qreal right, qreal baseY, qreal amplitude, qreal period,
                      qreal phase)
{
    QPainterPath path;
    for (qreal x = left; x <= right + 0.01; x += 0.5) {
        const QPointF pt(x, baseY + amplitude * qSin((x - left) * 2 * M_PI / period + phase));
        if (path.elementCount() == 0)
            path.moveTo(pt);
        else
            path.lineTo(pt);
    }
    return path;
}

// The sine line closed down to `bottom`: a band of sea or sand.
QPainterPath wave(qreal left, qreal right, qreal baseY, qreal amplitude, qreal period, qreal phase,
                  qreal bottom)
{
    QPainterPath path = sineLine(left, right, baseY, amplitude, period, phase);
    path.lineTo(right, bottom);
    path.lineTo(left, bottom);
    path.closeSubpath();
    return path;
}

QPainterPath scallop(const QPointF &hinge, qreal radius, int ribs)
{
    // A fan of ribs opening upwards from the hinge, its rim bulging between the ribs.
    const qreal from = 20;
    const qreal to = 160;
    QPainterPath shell(hinge);
    shell.lineTo(polar(hinge, radius * 0.92, from));
    for (int i = 0; i < ribs; ++i) {
        const qreal a0 = from + (to - from) * i / ribs;
        const qreal a1 = from + (to - from) * (i + 1) / ribs;
        shell.quadTo(polar(hinge, radius * 1.08, (a0 + a1) / 2), polar(hinge, radius * 0.92, a1));
    }
    shell.closeSubpath();
    return shell;
}

QImage appLogo()
{
    QImage img(320, 240, QImage::Format_ARGB32_Premultiplied);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);

    QLinearGradient sky(0, 0, 0, 150);
    sky.setColorAt(0, QColor(0xbf, 0xe8, 0xf2));
    sky.setColorAt(1, QColor(0xf2, 0xfa, 0xfb));
    p.fillRect(img.rect(), sky);

    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xff, 0xd2, 0x6b));
    p.drawEllipse(QPointF(252, 58), 26, 26);

    // the tide: three bands of sea, the nearest darkest
    const QColor seas[3] = {kTideLight, QColor(0x2f, 0xa4, 0xb8), kTide};
    for (int i = 0; i < 3; ++i) {
        p.setBrush(seas[i]);
        p.drawPath(wave(0, 320, 120 + i * 26, 7 - i, 110 + i * 25, i * 1.7, 240));
    }
    // foam crest on the front wave
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(kFoam, 4, Qt::SolidLine, Qt::RoundCap));
    p.drawPath(sineLine(0, 320, 172, 5, 160, 3.4));

    // a shell resting on the sand in front of the water
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xe9, 0xd3, 0xa4));
    p.drawPath(wave(0, 320, 212, 3, 200, 0.5, 240));

    const QPointF hinge(160, 206);
    QLinearGradient shellFill(0, 120, 0, 206);
    shellFill.setColorAt(0, QColor(0xff, 0xc4, 0xa8));
    shellFill.setColorAt(1, QColor(0xe8, 0x7a, 0x5d));
    p.setBrush(shellFill);
    p.setPen(QPen(QColor(0x9c, 0x3f, 0x2e), 2.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawPath(scallop(hinge, 70, 9));
    p.setPen(QPen(QColor(0xb8, 0x55, 0x40), 2, Qt::SolidLine, Qt::RoundCap));
    for (int i = 1; i < 9; ++i)
        p.drawLine(hinge, polar(hinge, 62, 20 + 140.0 * i / 9));
    p.setBrush(QColor(0xe8, 0x7a, 0x5d));
    p.setPen(QPen(QColor(0x9c, 0x3f, 0x2e), 2.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawRoundedRect(QRectF(hinge.x() - 16, hinge.y() - 8, 32, 14), 4, 4);
    return img;
}

QImage appLogoSmall()
{
    QImage img = blank(36, 36);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient bg(0, 0, 0, 36);
    bg.setColorAt(0, kTideLight);
    bg.setColorAt(1, kTide);
    p.setPen(QPen(QColor(0x12, 0x5a, 0x69), 1));
    p.setBrush(bg);
    p.drawRoundedRect(QRectF(0.5, 0.5, 35, 35), 7, 7);

    p.setBrush(Qt::NoBrush);
    for (int i = 0; i < 2; ++i) {
        p.setPen(QPen(i == 0 ? kFoam : QColor(0xd4, 0xf1, 0xf5), 3.0, Qt::SolidLine, Qt::RoundCap));
        p.drawPath(sineLine(5, 31, 15 + i * 9, 3.2, 13, 0.6));
    }
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xff, 0xd2, 0x6b));
    p.drawEllipse(QPointF(26.5, 8.5), 3.2, 3.2);
    return img;
}

// --- scroll-number spin box pieces ---

const int kPieceWidth = 111;
const int kCapHeight = 57;
const int kPanelHeight = 70;

struct CapColours
{
    QColor top;
    QColor bottom;
    QColor border;
};

const CapColours kCapNormal = {QColor(0xfd, 0xfd, 0xfe), QColor(0xd5, 0xda, 0xe0),
                               QColor(0x86, 0x90, 0x9a)};
const CapColours kCapActive = {QColor(0xa7, 0xb4, 0xc3), QColor(0x7c, 0x8b, 0x9d),
                               QColor(0x55, 0x61, 0x6e)};

// One half of a rounded button: rounded at the outer end, straight where it meets the panel.
QImage cap(const CapColours &colours, bool roundedAtTop)
{
    QImage img(kPieceWidth, kCapHeight, QImage::Format_ARGB32_Premultiplied);
    img.fill(kDialogWindow);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal overhang = 24; // the far corners are drawn past the edge and cut off
    const QRectF shape = roundedAtTop
                             ? QRectF(0.5, 0.5, kPieceWidth - 1, kCapHeight + overhang)
                             : QRectF(0.5, -overhang, kPieceWidth - 1, kCapHeight + overhang - 0.5);
    QLinearGradient g(0, 0, 0, kCapHeight);
    g.setColorAt(roundedAtTop ? 0 : 1, colours.top);
    g.setColorAt(roundedAtTop ? 1 : 0, colours.bottom);
    p.setPen(QPen(colours.border, 1));
    p.setBrush(g);
    p.drawRoundedRect(shape, 16, 16);

    // a soft highlight along the rounded end
    QPainterPath inner;
    inner.addRoundedRect(shape.adjusted(2, 2, -2, -2), 14, 14);
    p.setPen(QPen(QColor(255, 255, 255, 110), 1));
    p.setBrush(Qt::NoBrush);
    p.drawPath(inner);
    return img;
}

QImage panel()
{
    QImage img(kPieceWidth, kPanelHeight, QImage::Format_ARGB32_Premultiplied);
    QPainter p(&img);
    QLinearGradient g(0, 0, 0, kPanelHeight);
    g.setColorAt(0, QColor(0xff, 0xff, 0xff));
    g.setColorAt(1, QColor(0xf1, 0xf3, 0xf5));
    p.fillRect(img.rect(), g);
    // hairlines where the caps meet the panel, and the button's sides continued
    p.setPen(QColor(0xb9, 0xc0, 0xc7));
    p.drawLine(1, 0, kPieceWidth - 2, 0);
    p.drawLine(1, kPanelHeight - 1, kPieceWidth - 2, kPanelHeight - 1);
    p.setPen(kCapNormal.border);
    p.drawLine(0, 0, 0, kPanelHeight - 1);
    p.drawLine(kPieceWidth - 1, 0, kPieceWidth - 1, kPanelHeight - 1);
    return img;
}

QImage sign(bool plus)
{
    QImage img = blank(27, plus ? 28 : 6);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    const qreal bar = 6;
    if (plus) {
        QPainterPath cross;
        cross.addRoundedRect(QRectF(0.5, 11, 26, bar), 2, 2);
        cross.addRoundedRect(QRectF(10.5, 0.5, bar, 27), 2, 2);
        cross.setFillRule(Qt::WindingFill);
        p.drawPath(cross.simplified());
    } else {
        p.drawRoundedRect(QRectF(0.5, 0, 26, bar), 2, 2);
    }
    return img;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <resources directory>\n", argv[0]);
        return 2;
    }
    const QDir root(QString::fromLocal8Bit(argv[1]));
    bool ok = true;
    ok &= save(settingIcon(), root, "icon/sys/setting.png");
    ok &= save(rebootIcon(), root, "icon/sys/reboot.png");
    ok &= save(programIcon(), root, "icon/sys/program.png");
    ok &= save(runIcon(), root, "icon/sys/run.png");
    ok &= save(keyboardPicture(), root, "kbd.png");
    ok &= save(appLogo(), root, "applogo.png", QImage::Format_Indexed8);
    ok &= save(appLogoSmall(), root, "applogo_s.png");
    ok &= save(sign(true), root, "scroll_number/plus.png");
    ok &= save(sign(false), root, "scroll_number/minus.png");
    ok &= save(panel(), root, "scroll_number/middle.png");
    ok &= save(cap(kCapNormal, true), root, "scroll_number/top_normal.png");
    ok &= save(cap(kCapActive, true), root, "scroll_number/top_active.png");
    ok &= save(cap(kCapNormal, false), root, "scroll_number/bottom_normal.png");
    ok &= save(cap(kCapActive, false), root, "scroll_number/bottom_active.png");
    return ok ? 0 : 1;
}
