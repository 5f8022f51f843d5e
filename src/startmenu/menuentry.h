#pragma once

#include <QFileInfoList>
#include <QLoggingCategory>
#include <QString>

#include <optional>

Q_DECLARE_LOGGING_CATEGORY(lcStartMenu)

// One start-menu entry as read from its INI file: the keys Name, Path, Dir and Icon in the
// general group are required (Dir may be empty), Inner is optional.
struct MenuEntry
{
    QString name;
    QString path; // command line, or an inner command with its parameters
    QString dir;
    QString icon; // file name handed to QIcon; may be empty or unreadable
    bool inner = false;

    // The text the menu action carries: inner flag "1" or "0", Path and Dir joined by "|".
    // Whoever reads it back splits at "|", so a "|" inside Path or Dir spoils the entry.
    QString actionData() const;
};

// Reads one entry file (INI, UTF-8). A file that lacks a required key, or cannot be read at
// all, gives nothing; that is not an error, the entry is simply left out of the menu.
std::optional<MenuEntry> readMenuEntry(const QString &fileName);

// The files of a start-menu directory in menu order: plain files, hidden ones included,
// neither symbolic links nor directories; smallest file first, equal sizes by name
// descending. Installers rely on this order to place entries, so it is not alphabetical.
// A missing directory lists nothing.
QFileInfoList listMenuDir(const QString &dirPath);

// Only files whose last suffix is exactly "menu" are entries; case matters.
bool isMenuEntryFile(const QFileInfo &info);
