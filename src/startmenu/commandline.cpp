#include "commandline.h"

#include <QByteArray>

void splitCommandLine(const QString &line, QString &program, QStringList &args)
{
    enum class Quoting { None, Single, Double };

    const QByteArray bytes = line.toLocal8Bit();
    Quoting quoting = Quoting::None;
    QString token;

    auto store = [&] {
        if (program.isEmpty())
            program = token;
        else
            args.append(token);
        token.clear();
    };

    for (const char *p = bytes.constData(); *p; ++p) {
        const char c = *p;
        if (c == '\\') {
            if (p[1] == '\0') {
                token += QChar::fromLatin1(c);
                break;
            }
            ++p;
            token += QChar::fromLatin1(*p);
        } else if (c == '"' && quoting != Quoting::Single) {
            quoting = quoting == Quoting::Double ? Quoting::None : Quoting::Double;
        } else if (c == '\'' && quoting != Quoting::Double) {
            quoting = quoting == Quoting::Single ? Quoting::None : Quoting::Single;
        } else if (c == ' ') {
            if (token.isEmpty())
                continue;
            if (quoting == Quoting::None)
                store();
            else
                token += QChar::fromLatin1(c);
        } else {
            token += QChar::fromLatin1(c);
        }
    }

    if (!token.isEmpty())
        store();
}
