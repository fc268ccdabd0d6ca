// Runs a fuzz target without libFuzzer, for the test suite: every file of the seed corpus, then
// a fixed number of inputs made from them (and from nothing) by deterministic mutation. A broken
// property or a sanitizer finding ends the process with an error and the input in hex.
//
//   <target> [-runs=N] CORPUS_DIR_OR_FILE...

#include "FuzzSupport.h"

#include <QFileInfo>
#include <csignal>
#include <functional>
#include <random>

// Sanitizer findings end in abort() as a broken property does, so that the input is reported.
extern "C" const char *__asan_default_options()
{
    return "abort_on_error=1";
}
extern "C" const char *__ubsan_default_options() __attribute__((alias("__asan_default_options")));

namespace {

QByteArray g_current; // the input under test, for the report when it fails

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

// One to four steps: a byte changed, a byte or a token in, a range out or twice, spliced with
// another input, cut short.
QByteArray mutate(QByteArray in, const QList<QByteArray> &corpus)
{
    for (qsizetype steps = 1 + below(4); steps > 0; --steps) {
        const qsizetype at = below(in.size() + 1);
        const QByteArray &other = corpus[below(corpus.size())];
        const std::function<void()> ways[] = {
            [&] {
                if (!in.isEmpty())
                    in[below(in.size())] ^= char(1 + below(255));
            },
            [&] { in.insert(at, char(below(256))); },
            [&] { in.insert(at, kTokens[below(kTokens.size())]); },
            [&] { in.remove(at, 1 + below(8)); },
            [&] { in.insert(below(in.size() + 1), in.mid(at, 1 + below(16))); },
            [&] { in = in.left(at) + other.mid(below(other.size() + 1)); },
            [&] { in.truncate(at); },
        };
        ways[below(std::size(ways))]();
    }
    return in.left(4096);
}

} // namespace

int main(int argc, char **argv)
{
    long runs = 2000;
    QList<QByteArray> corpus;
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        const QFileInfo path(QString::fromLocal8Bit(argument));
        if (argument.startsWith("-runs="))
            runs = argument.mid(6).toLong();
        else if (!path.exists())
            return std::fprintf(stderr, "cannot read %s\n", argv[i]), 2;
        else
            for (const QFileInfo &file : path.isDir()
                     ? QDir(path.filePath()).entryInfoList(QDir::Files, QDir::Name)
                     : QFileInfoList {path})
                corpus.append(fuzz::contentOf(file.filePath()));
    }

    std::signal(SIGABRT, [](int) {
        std::fprintf(stderr, "failing input (%lld bytes): %s\n",
                     static_cast<long long>(g_current.size()),
                     g_current.left(1024).toHex(' ').constData());
        std::_Exit(EXIT_FAILURE);
    });
    const qsizetype seeds = corpus.size();
    corpus.append(QByteArray()); // generated inputs also start from nothing
    for (long i = -seeds; i < runs; ++i) { // the corpus as it is, then generated inputs
        g_current = i < 0 ? corpus[seeds + i] : mutate(corpus[below(corpus.size())], corpus);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(g_current.constData()),
                               size_t(g_current.size()));
    }
    std::printf("%s: %lld corpus inputs and %ld generated inputs, no finding\n", argv[0],
                static_cast<long long>(seeds), runs);
    return 0;
}
