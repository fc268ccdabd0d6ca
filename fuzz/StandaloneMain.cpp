// Runs a fuzz target without libFuzzer, for the test suite: every file of the seed corpus, then
// a fixed number of inputs made from them by deterministic mutation and of random bytes. A broken
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
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

using Input = std::vector<uint8_t>;

// The input under test, for the report when it fails.
const Input *g_current = nullptr;
const char *g_origin = "";

void reportCurrent()
{
    if (!g_current)
        return;
    std::fprintf(stderr, "failing input (%s, %zu bytes):", g_origin, g_current->size());
    for (size_t i = 0; i < g_current->size() && i < 1024; ++i)
        std::fprintf(stderr, " %02x", (*g_current)[i]);
    std::fprintf(stderr, "\n");
    std::fflush(stderr);
}

void onAbort(int)
{
    reportCurrent();
    std::signal(SIGABRT, SIG_DFL);
    std::raise(SIGABRT);
}

// Bytes that matter to the parsers: separators, line ends, the acknowledge bytes, XML markup.
const std::vector<std::string> kTokens = {";",      "\r\n",
                                          "\r",     "\n",
                                          "\x06",   "\x0f",
                                          "\x15",   "=",
                                          "[",      "]",
                                          "\"",     "'",
                                          "<",      ">",
                                          "&",      "&#xd;",
                                          "]]>",    "<![CDATA[",
                                          "</",     "/>",
                                          "=\"",    "XXX",
                                          "\\",     "/",
                                          "E;03",   "KVT;",
                                          "SER;",   "{",
                                          "}",      ":",
                                          "\\x",    "count=",
                                          "nth=",   "2147483648",
                                          "-32768", "65535",
                                          "\x01",   std::string(1, '\0')};

class Mutator
{
public:
    explicit Mutator(uint32_t seed)
        : m_random(seed)
    {
    }

    size_t below(size_t n)
    {
        return n == 0 ? 0 : std::uniform_int_distribution<size_t>(0, n - 1)(m_random);
    }

    Input randomInput()
    {
        Input out(below(64));
        for (uint8_t &b : out) {
            if (below(4) == 0) {
                b = uint8_t(below(256));
            } else {
                const std::string &t = kTokens[below(kTokens.size())];
                b = uint8_t(t[0]);
            }
        }
        return out;
    }

    Input mutate(Input in, const std::vector<Input> &corpus)
    {
        const size_t steps = 1 + below(4);
        for (size_t s = 0; s < steps; ++s) {
            switch (below(7)) {
            case 0: // flip a bit
                if (!in.empty())
                    in[below(in.size())] ^= uint8_t(1u << below(8));
                break;
            case 1: // any byte
                if (!in.empty())
                    in[below(in.size())] = uint8_t(below(256));
                break;
            case 2: { // a token in
                const std::string &t = kTokens[below(kTokens.size())];
                const size_t at = below(in.size() + 1);
                in.insert(in.begin() + ptrdiff_t(at), t.begin(), t.end());
                break;
            }
            case 3: { // a range out
                if (in.empty())
                    break;
                const size_t at = below(in.size());
                const size_t n = 1 + below(std::min<size_t>(8, in.size() - at));
                in.erase(in.begin() + ptrdiff_t(at), in.begin() + ptrdiff_t(at + n));
                break;
            }
            case 4: { // a range twice
                if (in.empty())
                    break;
                const size_t at = below(in.size());
                const size_t n = 1 + below(std::min<size_t>(16, in.size() - at));
                const Input part(in.begin() + ptrdiff_t(at), in.begin() + ptrdiff_t(at + n));
                in.insert(in.begin() + ptrdiff_t(below(in.size() + 1)), part.begin(), part.end());
                break;
            }
            case 5: { // spliced with another input
                const Input &other = corpus[below(corpus.size())];
                const size_t cut = below(in.size() + 1);
                const size_t from = below(other.size() + 1);
                in.resize(cut);
                in.insert(in.end(), other.begin() + ptrdiff_t(from), other.end());
                break;
            }
            default: // cut short
                in.resize(below(in.size() + 1));
            }
        }
        if (in.size() > 4096)
            in.resize(4096);
        return in;
    }

private:
    std::mt19937 m_random;
};

Input readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        std::exit(2);
    }
    const QByteArray content = file.readAll();
    return Input(content.begin(), content.end());
}

void run(const Input &input, const char *origin)
{
    g_current = &input;
    g_origin = origin;
    LLVMFuzzerTestOneInput(input.data(), input.size());
    g_current = nullptr;
}

} // namespace

int main(int argc, char **argv)
{
    long runs = 2000;
    uint32_t seed = 1;
    std::vector<Input> corpus;
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        if (std::strncmp(arg, "-runs=", 6) == 0) {
            runs = std::strtol(arg + 6, nullptr, 10);
        } else if (std::strncmp(arg, "-seed=", 6) == 0) {
            seed = uint32_t(std::strtoul(arg + 6, nullptr, 10));
        } else {
            const QString path = QString::fromLocal8Bit(arg);
            if (QFileInfo(path).isDir()) {
                const QDir dir(path);
                for (const QString &name : dir.entryList(QDir::Files, QDir::Name))
                    corpus.push_back(readFile(dir.filePath(name)));
            } else {
                corpus.push_back(readFile(path));
            }
        }
    }

    std::signal(SIGABRT, onAbort);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_set_death_callback(reportCurrent);
#endif

    for (const Input &input : corpus)
        run(input, "corpus");
    if (corpus.empty())
        corpus.push_back({});
    Mutator mutator(seed);
    for (long i = 0; i < runs; ++i) {
        const bool fresh = mutator.below(4) == 0;
        const Input input = fresh ? mutator.randomInput()
                                  : mutator.mutate(corpus[mutator.below(corpus.size())], corpus);
        run(input, fresh ? "random" : "mutated");
    }
    std::printf("%s: %zu corpus inputs and %ld generated inputs (seed %u), no finding\n", argv[0],
                corpus.size(), runs, seed);
    return 0;
}
