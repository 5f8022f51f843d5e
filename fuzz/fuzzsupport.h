// Shared bits of the fuzz targets.
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// The code under test talks through qDebug(); at millions of runs that is only noise.
inline void silenceQtMessages()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
}

inline QByteArray fuzzBytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// A broken invariant is a finding like a crash: abort so libFuzzer keeps the input.
#define FUZZ_CHECK(cond)                                                                           \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);          \
            std::abort();                                                                          \
        }                                                                                          \
    } while (0)
