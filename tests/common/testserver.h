#pragma once

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

#include <vector>

// For tests that run a window server in their own process: a private runtime directory and
// a socket name of their own, handed to the application as the shell's would be, while Qt
// Test sees only its own arguments.
template <typename App, typename Test> int runWithServer(int argc, char **argv)
{
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    // A bar made here binds its control port; keep it off the one a running shell uses.
    qputenv("TIDESHELL_CONTROL_PORT", "0");
    qputenv("TIDESHELL_CONFIG", QFile::encodeName(runtime.filePath("tideshell.conf")));
    QByteArray socketName = "tide-unit-" + QByteArray::number(QCoreApplication::applicationPid());
    std::vector<char *> appArgs(argv, argv + argc);
    QByteArray option = "--wayland-socket-name";
    appArgs.push_back(option.data());
    appArgs.push_back(socketName.data());
    int appArgc = int(appArgs.size());
    appArgs.push_back(nullptr);
    App app(appArgc, appArgs.data());
    Test test;
    return QTest::qExec(&test, argc, argv);
}
