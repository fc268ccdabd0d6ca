// The serial adapter pulled in the middle of a transfer, with the real serial code (QtSerialLine,
// SystemClock) against varimo-sim on its pseudo-terminal: the update run reports the failure at
// once, says in the log where it left the board, and the next Connect, once the adapter is back,
// finds the board waiting in its bootloader.
#include "FirmwareImage.h"
#include "link/Clock.h"
#include "link/Operator.h"
#include "link/QtSerialLine.h"
#include "link/UpdaterError.h"
#include "link/cComm.h"
#include "update/Connection.h"
#include "shell/cINI.h"
#include "shell/cLog.h"
#include "support/SimProcess.h"
#include "update/Session.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>
#include <iostream>

using namespace Qt::StringLiterals;

namespace {

// Does what the failure dialog says once (plugs the adapter back in, resets and restarts the
// instrument), then gives up, as the terminal front end's operator does.
class PluggingOperator : public Operator
{
public:
    explicit PluggingOperator(SimProcess &sim)
        : m_sim(sim)
    {
    }
    void messageBox(const QString &) override { }
    void instruction(Instruction, const QStringList &lines) override
    {
        if (!reportedAfterMs)
            reportedAfterMs = sinceLastBlock.elapsed();
        dialogs << lines.value(0);
        m_sim.type("plug");
        m_sim.type("reset-zero");
        m_sim.type("power");
        QThread::msleep(1500); // the boards start
        throw UpdaterError(u"The operator gives up"_s);
    }
    void letEventsRun() override { }

    QElapsedTimer sinceLastBlock;
    qint64 reportedAfterMs = 0;
    QStringList dialogs;

private:
    SimProcess &m_sim;
};

TEST(Unplug, BrokenTransferIsReportedAndTheNextConnectFindsTheBoard)
{
    constexpr int kUnplugAfterPacket = 40;
    QTemporaryDir dir;
    const QString link = dir.filePath(u"ttyVARIMO"_s);
    const QString state = dir.filePath(u"state.json"_s);
    {
        QFile f(state); // the Main Board already asks for its image
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(R"({"boards": {"main": {"mode": "bootloader"}}})");
    }
    SimProcess sim;
    ASSERT_TRUE(sim.start({u"--link"_s, link, u"--state"_s, state, u"--answer-delay"_s, u"2"_s,
                           u"--fault"_s, u"unplug packet=%1"_s.arg(kUnplugAfterPacket)}));
    const QStringList files =
        FirmwareImage::writeSet(dir.path(), {"2.00", "017"}, {"1.20", "4"}, {"1.03", "1"});
    ASSERT_EQ(files.size(), 3);

    SystemClock clock;
    cLog log(&clock);
    log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
    log.Setlogging(true);
    cINI ini;
    ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));
    ini.SetValue(u"Settings"_s, u"LogParserTele"_s, u"False"_s);
    PluggingOperator op(sim);
    QtSerialLine line;
    Session session(line, clock, op, {&ini, &log, dir.path(), dir.path()});
    // Connect finds the Main Board waiting in its bootloader.
    ASSERT_TRUE(session.run(Job::connectTo(link)).succeeded());
    ASSERT_EQ(session.connection().bootloaderBoard, BoardKind::Main);
    session.fresh()[BoardKind::Main].InitFromBinFile(dir.path(), files[1],
                                                     u"FW_MAINBOARD_XXX_CRC"_s, BoardKind::Main);
    int packets = 0;
    QObject::connect(&session, &Session::transferProgressChanged, [&](const TransferProgress &p) {
        packets += p.bytesSent > 0 ? 1 : 0; // not the report of the transfer's start
        op.sinceLastBlock.start(); // the last block acknowledged before the adapter went
    });
    const JobResult result = session.run(Job::singleBoard(BoardKind::Main));
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(result.board, BoardKind::Main);
    EXPECT_EQ(result.stage, Stage::Transfer);
    // The ACK of the last block may be lost with the line.
    EXPECT_GE(packets, kUnplugAfterPacket - 1);
    EXPECT_LE(packets, kUnplugAfterPacket);
    EXPECT_EQ(op.dialogs, QStringList {u"ERROR: No connection to VARIMOsentry"_s});

    QFile f(log.path());
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QByteArray text = f.readAll();
    EXPECT_TRUE(text.contains("Error during Flash binary file (XModemWaitTime = 1 ms)"));

    // Once the adapter is back, Connect finds the Main Board waiting in its bootloader, which the
    // main window hands to the single-board update.
    session.run(Job::disconnect());
    session.run(Job::connectTo(link));
    const Connection::Result r = session.connection();
    EXPECT_TRUE(r.opened) << r.error.toStdString();
    EXPECT_EQ(r.bootloaderBoard, BoardKind::Main);

    // The figure for docs/reliability.md (a wall-clock time: recorded, not asserted).
    QDir(QStringLiteral(VARIMO_TEST_BINARY_DIR)).mkpath(u"reliability"_s);
    QFile figure(QStringLiteral(VARIMO_TEST_BINARY_DIR "/reliability/unplug.txt"));
    if (figure.open(QIODevice::WriteOnly))
        figure.write("failure reported " + QByteArray::number(op.reportedAfterMs) +
                     " ms after the last acknowledged block (the adapter is pulled after block " +
                     QByteArray::number(kUnplugAfterPacket) + ")\n");
    std::cout << "failure reported " << op.reportedAfterMs
              << " ms after the last acknowledged block\n";
}

} // namespace
