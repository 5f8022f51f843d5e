// Command lines from entry files and the run dialog: any text splits into a program and
// arguments, none of them empty.
#include "commandline.h"
#include "fuzzsupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QString program;
    QStringList args;
    splitCommandLine(QString::fromUtf8(fuzzBytes(data, size)), program, args);
    FUZZ_CHECK(!program.isEmpty() || args.isEmpty());
    for (const QString &arg : std::as_const(args))
        FUZZ_CHECK(!arg.isEmpty());

    // A program given beforehand is kept; every token then lands in the arguments.
    QString preset = QStringLiteral("sh");
    QStringList all;
    splitCommandLine(QString::fromLatin1(fuzzBytes(data, size)), preset, all);
    FUZZ_CHECK(preset == QLatin1String("sh"));
    return 0;
}
