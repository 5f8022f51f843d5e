#include "controlcommand.h"

#include <QDebug>
#include <QList>

#include <cctype>

namespace {

// Senders on the device rely on this conversion: blanks may stand before a number but nothing
// may follow it, and anything that is not a decimal integer counts as 0. QByteArray::toInt()
// forgives trailing blanks as well, so those are refused before it is asked.
int toDecimal(const QByteArray &field, bool *ok = nullptr)
{
    if (!field.isEmpty() && std::isspace(static_cast<unsigned char>(field.back()))) {
        if (ok)
            *ok = false;
        return 0;
    }
    return field.toInt(ok, 10);
}

// Four comma-separated numbers from offset on. Anything but exactly four fields makes the
// command malformed, with the given debug message.
bool parseFour(const QByteArray &command, int offset, const char *error, ControlCommand &cmd,
               int (&out)[4])
{
    const QList<QByteArray> fields = command.mid(offset).split(',');
    if (fields.size() != 4) {
        cmd.error = error;
        return false;
    }
    for (int i = 0; i < 4; ++i)
        out[i] = toDecimal(fields.at(i));
    return true;
}

} // namespace

ControlCommand parseControlCommand(const QByteArray &datagram)
{
    const QByteArray command = datagram.trimmed();
    ControlCommand cmd;
    if (command.isEmpty())
        return cmd;

    // Tested by prefix in this fixed order, first match wins; so anything may follow a word
    // that takes no parameters ("tclose now" closes).
    static const struct
    {
        const char *word;
        ControlCommand::Kind kind;
    } words[] = {
        {"tclose", ControlCommand::Close},         {"topen", ControlCommand::Open},
        {"ttoggle", ControlCommand::Toggle},       {"ttop", ControlCommand::Top},
        {"tbottom", ControlCommand::Bottom},       {"kbdshow", ControlCommand::KbdShow},
        {"kbdhide", ControlCommand::KbdHide},      {"kbdtoggle", ControlCommand::KbdToggle},
        {"taddlabel", ControlCommand::AddLabel},   {"tdellabel", ControlCommand::DelLabel},
        {"ttextcolor", ControlCommand::TextColor}, {"twindowcolor", ControlCommand::WindowColor},
        {"smouse", ControlCommand::Mouse},         {"skey", ControlCommand::Key},
    };
    for (const auto &w : words) {
        if (command.startsWith(w.word)) {
            cmd.kind = w.kind;
            break;
        }
    }

    // Parameter offsets are fixed per word. Where an offset is one past the word, one
    // character is skipped whatever it is; QByteArray::mid() past the end gives an empty
    // array, so a bare word simply has empty parameters.
    int v[4];
    switch (cmd.kind) {
    case ControlCommand::KbdShow:
        if (command.size() > 7) {
            bool ok = false;
            const int method = toDecimal(command.mid(7), &ok);
            if (ok) {
                cmd.methodGiven = true;
                cmd.method = method;
            }
        }
        break;
    case ControlCommand::AddLabel: {
        const QString param = QString::fromUtf8(command.mid(10));
        const qsizetype comma = param.indexOf(QLatin1Char(','));
        if (comma < 0) {
            cmd.error = "wrong param!!";
            break;
        }
        cmd.name = param.left(comma);
        cmd.text = param.mid(comma + 1);
        break;
    }
    case ControlCommand::DelLabel:
        cmd.name = QString::fromUtf8(command.mid(10));
        break;
    case ControlCommand::TextColor:
        if (parseFour(command, 10, "set title text color failed", cmd, v))
            cmd.color = {v[0], v[1], v[2], v[3]};
        break;
    case ControlCommand::WindowColor:
        if (parseFour(command, 12, "set window color failed", cmd, v))
            cmd.color = {v[0], v[1], v[2], v[3]};
        break;
    case ControlCommand::Mouse:
        if (parseFour(command, 7, "wrong mouse format, should be x,y,stat,wheel", cmd, v))
            cmd.mouse = {v[0], v[1], v[2], v[3]};
        break;
    case ControlCommand::Key:
        if (parseFour(command, 5, "wrong key format, should be unicode,keyCode,modifier,pressed",
                      cmd, v))
            cmd.key = {v[0], v[1], v[2], v[3] != 0};
        break;
    default:
        break;
    }
    return cmd;
}

QString ControlCommand::debugLine() const
{
    if (error)
        return QString::fromLatin1(error);
    const char *prefix = nullptr;
    if (kind == TextColor)
        prefix = "set title text color to";
    else if (kind == WindowColor)
        prefix = "set window color to";
    else
        return QString();
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(QLatin1String(prefix))
        .arg(color.r)
        .arg(color.g)
        .arg(color.b)
        .arg(color.a);
}

void printControlDebugLine(const ControlCommand &cmd)
{
    const QString line = cmd.debugLine();
    if (!line.isEmpty())
        qDebug().noquote() << line;
}

QByteArray clickReport(const QString &labelName)
{
    return QByteArrayLiteral("clicked:") + labelName.toUtf8();
}
