#pragma once

// Shared by the fuzz targets: the entry point over the input as bytes, splitting it into fields,
// scratch files, and the check that turns a broken property into a crash the fuzzer reports (and
// the smoke driver fails on).

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#define FUZZ_CHECK(condition)                                                                      \
    ((condition)                                                                                   \
         ? void()                                                                                  \
         : (std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition),  \
            std::abort()))

namespace fuzz {

// The input cut at its first count - 1 line feeds: count fields, the last one holding the rest
// (missing fields are empty).
inline QList<QByteArray> fields(const QByteArray &input, int count)
{
    const QList<QByteArray> lines = input.split('\n');
    QList<QByteArray> out = lines.mid(0, count - 1);
    out.append(lines.mid(count - 1).join('\n'));
    out.resize(count);
    return out;
}

// A file of the folder the targets read and write, holding content (and whatever they write to
// it afterwards); in memory where the system has a place for it (every save is flushed to disk,
// which would dominate the run time).
inline QString scratchFile(const QString &name, const QByteArray &content = {})
{
    static const QTemporaryDir dir(QDir(QStringLiteral("/dev/shm")).exists()
                                       ? QStringLiteral("/dev/shm/varimo-fuzz-XXXXXX")
                                       : QDir::tempPath() + QStringLiteral("/varimo-fuzz-XXXXXX"));
    QFile file(dir.filePath(name));
    FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
               file.write(content) == content.size());
    return file.fileName();
}

inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace fuzz

// The target's body, run on each input as bytes: FUZZ_TARGET(input) { ... }
// The argument names the body's parameter, so it cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define FUZZ_TARGET(input)                                                                         \
    static void fuzzOne(const QByteArray &input);                                                  \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)                        \
    {                                                                                              \
        fuzzOne(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));                \
        return 0;                                                                                  \
    }                                                                                              \
    static void fuzzOne(const QByteArray &input)
// NOLINTEND(bugprone-macro-parentheses)
