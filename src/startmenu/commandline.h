#pragma once

#include <QString>
#include <QStringList>

// Splits a start-menu or run-dialog command line into a program and its arguments.
//
// The rules are a small subset of a shell's: blanks (spaces only) separate tokens, double
// quotation marks and apostrophes group text, a backslash takes the next byte literally. Blanks
// at the start of any token are dropped, quoted or not, so "  x" quoted gives x and an empty
// quoted pair gives no argument at all. An unclosed quotation runs to the end of the line; a
// backslash as the last byte stands for itself. No variables, globs or redirections.
//
// The line is walked as its local 8-bit bytes up to the first zero byte, and every kept byte
// becomes the Latin-1 character of the same value: text outside ASCII therefore arrives as its
// UTF-8 bytes spelt in Latin-1 (the entry files on the devices only use ASCII command lines).
//
// program is filled with the first token if it is empty; every further token is appended to
// args.
void splitCommandLine(const QString &line, QString &program, QStringList &args);
