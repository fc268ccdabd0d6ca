#include "support/SimFixture.h"

#include <QFile>
#include <QSignalSpy>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

// Update jobs against the simulated instrument, prepared as the main window prepares them:
// connected, firmware files found.
class UpdateRunTest : public SimFixture
{
protected:
    QStringList instructions(Operator::Instruction kind) const
    {
        QStringList firstLines;
        for (const auto &p : op.prompts)
            if (p.kind == ScriptedOperator::Prompt::Instruction && p.instruction == kind)
                firstLines << p.lines.value(0);
        return firstLines;
    }
};

TEST_F(UpdateRunTest, NoBoardNeedsAnUpdateButTheBackupIsMade)
{
    writeFirmware("2.00", "1.20", "1.02");
    ASSERT_TRUE(connect(session)); // the connect sends none of the telegrams below
    ASSERT_TRUE(session.run(Job::update(false)).succeeded());
    EXPECT_EQ(ini.GetValue(u"Settings"_s, u"LastBackupFileName"_s, {}),
              u"VarimoSentry_Backup_00042.xml"_s);
    for (const QByteArray &t : receivedSinceMark())
        EXPECT_FALSE(t == "DHR;3" || t == "DHR;4" || t == "BOT;$" || t == "F") << t.constData();
}

TEST_F(UpdateRunTest, MainBoardFailureLeavesTheOtherBoardsUntouched)
{
    writeFirmware("2.01", "1.21", "1.03");
    ASSERT_TRUE(connect(session));
    // The Main Board takes its image but never answers after its restart: the pass fails, and
    // after the operator's reset it runs the new firmware, so there is no further pass.
    instrument().addFault(FaultRule::ignoreTelegram("KVT", 9, 4));
    markTrace();
    EXPECT_FALSE(session.run(Job::update(false)).succeeded());
    EXPECT_EQ(instrument().board(BoardKind::Main).firmware, QByteArray("1.03"));
    // No bootloader start of the Measuring Module (DHR;3) or of the CPU Board (F).
    EXPECT_FALSE(receivedSinceMark().contains("DHR;3") || receivedSinceMark().contains("F"));
    EXPECT_EQ(instructions(Operator::Instruction::General),
              QStringList {u"ERROR: No connection to VARIMOsentry"_s});
}

TEST_F(UpdateRunTest, BoardStillInItsBootloaderAfterAFailedPassGetsAnotherPass)
{
    writeFirmware("2.00", "1.20", "1.03");
    ASSERT_TRUE(connect(session));
    instrument().addFault(FaultRule::nakPacket(5, 30));
    cBackup backup; // the backup of an earlier run, which the single-board update restores
    backup.Init(&comm);
    ASSERT_TRUE(backup.SecureData(path(u"VarimoSentry_Backup_00042.xml"_s)));
    ASSERT_TRUE(session.run(Job::singleBoard(BoardKind::Main)).succeeded());
    EXPECT_EQ(instrument().board(BoardKind::Main).firmware, QByteArray("1.03"));
    EXPECT_EQ(logLines().count("Starting Main Board bootloader..."), 2);
    EXPECT_TRUE(logLines().contains("Bootloader already running"));
    EXPECT_EQ(instructions(Operator::Instruction::General).size(), 1);
}

TEST_F(UpdateRunTest, WithoutASerialNumberTheBackupFailsAndNoBoardIsTouched)
{
    writeFirmware("2.01", "1.21", "1.03");
    instrument().addFault(FaultRule::ignoreTelegram("SER", 3, 2)); // the connect's "SER" only
    ASSERT_TRUE(connect(session));
    markTrace();
    const JobResult result = session.run(Job::update(false));
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(result.stage, Stage::Backup);
    EXPECT_FALSE(QFile::exists(path(u"VarimoSentry_Backup.xml"_s)));
    EXPECT_FALSE(receivedSinceMark().contains("BOT;$"));
}

// Restore Data alone (parameters back, the safety backup first): the fault matrix's restore rows.

// The bootloader start and the transfer alone, on an open port.
class BootloaderAndTransfer : public UpdateRunTest
{
protected:
    void SetUp() override
    {
        openPort();
        images = writeFirmware("2.01", "1.21", "1.03");
        markTrace();
    }
    QStringList images; // CPU Board, Main Board, Measuring Module
    UpdateRun &run = session.reports();
};

TEST_F(BootloaderAndTransfer, WaitingCpuBootloaderIsWokenWithF)
{
    instrument().board(BoardKind::Cpu).mode = BoardMode::Waiting;
    EXPECT_TRUE(run.StartBootloader(BoardKind::Cpu));
    EXPECT_EQ(receivedSinceMark().mid(0, 3), QByteArrayList({"DHR;0", "F", "DHR;0"}));
    EXPECT_TRUE(instructions(Operator::Instruction::CpuUpdateMode).isEmpty());
}

