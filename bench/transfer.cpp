// The CPU Board image (1,032,192 bytes) sent by the updater's firmware transfer over a
// pseudo-terminal to varimo-sim: paced at 57600 baud (the line's limit is 187.6 s) and unpaced
// with XModemWaitTime 0, side by side with lrzsz's sx sending the same file to rx. Prints one line
// per figure: wall time, the updater's CPU time, and the ratios the goals are stated in.
//
// Usage: bench_transfer [--paced-only | --unpaced-only]

#include "BenchSupport.h"
#include "FirmwareImage.h"
#include "link/Clock.h"
#include "link/Operator.h"
#include "link/QtSerialLine.h"
#include "link/cComm.h"
#include "shell/cINI.h"
#include "shell/cLog.h"
#include "update/UpdateRun.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cstdio>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

struct Figures
{
    bool ok = false;
    double wallS = 0;
    double cpuS = 0;
    double lineS = 0; // from each packet written to its ACK read: the line and the board
};

// The real line, timing each firmware packet from its write to the read that brought the ACK:
// what remains of the transfer's time is the updater's own.
class TimingLine : public SerialLine
{
public:
    explicit TimingLine(SerialLine &line)
        : m_line(line)
    {
        m_clock.start();
    }

    bool setPortName(const QString &name) override { return m_line.setPortName(name); }
    QString portName() const override { return m_line.portName(); }
    bool setSettings(const QString &settings) override { return m_line.setSettings(settings); }
    bool open() override { return m_line.open(); }
    void close() override { m_line.close(); }
    bool isOpen() const override { return m_line.isOpen(); }
    void discardInput() override { m_line.discardInput(); }
    bool write(const QByteArray &bytes) override
    {
        if (bytes.size() == 133 || bytes == "\x04")
            m_writtenAtNs = m_clock.nsecsElapsed();
        return m_line.write(bytes);
    }
    QByteArray readAll() override
    {
        QByteArray got = m_line.readAll();
        if (m_writtenAtNs >= 0 && got.contains('\x06')) {
            m_waitedNs += m_clock.nsecsElapsed() - m_writtenAtNs;
            m_writtenAtNs = -1;
        }
        return got;
    }
    bool waitForData(int timeoutMs) override { return m_line.waitForData(timeoutMs); }
    QString errorString() const override { return m_line.errorString(); }

    double waitedS() const { return double(m_waitedNs) / 1e9; }
    void reset() { m_waitedNs = 0; }

private:
    SerialLine &m_line;
    QElapsedTimer m_clock;
    qint64 m_writtenAtNs = -1;
    qint64 m_waitedNs = 0;
};

// The CPU Board put into its bootloader by the keys, then the image sent with FlashUpdate.
Figures updaterTransfer(const QString &image, int baud, int transferWaitMs)
{
    QProcess sim;
    sim.start(QString::fromUtf8(VARIMO_SIM_PATH),
              {u"--baud"_s, QString::number(baud), u"--answer-delay"_s, u"0"_s,
               u"--restart-delay"_s, u"1000"_s, u"--boot-time"_s, u"100"_s});
    if (!sim.waitForReadyRead(5000)) {
        std::fprintf(stderr, "varimo-sim did not start\n");
        return {};
    }
    const QString port = QString::fromLocal8Bit(sim.readLine()).trimmed();

    QTemporaryDir dir;
    cINI ini;
    ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));
    ini.SetValue(u"Settings"_s, u"LogParserTele"_s, u"0"_s);
    SystemClock clock;
    cLog log(&clock);
    log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
    log.Setlogging(true);
    QuietOperator op;
    QtSerialLine serial;
    TimingLine line(serial);
    cComm comm(line, clock, op);
    comm.Init(&log);
    comm.setComPort(port);
    if (!comm.OpenPort()) {
        std::fprintf(stderr, "cannot open %s: %s\n", qPrintable(port),
                     qPrintable(comm.lastError()));
        return {};
    }
    // Keys on the front panel: reset, then the update mode. Without an event loop the keys must be
    // pushed out to the simulator's input by hand.
    sim.write("reset-zero\n");
    sim.waitForBytesWritten(1000);
    clock.sleepMs(400);
    sim.write("update-mode\n");
    sim.waitForBytesWritten(1000);
    clock.sleepMs(1500);
    while (line.waitForData(300)) // the bootloader's announcement
        line.readAll();
    comm.WriteTelegram("F", "\r\n");
    const QByteArray request = comm.ReadT(3000, "C");
    if (!request.endsWith('C')) {
        std::fprintf(stderr, "the CPU bootloader did not ask for data: %s\n", request.constData());
        return {};
    }

    ini.SetValue(u"Settings"_s, u"XModemWaitTime"_s, QString::number(transferWaitMs));
    BoardSet current;
    BoardSet fresh;
    std::optional<RunJournal> journal;
    UpdateRun run(comm, clock, op, {&ini, &log, dir.path(), dir.path()}, current, fresh, journal);

    Figures f;
    QElapsedTimer wall;
    double cpuAtStart = 0;
    QObject::connect(&run, &UpdateRun::transferProgressChanged, [&](const TransferProgress &p) {
        if (p.bytesSent == p.bytesTotal && f.wallS == 0) {
            f.wallS = double(wall.nsecsElapsed()) / 1e9;
            f.cpuS = cpuSeconds() - cpuAtStart;
            f.lineS = line.waitedS();
        }
    });
    line.reset();
    wall.start();
    cpuAtStart = cpuSeconds();
    f.ok = run.FlashUpdate(image, BoardKind::Cpu);
    if (!f.ok) {
        QFile l(log.path());
        l.open(QIODevice::ReadOnly);
        std::fprintf(stderr, "%s\n", l.readAll().right(3000).constData());
    }
    comm.ClosePort();
    sim.write("quit\n");
    sim.waitForBytesWritten(1000);
    sim.waitForFinished(5000);
    return f;
}

