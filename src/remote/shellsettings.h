#pragma once

#include "controlcommand.h"

#include <QString>
#include <QStringList>

// The shell's settings, read once at start-up from a read-only INI file (/etc/tideshell.conf,
// or the file named by TIDESHELL_CONFIG). Without the file every value is the built-in one,
// and the control port behaves as it always has: every address, shared with other sockets.
// The TIDESHELL_CONTROL_PORT, TIDESHELL_STARTMENU_DIR and TIDESHELL_CLOCK_PROGRAM variables
// of development machines and tests override the file; nothing else reads them.
struct ShellSettings
{
    // [control]
    quint16 controlPort = ControlPort; // 0: any free port (tests)
    QStringList bindAddresses;         // bind: empty means every local address
    QStringList allowedNetworks;       // allow: CIDR list; empty means every sender
    bool allowInjection = true;        // inject: false refuses "skey" and "smouse"
    bool exclusive = false;            // exclusive: no other socket may share the port

    // [paths]; empty means the device's own folder and program.
    QString startMenuDir;
    QString clockProgram;

    static QString defaultPath() { return QStringLiteral("/etc/tideshell.conf"); }
    // The file (if any) with the environment's overrides on top.
    static ShellSettings load();
    static ShellSettings fromFile(const QString &path);
};
