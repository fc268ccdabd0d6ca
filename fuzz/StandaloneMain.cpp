// Runs a fuzz target without libFuzzer, for the test suite: every file of the seed corpus, then
// a fixed number of inputs made from them (and from nothing) by deterministic mutation. A broken
// property or a sanitizer finding ends the process with an error and the input in hex.
//
//   <target> [-runs=N] [-seed=S] CORPUS_DIR_OR_FILE...

#include "FuzzSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <csignal>
#include <cstring>
#include <random>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

QByteArray g_current; // the input under test, for the report when it fails

void reportCurrent()
{
    std::fprintf(stderr, "failing input (%lld bytes): %s\n", qint64(g_current.size()),
                 g_current.left(1024).toHex(' ').constData());
    std::fflush(stderr);
}

void onAbort(int)
{
    reportCurrent();
    std::signal(SIGABRT, SIG_DFL);
    std::raise(SIGABRT);
}

// Bytes that matter to the parsers: separators, line ends, the acknowledge bytes, XML markup,
// settings and fault-rule syntax, numbers at the edges of their types.
const QByteArrayList kTokens =
    QByteArray(";|\r\n|\r|\n|\x06|\x0f|\x15|=|[|]|\"|'|<|>|&|&#xd;|]]>|<![CDATA[|</|/>|=\"|XXX|\\|"
               "/|E;03|KVT;|SER;|{|}|:|\\x|count=|nth=|2147483648|-32768|65535|\x01")
        .split('|')
    << QByteArray(1, '\0');

std::mt19937 g_random;

qsizetype below(qsizetype n)
{
    return n <= 0 ? 0 : qsizetype(g_random() % quint64(n));
}

// Up to 64 bytes, most of them ones that matter.
QByteArray fresh()
{
    QByteArray out(below(64), '\0');
    for (char &c : out)
        c = below(4) ? kTokens[below(kTokens.size())].front() : char(below(256));
    return out;
}

QByteArray mutate(QByteArray in, const QList<QByteArray> &corpus)
{
    for (qsizetype steps = 1 + below(4); steps > 0; --steps) {
        const qsizetype at = below(in.size() + 1);
        switch (below(8)) {
        case 0: // a byte changed
            if (!in.isEmpty())
                in[below(in.size())] ^= char(1 + below(255));
            break;
        case 1: // a byte in
            in.insert(at, char(below(256)));
            break;
        case 2:
        case 3: // a token in
            in.insert(at, kTokens[below(kTokens.size())]);
            break;
        case 4: // a range out
            in.remove(at, 1 + below(8));
            break;
        case 5: // a range twice
            in.insert(below(in.size() + 1), in.mid(at, 1 + below(16)));
            break;
        case 6: { // spliced with another input
            const QByteArray &other = corpus[below(corpus.size())];
            in = in.left(at) + other.mid(below(other.size() + 1));
            break;
        }
        default: // cut short
            in.truncate(at);
        }
    }
    return in.left(4096);
}

void run(const QByteArray &input)
{
    g_current = input;
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.constData()),
                           size_t(input.size()));
}

} // namespace

int main(int argc, char **argv)
{
    long runs = 2000;
    uint32_t seed = 1;
    QList<QByteArray> corpus;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "-runs=", 6) == 0) {
            runs = std::strtol(argv[i] + 6, nullptr, 10);
            continue;
        }
        if (std::strncmp(argv[i], "-seed=", 6) == 0) {
            seed = uint32_t(std::strtoul(argv[i] + 6, nullptr, 10));
            continue;
        }
        const QFileInfo given(QString::fromLocal8Bit(argv[i]));
        const QFileInfoList files = given.isDir()
            ? QDir(given.filePath()).entryInfoList(QDir::Files, QDir::Name)
            : QFileInfoList {given};
        for (const QFileInfo &file : files) {
            QFile f(file.filePath());
            if (!f.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(file.filePath()));
                return 2;
            }
            corpus.append(f.readAll());
        }
    }

    std::signal(SIGABRT, onAbort);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_set_death_callback(reportCurrent);
#endif

    for (const QByteArray &input : corpus)
        run(input);
    if (corpus.isEmpty())
        corpus.append(QByteArray());
    g_random.seed(seed);
    for (long i = 0; i < runs; ++i)
        run(below(4) ? mutate(corpus[below(corpus.size())], corpus) : fresh());
    std::printf("%s: %lld corpus inputs and %ld generated inputs (seed %u), no finding\n", argv[0],
                qint64(corpus.size()), runs, seed);
    return 0;
}
