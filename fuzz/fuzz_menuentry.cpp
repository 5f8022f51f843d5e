// Start-menu entry files are written by installers and people: any bytes in such a file give
// an entry or nothing.
#include "fuzzsupport.h"
#include "menuentry.h"

#include <QFile>
#include <QTemporaryDir>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    silenceQtMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    static quint64 serial = 0;
    // A fresh name every time: QSettings caches files by name and would not see a rewrite
    // that keeps the size within the same millisecond.
    const QString fileName = dir.filePath(QStringLiteral("%1.menu").arg(++serial));
    {
        QFile file(fileName);
        FUZZ_CHECK(file.open(QIODevice::WriteOnly));
        file.write(fuzzBytes(data, size));
    }
    if (const std::optional<MenuEntry> entry = readMenuEntry(fileName))
        FUZZ_CHECK(entry->actionData().startsWith(QLatin1String(entry->inner ? "1|" : "0|")));
    QFile::remove(fileName);
    return 0;
}
