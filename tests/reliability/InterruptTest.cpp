#include "support/SimFixture.h"
#include "update/RunJournal.h"
#include "update/Session.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace {

// The updater is stopped (killed, the computer's power cut): nothing after that point runs, and
// only what is on disk survives.
struct Killed
{
};

struct KillPoint
{
    BoardKind board;
    Stage stage;
    int packet; // Transfer: the packet after which the updater stops; 0 at the stage's start
};

class Interrupt : public ::testing::TestWithParam<KillPoint>, public SimRig
{
protected:
    // A fresh updater on the program folder, connected, with the firmware files read.
    std::unique_ptr<Session> connected()
    {
        auto session = std::make_unique<Session>(sim.line(), clock, op, files());
        if (!session->run(Job::connectTo(u"COM1"_s)).succeeded())
            return {};
        readFirmware(*session);
        return session;
    }
};

TEST_P(Interrupt, AFreshUpdaterFinishesTheRunWithNothingLost)
{
    const KillPoint kill = GetParam();
    writeFirmware("2.01", "1.21", "1.03");
    const InstrumentState before = instrument().state();
    {
        const auto first = connected();
        ASSERT_TRUE(first);
        bool armed = false;
        int packets = 0;
        QObject::connect(first.get(), &Session::jobEvent, [&](const JobEvent &e) {
            armed = e.stage == kill.stage && (e.board == kill.board || kill.stage == Stage::Backup);
            if (armed && kill.packet == 0)
                throw Killed {};
        });
        QObject::connect(first.get(), &Session::transferProgressChanged,
                         [&](const TransferProgress &) {
                             if (armed && ++packets == kill.packet)
                                 throw Killed {};
                         });
        EXPECT_THROW(first->run(Job::update(false)), Killed);
    }
    sim.line().close(); // the killed program's port is closed by the system
    clock.sleepMs(15000); // the operator starts the updater again

    // A fresh updater connects, finishes a board found waiting in its bootloader, connects again
    // and updates.
    const auto session = connected();
    ASSERT_TRUE(session);
    // The journal is written once the backup is made, and tells how far the run got: a board
    // killed after its transfer needs only its parameters, and is not flashed again.
    ASSERT_EQ(session->journal().has_value(), kill.stage != Stage::Backup);
    const RunJournal journal = session->journal().value_or(RunJournal {});
    const bool flashed = kill.stage == Stage::RestartWait || kill.stage == Stage::Restore;
    EXPECT_EQ(journal.describe().contains(boardName(kill.board) + u" flashed with"_s), flashed)
        << journal.describe().toStdString();
    if (const auto waiting = session->connection().bootloaderBoard) {
        const bool othersOpen = std::ranges::any_of(
            journal.boards, [&](const auto &b) { return b.board != *waiting && !b.done; });
        ASSERT_TRUE(session->run(Job::singleBoard(*waiting)).succeeded());
        session->run(Job::disconnect());
        ASSERT_TRUE(session->run(Job::connectTo(u"COM1"_s)).succeeded());
        EXPECT_EQ(session->journal().has_value(), othersOpen); // it goes with its last open board
    }
    EXPECT_TRUE(session->run(Job::update(false)).succeeded())
        << logLines().mid(logLines().size() - 40).join('\n').constData();
    for (const auto &[kind, version] : {std::pair {BoardKind::Cpu, "2.01"},
                                        {BoardKind::Meas, "1.21"},
                                        {BoardKind::Main, "1.03"}}) {
        EXPECT_EQ(instrument().board(kind).firmware, QByteArray(version));
        EXPECT_EQ(instrument().board(kind).values, before.board(kind).values)
            << boardName(kind).toStdString();
    }
    EXPECT_TRUE(QDir(dir.path()).entryList({u"VarimoSentry_Journal_*"_s}).isEmpty());
}

std::vector<KillPoint> killPoints()
{
    std::vector<KillPoint> points {{BoardKind::Main, Stage::Backup, 0}};
    for (const BoardKind board : kUpdateOrder)
        for (const auto &[stage, packet] : {std::pair {Stage::BootloaderStart, 0},
                                            {Stage::Transfer, 0},
                                            {Stage::Transfer, 20},
                                            {Stage::RestartWait, 0},
                                            {Stage::Restore, 0}})
            points.push_back({board, stage, packet});
    return points;
}

INSTANTIATE_TEST_SUITE_P(EveryStageOfEveryBoard, Interrupt, ::testing::ValuesIn(killPoints()),
                         [](const auto &info) { return "case" + std::to_string(info.index); });

// A journal that cannot be trusted is named at connect and never used: the run starts afresh.
TEST(UntrustedJournal, IsReportedAndNotUsed)
{
    // A journal as a run writes it, and ways of spoiling it.
    QTemporaryDir made;
    RunJournal journal;
    journal.path = made.filePath(u"journal.json"_s);
    journal.serialNumber = u"00042"_s;
    journal.backupFile = u"VarimoSentry_Backup_00042.xml"_s;
    journal.boards = {
        {BoardKind::Main, u"FW_MAINBOARD_103_CRC5678.bin"_s, u"1.03"_s, Stage::Restore, false}};
    QString error;
    ASSERT_TRUE(journal.save(&error)) << error.toStdString();
    QFile saved(journal.path);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    const QByteArray valid = saved.readAll();
    const auto spoilt = [&](const char *from, const char *to) {
        return QByteArray(valid).replace(from, to);
    };
    const std::pair<QByteArray, const char *> rows[] = {
        {QByteArray("\x00\xff{not json", 10), "is damaged"},
        {spoilt("varimo-run-journal", "something-else"), "is damaged"},
        {spoilt("\"main\"", "\"top\""), "is damaged"},
        {spoilt("\"restore\"", "\"sideways\""), "is damaged"},
        {spoilt("\"00042\"", "\"00077\""), "belongs to VARIMOsentry SN 00077"},
        {QByteArray(1024 * 1024, ' '), "cannot be read"},
    };
    for (const auto &[content, problem] : rows) {
        SimRig rig;
        QFile file(rig.path(RunJournal::fileNameFor(u"00042"_s)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        Session session(rig.sim.line(), rig.clock, rig.op, rig.files());
        ASSERT_TRUE(session.run(Job::connectTo(u"COM1"_s)).succeeded());
        EXPECT_TRUE(session.connection().journalProblem.contains(QLatin1StringView(problem)))
            << session.connection().journalProblem.toStdString();
        EXPECT_TRUE(session.connection().unfinishedRun.isEmpty());
        EXPECT_FALSE(session.journal());
    }
}

} // namespace