// lrzsz's sender and receiver joined by socat through two pseudo-terminals.
double lrzszTransfer(const QString &image)
{
    const QString socat = QStandardPaths::findExecutable(u"socat"_s);
    const QString sx = QStandardPaths::findExecutable(u"sx"_s);
    const QString rx = QStandardPaths::findExecutable(u"rx"_s);
    if (socat.isEmpty() || sx.isEmpty() || rx.isEmpty())
        return -1;
    QTemporaryDir dir;
    QProcess p;
    QElapsedTimer wall;
    wall.start();
    p.start(socat,
            {u"EXEC:%1 -X -q %2,pty,raw,echo=0"_s.arg(sx, image),
             u"EXEC:%1 -c -X -q %2,pty,raw,echo=0"_s.arg(rx, dir.filePath(u"out.bin"_s))});
    p.waitForFinished(600000);
    return double(wall.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    QTemporaryDir dir;
    const QString image = dir.filePath(u"FW_CPU-BOARD_V201-017_CRC1.bin"_s);
    {
        QFile f(image);
        if (!f.open(QIODevice::WriteOnly))
            return 2;
        f.write(FirmwareImage::make(BoardKind::Cpu, "2.01", "017"));
    }
    std::printf("CPU Board image: %lld bytes, %lld packets of 133 bytes\n", QFile(image).size(),
                QFile(image).size() / 128);
    constexpr double kLineLimitS = 187.6;

    if (!args.contains(u"--unpaced-only"_s)) {
        // XModemWaitTime 1 is the setting's default; 0 shows the floor of the line itself.
        for (const int wait : {1, 0}) {
            const Figures paced = updaterTransfer(image, 57600, wait);
            std::printf("paced 57600 baud, XModemWaitTime %d: %s, %.1f s (%.3f x the %.1f s "
                        "line limit; goal <= 1.03); waiting on the line %.1f s, the updater's own "
                        "share %.1f s = %.0f us per packet; updater CPU %.2f s = %.2f %% of wall "
                        "(goal <= 2 %%)\n",
                        wait, paced.ok ? "ok" : "FAILED", paced.wallS, paced.wallS / kLineLimitS,
                        kLineLimitS, paced.lineS, paced.wallS - paced.lineS,
                        1e6 * (paced.wallS - paced.lineS) / 8065, paced.cpuS,
                        100.0 * paced.cpuS / paced.wallS);
            std::fflush(stdout);
        }
    }
    if (!args.contains(u"--paced-only"_s)) {
        const Figures unpaced = updaterTransfer(image, 0, 0);
        const double sx = lrzszTransfer(image);
        std::printf("unpaced, XModemWaitTime 0: %s, %.2f s; lrzsz sx -> rx: %.2f s; ratio %.2f "
                    "(goal <= 1.1); updater CPU %.2f s = %.1f %% of wall\n",
                    unpaced.ok ? "ok" : "FAILED", unpaced.wallS, sx, unpaced.wallS / sx,
                    unpaced.cpuS, 100.0 * unpaced.cpuS / unpaced.wallS);
    }
    return 0;
}
