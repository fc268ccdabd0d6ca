// varimo-sim: the simulated instrument behind a pseudo-terminal.
//
// Prints the slave path as its first line on standard output, then serves the updater in real
// time until SIGTERM, SIGINT or "quit" on standard input. See docs/simulator.md.

#include "AutoOperator.h"
#include "FirmwareImage.h"
#include "Instrument.h"
#include "PtyDevice.h"
#include "Scheduler.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kUpdaterRestartWaitMs = 20000; // the updater looks for the board again after this

struct Options
{
    QString link;
    QString statePath;
    QString tracePath;
    QStringList faults;
    bool autoOperator = false;
    int operatorDelayMs = AutoOperator::kDefaultDelayMs;
    SimTiming timing;
    QString firmwareDir;
    FirmwareImage::Version versions[3];
};

void say(const QString &line)
{
    std::fprintf(stderr, "varimo-sim: %s\n", qPrintable(line));
}

// Parses the command line; on a mistake says what and returns false.
bool parseOptions(const QCoreApplication &app, Options *options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"The simulated instrument behind a pseudo-terminal. The first line on standard output "
        "is the port to open. Keys and commands are read from standard input, one a line: "
        "reset-zero, power, update-mode, menu-open, menu-close, unplug, plug, save, "
        "fault <rule>, quit."_s);
    parser.addHelpOption();
    auto option = [&parser](const QString &name, const QString &help, const QString &value = {},
                            const QString &fallback = {}) {
        QCommandLineOption o(name, help, value, fallback);
        parser.addOption(o);
        return o;
    };
    const SimTiming defaults;
    const auto link = option(u"link"_s, u"Make PATH a symbolic link to the port."_s, u"PATH"_s);
    const auto baud = option(u"baud"_s, u"Line rate of both directions; 0 for unpaced."_s, u"N"_s,
                             QString::number(defaults.baud));
    const auto autoOp = option(u"auto-operator"_s, u"Press the keys a waiting updater asks for."_s);
    const auto opDelay = option(u"operator-delay"_s, u"How long the auto-operator waits."_s,
                                u"MS"_s, QString::number(AutoOperator::kDefaultDelayMs));
    const auto state =
        option(u"state"_s, u"Load the instrument from FILE; save it at exit."_s, u"FILE"_s);
    const auto answerDelay = option(u"answer-delay"_s, u"From telegram to answer."_s, u"MS"_s,
                                    QString::number(defaults.answerDelayMs));
    const auto restartDelay =
        option(u"restart-delay"_s, u"From a good transfer to the board running it (< 20000)."_s,
               u"MS"_s, QString::number(defaults.restartDelayMs));
    const auto bootTime = option(u"boot-time"_s, u"From POWER to the boards answering."_s, u"MS"_s,
                                 QString::number(defaults.bootTimeMs));
    const auto trace = option(u"trace"_s, u"Write every telegram and answer to FILE."_s, u"FILE"_s);
    const auto fault = option(u"fault"_s, u"Add a fault rule (repeatable)."_s, u"RULE"_s);
    const auto makeFirmware =
        option(u"make-firmware"_s, u"Write firmware files for the three boards into DIR, exit."_s,
               u"DIR"_s);
    std::vector<std::pair<QCommandLineOption, QCommandLineOption>> versionOptions;
    for (BoardKind kind : kAllBoards) {
        const QString key = QString::fromLatin1(boardKey(kind));
        const FirmwareImage::Version v = FirmwareImage::defaultNewVersion(kind);
        versionOptions.emplace_back(option(key + u"-version"_s,
                                           u"Firmware version of the %1 file."_s.arg(key), u"V"_s,
                                           QString::fromLatin1(v.firmware)),
                                    option(key + u"-build"_s, u"Build of the %1 file."_s.arg(key),
                                           u"B"_s, QString::fromLatin1(v.build)));
    }
    parser.process(app);

    auto number = [&parser](const QCommandLineOption &o, int min, int max, int *out) {
        bool ok = false;
        const int n = parser.value(o).toInt(&ok);
        if (!ok || n < min || n > max) {
            say(u"--%1 must be a number from %2 to %3"_s.arg(o.names().first()).arg(min).arg(max));
            return false;
        }
        *out = n;
        return true;
    };
    if (!number(baud, 0, 4000000, &options->timing.baud) ||
        !number(opDelay, 0, 60000, &options->operatorDelayMs) ||
        !number(answerDelay, 0, 60000, &options->timing.answerDelayMs) ||
        !number(restartDelay, 0, kUpdaterRestartWaitMs - 1, &options->timing.restartDelayMs) ||
        !number(bootTime, 0, 60000, &options->timing.bootTimeMs))
        return false;
    options->link = parser.value(link);
    options->statePath = parser.value(state);
    options->tracePath = parser.value(trace);
    options->faults = parser.values(fault);
    options->autoOperator = parser.isSet(autoOp);
    options->firmwareDir = parser.value(makeFirmware);
    for (BoardKind kind : kAllBoards) {
        const auto &[version, build] = versionOptions[size_t(boardIndex(kind))];
        options->versions[boardIndex(kind)] = {parser.value(version).toLatin1(),
                                               parser.value(build).toLatin1()};
    }
    return true;
}

int makeFirmware(const Options &options)
{
    QString error;
    const QStringList files =
        FirmwareImage::writeSet(options.firmwareDir, options.versions[boardIndex(BoardKind::Cpu)],
                                options.versions[boardIndex(BoardKind::Meas)],
                                options.versions[boardIndex(BoardKind::Main)], &error);
    if (files.isEmpty()) {
        say(error);
        return 1;
    }
    for (const QString &file : files)
        std::printf("%s\n", qPrintable(file));
    return 0;
}