TEST_F(BootloaderAndTransfer, FivePassesThenGiveUp)
{
    instrument().addFault(FaultRule::ignoreTelegram("BOT;$", FaultRule::kForever));
    const qint64 start = clock.elapsedMs();
    EXPECT_FALSE(run.StartBootloader(BoardKind::Main));
    EXPECT_EQ(receivedSinceMark().count("DHR;4"), 5);
    EXPECT_EQ(logLines().last(), QByteArray("Bootloader not started"));
    // 5 s first read, then per pass the waits of whole seconds (3 and 4, each at least one
    // second less by the calendar) and the 2 s read after "BOT;$".
    EXPECT_GT(clock.elapsedMs() - start, 5000 + 5 * (2000 + 3000 + 2000));
}

TEST_F(BootloaderAndTransfer, TransferAbortsOnANakStormOrSilence)
{
    for (const FaultRule &rule : {FaultRule::nakPacket(3, 30), FaultRule::silence(0)}) {
        SCOPED_TRACE(rule.toText().constData());
        instrument().faults().clear();
        op.instruction(Operator::Instruction::MainBoardRestart, {}); // the operator restarts it
        ASSERT_TRUE(run.StartBootloader(BoardKind::Main));
        instrument().addFault(rule);
        EXPECT_FALSE(run.FlashUpdate(path(images[1]), BoardKind::Main));
        EXPECT_EQ(logLines().last(),
                  QByteArray("Error during Flash binary file (XModemWaitTime = 1 ms): "
                             "Number of invalid answers: 10"));
        EXPECT_TRUE(log.isLogging());
    }
}

// The Measuring Module's image has more packets than a packet number counts: it wraps to 0.
TEST_F(BootloaderAndTransfer, ProgressCountsBytesOfTheImage)
{
    QSignalSpy progress(&run, &UpdateRun::transferProgressChanged);
    QSignalSpy events(&run, &UpdateRun::jobEvent);
    ASSERT_TRUE(run.StartBootloader(BoardKind::Meas));
    ASSERT_TRUE(run.FlashUpdate(path(images[2]), BoardKind::Meas));
    ASSERT_EQ(progress.count(), 994); // the start, 992 packets and the end of transmission
    QStringList texts; // the start, the first packet, the end
    for (int i : {0, 1, 993}) {
        const auto p = progress.at(i).at(0).value<TransferProgress>();
        texts << u"%1|%2|%3"_s.arg(p.text).arg(p.bytesSent).arg(qMin(p.remainingMs, 1));
    }
    // The text of a packet counts the bytes before it; a time left is known once packets went.
    EXPECT_EQ(
        texts.join(u'\n').toStdString(),
        "Sending Measuring Module binary file |0|-1\n"
        "Sending Measuring Module binary file (0 of 126976 Bytes transferred)...|128|1\n"
        "Sending Measuring Module binary file (126976 of 126976 Bytes transferred)...|126976|0");
    QList<int> countdown; // its start, its first two seconds and its last
    for (const auto &e : events)
        if (e.at(0).value<JobEvent>().stage == Stage::RestartWait)
            countdown << e.at(0).value<JobEvent>().secondsLeft;
    EXPECT_EQ(countdown.mid(0, 3) + countdown.mid(countdown.size() - 1),
              QList<int>({-1, 20, 19, 1}));
}

} // namespace

// Nothing global holds the state of a run: two instruments on two lines are updated at the same
// time from two threads, each with its own session, and each ends with its new firmware and every
// parameter it had.
TEST(Sessions, TwoInstrumentsAreUpdatedSideBySide)
{
    const auto update = [](SimRig &rig, const QByteArray &mainVersion, bool *ok) {
        rig.writeFirmware("2.00", "1.20", mainVersion);
        const auto before = rig.instrument().board(BoardKind::Main).values;
        *ok = rig.connect(rig.session) && rig.session.run(Job::update(false)).succeeded() &&
            rig.instrument().board(BoardKind::Main).firmware == mainVersion &&
            rig.instrument().board(BoardKind::Main).values == before;
    };
    SimRig rigs[2];
    bool ok[2] = {false, false};
    std::thread a([&] { update(rigs[0], "1.03", &ok[0]); });
    std::thread b([&] { update(rigs[1], "1.04", &ok[1]); });
    a.join();
    b.join();
    EXPECT_TRUE(ok[0] && ok[1]);
}
