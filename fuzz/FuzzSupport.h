#pragma once

// Shared by the fuzz targets: the input as bytes, splitting it into fields, and the check that
// turns a broken property into a crash the fuzzer reports (and the smoke driver fails on).

#include <QByteArray>
#include <QDir>
#include <QList>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fuzz {

[[noreturn]] inline void propertyBroken(const char *what, const char *file, int line)
{
    std::fprintf(stderr, "%s:%d: property broken: %s\n", file, line, what);
    std::fflush(stderr);
    std::abort();
}

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// The input cut at its first count - 1 line feeds: count fields, the last one holding the rest
// (missing fields are empty).
inline QList<QByteArray> fields(const QByteArray &input, int count)
{
    QList<QByteArray> out;
    qsizetype start = 0;
    for (int i = 0; i + 1 < count; ++i) {
        const qsizetype end = input.indexOf('\n', start);
        if (end < 0) {
            out.append(input.mid(start));
            start = input.size();
            continue;
        }
        out.append(input.mid(start, end - start));
        start = end + 1;
    }
    out.append(input.mid(start));
    return out;
}

// A folder for the files a target reads and writes, in memory where the system has a place for
// it (every save is flushed to disk, which would dominate the run time).
inline const QTemporaryDir &scratchFolder()
{
    static const QTemporaryDir dir(QDir(QStringLiteral("/dev/shm")).exists()
                                       ? QStringLiteral("/dev/shm/varimo-fuzz-XXXXXX")
                                       : QDir::tempPath() + QStringLiteral("/varimo-fuzz-XXXXXX"));
    return dir;
}

} // namespace fuzz

#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition))                                                                          \
            ::fuzz::propertyBroken(#condition, __FILE__, __LINE__);                                \
    } while (false)