// SIGINT and SIGTERM end the event loop (through a socket pair, the one safe way out of a
// signal handler).
int g_signalFd = -1;

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(g_signalFd, &byte, 1);
}

bool watchSignals(QObject *parent)
{
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
        return false;
    g_signalFd = fds[0];
    struct sigaction action
    {
    };
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    auto *notifier = new QSocketNotifier(fds[1], QSocketNotifier::Read, parent);
    QObject::connect(notifier, &QSocketNotifier::activated, parent,
                     [] { QCoreApplication::quit(); });
    return true;
}

// The simulator at run time: the instrument, its port and the console.
class Simulator : public QObject
{
public:
    explicit Simulator(const Options &options, InstrumentState state)
        : m_options(options)
        , m_instrument(m_scheduler, std::move(state), options.timing)
    {
    }

    bool start()
    {
        if (!m_options.tracePath.isEmpty() &&
            !m_instrument.trace().setLogFile(m_options.tracePath)) {
            say(u"cannot write the trace %1"_s.arg(m_options.tracePath));
            return false;
        }
        for (const QString &text : m_options.faults) {
            if (!addFault(text))
                return false;
        }
        if (m_options.autoOperator)
            m_autoOperator =
                std::make_unique<AutoOperator>(m_instrument, m_options.operatorDelayMs);

        connect(&m_pty, &PtyDevice::received, this,
                [this](const QByteArray &bytes) { m_instrument.receive(bytes); });
        connect(&m_pty, &PtyDevice::portOpened, this, [this] { m_instrument.lineOpened(); });
        connect(&m_pty, &PtyDevice::portClosed, this, [this] { m_instrument.lineClosed(); });
        m_instrument.setSink([this](const QByteArray &bytes) { m_pty.write(bytes); });
        m_instrument.setPlugListener([this](bool plugged) {
            if (plugged) {
                openPort();
            } else {
                m_pty.unlink();
                m_pty.close();
                say(u"adapter unplugged"_s);
            }
        });
        if (!openPort())
            return false;

        auto *console = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
        connect(console, &QSocketNotifier::activated, this,
                [this, console] { readConsole(console); });
        return true;
    }

    ~Simulator() override { m_pty.unlink(); }

    bool saveState()
    {
        if (m_options.statePath.isEmpty())
            return true;
        QString error;
        if (!StateFile::save(m_options.statePath, m_instrument.state(), &error)) {
            say(error);
            return false;
        }
        say(u"state saved to %1"_s.arg(m_options.statePath));
        return true;
    }

private:
    bool openPort()
    {
        QString error;
        if (!m_pty.open(&error) ||
            (!m_options.link.isEmpty() && !m_pty.link(m_options.link, &error))) {
            say(error);
            return false;
        }
        std::printf("%s\n", qPrintable(m_pty.slavePath()));
        std::fflush(stdout);
        return true;
    }

    bool addFault(const QString &text)
    {
        const FaultRule::ParseResult parsed = FaultRule::parse(text);
        if (!parsed.ok) {
            say(u"fault '%1': %2"_s.arg(text, parsed.error));
            return false;
        }
        m_instrument.addFault(parsed.rule);
        return true;
    }

    void readConsole(QSocketNotifier *console)
    {
        char buf[1024];
        const ssize_t n = ::read(STDIN_FILENO, buf, sizeof buf);
        if (n <= 0) {
            console->setEnabled(false); // end of input: keep running
            return;
        }
        m_console.append(buf, n);
        qsizetype lf;
        while ((lf = m_console.indexOf('\n')) >= 0) {
            command(m_console.left(lf).trimmed());
            m_console.remove(0, lf + 1);
        }
    }

    void command(const QByteArray &line)
    {
        if (line.isEmpty())
            return;
        if (const auto key = keyFromName(line)) {
            m_instrument.press(*key);
        } else if (line == "unplug") {
            m_instrument.unplug();
        } else if (line == "plug") {
            m_instrument.plug();
        } else if (line == "save") {
            saveState();
        } else if (line == "quit") {
            QCoreApplication::quit();
        } else if (line.startsWith("fault ")) {
            addFault(QString::fromLatin1(line.mid(6)));
        } else {
            say(u"unknown command '%1' (reset-zero, power, update-mode, menu-open, menu-close, "
                "unplug, plug, save, fault <rule>, quit)"_s.arg(QString::fromLatin1(line)));
        }
    }

    Options m_options;
    TimerScheduler m_scheduler;
    Instrument m_instrument;
    PtyDevice m_pty;
    std::unique_ptr<AutoOperator> m_autoOperator;
    QByteArray m_console;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"varimo-sim"_s);
    Options options;
    if (!parseOptions(app, &options))
        return 2;
    if (!options.firmwareDir.isEmpty())
        return makeFirmware(options);

    InstrumentState state = InstrumentState::defaults();
    if (!options.statePath.isEmpty() && QFile::exists(options.statePath)) {
        const StateFile::LoadResult loaded = StateFile::load(options.statePath);
        if (!loaded.ok) {
            say(loaded.error);
            return 2;
        }
        state = loaded.state;
    }
    Simulator simulator(options, state);
    if (!watchSignals(&app) || !simulator.start())
        return 1;
    const int rc = app.exec();
    return simulator.saveState() ? rc : 1;
}
