// tide_vncgrab PORT OUT.png: saves the screen served on a local VNC port as a picture.
#include "rfbclient.h"

#include <QGuiApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 3) {
        std::fprintf(stderr, "usage: tide_vncgrab PORT OUT.png\n");
        return 2;
    }
    RfbClient vnc;
    const QImage image = vnc.connectTo(quint16(args.at(1).toUInt())) ? vnc.grab() : QImage();
    if (image.isNull() || !image.save(args.at(2))) {
        std::fprintf(stderr, "tide_vncgrab: no picture from port %s\n", argv[1]);
        return 1;
    }
    return 0;
}
