// The fault matrix: every step of a full run (connect, each backup telegram, the bootloader start
// of each board, packet 1 / middle / last / EOT of each transfer, the restart wait, each restore
// telegram) meets each kind of fault that can strike it, on the in-process instrument and virtual
// time. Each case checks the outcome the run shows, that no board is flashed after a failed
// backup, that a complete backup stays on disk, and that after the operator's recovery every
// parameter holds its value from before. One gtest case is one row (a step group and a fault
// kind); the figures go to <build>/reliability/fault-matrix.md.
#include "backup/cXML.h"
#include "link/UpdaterError.h"
#include "support/SimFixture.h"

#include <QDir>
#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

enum class Phase { Connect, Backup, Bootloader, Packet, RestartWait, Restore };
enum class Kind { Silence, Menu, Garbage, Drop, NakStorm, Unplug };
const char *const kPhaseNames[] = {"connect", "backup telegram", "bootloader start",
                                   "packet",  "restart wait",    "restore telegram"};
const char *const kKindNames[] = {"silence",      "E;03",      "garbage",
                                  "dropped byte", "NAK storm", "unplugged"};

const QString kBackupName = u"VarimoSentry_Backup_00042.xml"_s;
constexpr int kBackupTelegrams = 143;
using Lists = PerBoard<QList<QByteArray>>;

// One place in a run where a fault strikes.
struct Step
{
    QString name;
    BoardKind board = BoardKind::Main;
    int telegram = -1; // telegrams handled since the operation began before the fault strikes
    qsizetype length = 0; // that telegram's
    int packet = 0; // 1-based block of the board's transfer; the board's packet count + 1 is EOT
};

// Counts the telegrams the instrument handles and arms a fault before the n-th.
struct TelegramWatch : InstrumentObserver
{
    void telegramHandled(const Exchange &e) override
    {
        texts << e.telegram;
        if (++handled == armAt && arm)
            std::exchange(arm, {})();
    }
    QByteArrayList texts;
    int handled = 0;
    int armAt = -1;
    std::function<void()> arm;
};

// The restore telegrams a backup file gives, per board.
Lists backupLists(const QString &file)
{
    Lists lists;
    cXML xml;
    if (xml.OpenXMLDocument(file))
        for (const auto &[kind, name] : {std::pair {BoardKind::Cpu, u"CPUboard"_s},
                                         {BoardKind::Meas, u"Measureboard"_s},
                                         {BoardKind::Main, u"Mainboard"_s}}) {
            try {
                xml.GetTelegramsFromXML(name, lists[kind]);
            } catch (const UpdaterError &) {
            }
        }
    return lists;
}

// The versions of the files: only the target board is newer.
const std::array<QByteArray, 3> kNewVersions {"2.01", "1.21", "1.03"};
std::array<QByteArray, 3> versions(std::optional<BoardKind> target)
{
    std::array<QByteArray, 3> v {"2.00", "1.20", "1.02"};
    if (target)
        v[size_t(*target)] = kNewVersions[size_t(*target)];
    return v;
}

// The rig of SimFixture with its session prepared as the main window prepares a run; the
// operator does what the dialogs say and, at a failure dialog, mends the line (the fault goes, the
// adapter is plugged in) before resetting the instrument.
struct Bench : SimRig
{
    explicit Bench(const std::array<QByteArray, 3> &versions)
    {
        ini.SetValue(u"Settings"_s, u"LogParserTele"_s, u"False"_s);
        sim.line().setPortName(u"sim"_s);
        instrument().addObserver(&watch);
        QObject::connect(
            &session.reports(), &UpdateRun::currentActionChanged,
            [this](const QString &t, bool error) { actions << (error ? u"!"_s : QString()) + t; });
        onFailureDialog = [this](const QStringList &lines) {
            general << lines;
            mend();
        };
        writeFirmware(versions[0], versions[1], versions[2]);
    }

    void mend()
    {
        instrument().faults().clear();
        if (!instrument().plugged())
            instrument().plug();
    }
    bool runJob(const Job &job) { return session.run(job).succeeded(); }

    TelegramWatch watch;
    QStringList actions; // "!" before an error text
    QList<QStringList> general; // the failure dialogs' lines
};

// What every row needs once: the telegrams of the connect sequence, of a backup and of a restore,
// and the backup of the default instrument.
struct Reference
{
    QByteArrayList connect, backup, restore;
    QByteArray backupFile;
    Lists lists;

    static const Reference &get()
    {
        static const Reference r = [] {
            Reference ref;
            Bench b(versions({}));
            b.connect(b.session);
            ref.connect = std::exchange(b.watch.texts, {});
            b.runJob(Job::update(false));
            ref.backup = std::exchange(b.watch.texts, {});
            ref.backupFile = contentOf(b.path(kBackupName));
            ref.lists = backupLists(b.path(kBackupName));
            for (BoardKind kind : kAllBoards)
                InstrumentState::resetToFactory(kind, b.instrument().board(kind));
            b.runJob(Job::restore());
            ref.restore = b.watch.texts;
            return ref;
        }();
        return r;
    }
};

std::vector<Step> stepsOf(Phase phase)
{
    const Reference &ref = Reference::get();
    std::vector<Step> steps;
    if (phase == Phase::Connect || phase == Phase::Backup || phase == Phase::Restore) {
        const QByteArrayList &list = phase == Phase::Connect ? ref.connect
            : phase == Phase::Backup                         ? ref.backup.mid(0, kBackupTelegrams)
                                                             : ref.restore;
        // The restore first backs up the instrument's values; the rows strike the telegrams that
        // write. A write enable goes with the telegram after it.
        BoardKind board = BoardKind::Main;
        for (int i = phase == Phase::Restore ? kBackupTelegrams : 0; i < list.size(); ++i) {
            if (phase == Phase::Restore && list[i].startsWith("DHR;"))
                board = BoardKind(list[i].mid(4).toInt());
            const QString prefix = phase == Phase::Restore ? boardName(board) + u": "_s : QString();
            if (list[i] != "CEW;1")
                steps.push_back({prefix + QString::fromLatin1(list[i]), board, i, list[i].size()});
        }
        return steps;
    }
    for (const BoardKind board : kUpdateOrder) {
        const int n = boardFacts(board).packets;
        if (phase == Phase::Bootloader)
            steps.push_back({boardName(board), board, -1, 0, 0});
        else if (phase == Phase::RestartWait)
            steps.push_back({boardName(board), board, -1, 0, n + 2}); // after the EOT
        else
            for (int packet : {1, n / 2, n, n + 1})
                steps.push_back(
                    {boardName(board) + (packet > n ? u" EOT"_s : u" packet %1"_s.arg(packet)),
                     board, -1, 0, packet});
    }
    return steps;
}

// The fault itself, struck at the next telegram (or block) the instrument gets.
void strike(Bench &b, Phase phase, Kind kind, const Step &step)
{
    Instrument &inst = b.instrument();
    const bool block = phase == Phase::Packet;
    switch (kind) {
    case Kind::Silence:
        return inst.addFault(block ? FaultRule::silence() : FaultRule::ignoreTelegram({}, -1));
    case Kind::Menu:
        return inst.addFault(FaultRule::answerInstead({}, "E;03"));
    case Kind::Garbage:
        return inst.addFault(block ? FaultRule::corruptBytes(FaultRule::Direction::Out, 1)
                                   : FaultRule::answerInstead({}, "#\xB5\xFE?~\x80garbage"));
    case Kind::Drop: // the telegram's last character, or a block's first byte
        return inst.addFault(FaultRule::dropBytes(FaultRule::Direction::In,
                                                  block ? 1 : qMax<qint64>(1, step.length)));
    case Kind::NakStorm:
        return inst.addFault(FaultRule::nakPacket(step.packet, 30));
    case Kind::Unplug:
        if (block || phase == Phase::RestartWait || phase == Phase::Bootloader)
            return inst.unplug();
        return inst.addFault(FaultRule::unplugAfterTelegram(1));
    }
}

// Calls act once: when the board enters the stage (a backup: of any board), or after so many
// transfer progress reports since.
void atStage(Session &session, BoardKind board, Stage stage, int reports,
             const std::function<void()> &act)
{
    struct Count
    {
        int reports = -1; // since the stage began; -1: not yet in it
        bool done = false;
    };
    const auto count = std::make_shared<Count>();
    const auto next = [count, reports, act] {
        if (count->reports >= 0 && count->reports++ == reports && !std::exchange(count->done, true))
            act();
    };
    QObject::connect(&session.reports(), &UpdateRun::jobEvent, [=](const JobEvent &e) {
        if (e.stage == stage && (e.board == board || stage == Stage::Backup)) {
            count->reports = 0;
            next();
        }
    });
    QObject::connect(&session.reports(), &UpdateRun::transferProgressChanged, next);
}

// Arms the fault at the step: before its telegram, or at its board's stage or packet.
void arm(Bench &b, Phase phase, Kind kind, const Step &step)
{
    const auto fire = [&b, phase, kind, step] { strike(b, phase, kind, step); };
    if (step.telegram >= 0) {
        b.watch.handled = 0;
        b.watch.armAt = step.telegram;
        b.watch.arm = fire;
        if (step.telegram == 0)
            std::exchange(b.watch.arm, {})();
        return;
    }
    if (phase == Phase::Bootloader)
        atStage(b.session, step.board, Stage::BootloaderStart, 0, fire);
    else // the packet's block goes after the start report and those of the packets before it
        atStage(b.session, step.board, Stage::Transfer, step.packet - 1, fire);
}

struct Outcome
{
    QStringList why; // the checks that failed
    int lost = 0;
    bool silentLoss = false; // a wrong value taken without any error shown
    void check(bool ok, const QString &what)
    {
        if (!ok)
            why << what;
    }
};

// A value is kept when it reads back as the same bytes or as the same number in another notation:
// "CA;0.250" that lost its last byte on the way is stored as 0.25, which the board echoes as the
// same number, so the restore rightly takes it.
bool sameValue(const QByteArray &before, const QByteArray &after)
{
    bool numbers[2] = {false, false};
    return before == after ||
        (before.toDouble(&numbers[0]) == after.toDouble(&numbers[1]) && numbers[0] && numbers[1]);
}

int differences(const InstrumentState &a, const InstrumentState &b)
{
    int n = 0;
    for (const BoardKind kind : kAllBoards)
        for (auto it = a.board(kind).values.begin(); it != a.board(kind).values.end(); ++it)
            n += !sameValue(it.value(), b.board(kind).values.value(it.key()));
    return n;
}

Outcome runCase(Phase phase, Kind kind, const Step &step)
{
    const Reference &ref = Reference::get();
    const bool restoreOnly = phase == Phase::Restore;
    const std::optional<BoardKind> target = phase == Phase::Connect ? std::nullopt
        : phase == Phase::Backup                                    ? std::optional(BoardKind::Main)
                                                                    : std::optional(step.board);
    Outcome o;
    Bench b(versions(target));
    const InstrumentState before = b.instrument().state();

    if (phase == Phase::Connect) {
        arm(b, phase, kind, step);
        b.connect(b.session);
        const Connection::Result r = b.session.connection();
        b.mend();
        o.check(!r.connected || r.boardsRead, u"connected without the boards"_s);
        o.check(b.connect(b.session), u"no connection after the line was mended"_s);
        o.lost = differences(before, b.instrument().state());
        o.check(o.lost == 0, u"parameters changed"_s);
        return o;
    }

    o.check(b.connect(b.session), u"no connection before the run"_s);
    writeFile(b.path(kBackupName), ref.backupFile); // the backup of an earlier run
    if (restoreOnly)
        for (BoardKind k : kAllBoards) // as the boards are after their flash
            InstrumentState::resetToFactory(k, b.instrument().board(k));
    arm(b, phase, kind, step);

    const bool result = b.runJob(restoreOnly ? Job::restore() : Job::update(false));
    const QByteArrayList sent = b.watch.texts;
    b.mend();
    const QString lastError = b.actions.value(b.actions.size() - 1);
    const QStringList dialog = b.general.value(0);
    const bool backupOk = !restoreOnly && b.actions.contains(u"Backup successful completed."_s);
    if (!result && !backupOk) {
        o.check(b.general.size() == 1, u"not one failure dialog"_s);
        o.check(lastError == u"!"_s + dialog.value(0) + u"\r\n"_s + dialog.value(1),
                u"failure text"_s);
    }
    if (!restoreOnly && !backupOk) {
        o.check(!result, u"success without a backup"_s);
        o.check(dialog.value(0).startsWith(u"ERROR: Backup "_s) &&
                    dialog.value(2) == u"No update is possible."_s &&
                    dialog.value(3) == u"Check connection to VARIMOsentry."_s,
                u"backup failure dialog"_s);
        for (const char *t : {"DHR;3", "DHR;4", "BOT;$", "F"})
            o.check(!sent.contains(t), u"a bootloader was started after a failed backup"_s);
        o.check(backupLists(b.path(kBackupName)) == ref.lists,
                u"the previous backup was not kept"_s);
    } else if (backupOk) {
        o.silentLoss = backupLists(b.path(kBackupName)) != ref.lists;
        if (result) {
            o.check(b.instrument().board(*target).firmware == versions(target)[size_t(*target)],
                    u"success without the new firmware"_s);
            o.check(
                !b.actions.filter(u"Update of %1 successfully completed."_s.arg(boardName(*target)))
                     .isEmpty(),
                u"no success text"_s);
        } else {
            o.check(b.logLines().contains("Failed"), u"no \"Failed\" in the log"_s);
            o.check(lastError.startsWith(u"!"_s), u"no error shown"_s);
        }
    } else if (!result) {
        o.check(dialog.value(3) == u"Try again to restore parameters with Restore Data - button."_s,
                u"restore failure dialog"_s);
    }
    if (!result && (backupOk || restoreOnly)) {
        // The operator restores the parameters, as the failure dialog says; a backup that took a
        // wrong value may refuse to go back.
        o.check(b.connect(b.session), u"no connection after the run"_s);
        o.check(b.runJob(Job::restore()) || o.silentLoss, u"Restore Data failed"_s);
    }
    if (phase == Phase::Backup) // boards after the Main Board keep their firmware
        for (const BoardKind later : {BoardKind::Meas, BoardKind::Cpu})
            o.check(b.instrument().board(later).firmware == before.board(later).firmware,
                    u"a board was flashed that did not need it"_s);
    o.lost = differences(before, b.instrument().state());
    // A restore that reported success leaves the operator nothing to do.
    o.silentLoss = o.silentLoss || (restoreOnly && result);
    o.check(o.lost == 0 || o.silentLoss, u"%1 parameters lost"_s.arg(o.lost));
    return o;
}

// Figures of each row go into a file of their own; the summary is made from all present.
void writeFigures(const QString &file, const QByteArrayList &fields)
{
    QDir dir(QStringLiteral(VARIMO_TEST_BINARY_DIR "/reliability/fault-matrix"));
    dir.mkpath(u"."_s);
    writeFile(dir.filePath(file), fields.join('\t') + '\n');
    QByteArray table = "| step | fault | cases | passed | parameters lost | note |\n"
                       "|---|---|---|---|---|---|\n";
    int total[3] = {0, 0, 0};
    for (const QString &name : dir.entryList({u"*.txt"_s}, QDir::Files, QDir::Name)) {
        const QByteArrayList row = contentOf(dir.filePath(name)).split('\n')[0].split('\t');
        for (int i = 0; i < 3 && row.size() == 6; ++i)
            total[i] += row[2 + i].toInt();
        table += row.size() == 6 ? "| " + row.join(" | ") + " |\n" : QByteArray();
    }
    table += "| **all** | | " + QByteArray::number(total[0]) + " | " +
        QByteArray::number(total[1]) + " | " + QByteArray::number(total[2]) + " | |\n";
    writeFile(dir.filePath(u"../fault-matrix.md"_s), table);
}

using Row = std::pair<Phase, Kind>;

using FaultMatrix = ::testing::TestWithParam<Row>;

TEST_P(FaultMatrix, RunEndsAsDesignedAndKeepsEveryParameter)
{
    const auto [phase, kind] = GetParam();
    const QByteArray row = QByteArray(kPhaseNames[int(phase)]) + '\t' + kKindNames[int(kind)];
    int cases = 0, passed = 0, lost = 0;
    QStringList notes;
    for (const Step &step : stepsOf(phase)) {
        if (kind == Kind::NakStorm && step.packet > boardFacts(step.board).packets)
            continue; // no NAK for an EOT
        ++cases;
        const Outcome o = runCase(phase, kind, step);
        passed += o.why.isEmpty();
        lost += o.lost;
        if (o.silentLoss && o.lost > 0)
            notes << step.name;
        EXPECT_TRUE(o.why.isEmpty()) << row.data() << " at " << step.name.toStdString() << ": "
                                     << o.why.join(u", "_s).toStdString();
    }
    // Cases where a wrong value was taken without any error shown (the echo checks compare the
    // command only): named, for the report.
    const QString note = notes.isEmpty()
        ? QString()
        : u"%1 cases took a wrong value without an error: %2"_s.arg(notes.size())
              .arg(notes.mid(0, 6).join(u", "_s) + (notes.size() > 6 ? u", ..."_s : QString()));
    writeFigures(u"%1-%2.txt"_s.arg(int(phase)).arg(int(kind)),
                 {kPhaseNames[int(phase)], kKindNames[int(kind)], QByteArray::number(cases),
                  QByteArray::number(passed), QByteArray::number(lost), note.toUtf8()});
}

// No NAK storm outside a transfer, no setup menu while a bootloader owns the line.
std::vector<Row> allRows()
{
    std::vector<Row> rows;
    for (int p = 0; p <= int(Phase::Restore); ++p)
        for (int k = 0; k <= int(Kind::Unplug); ++k)
            if ((Kind(k) != Kind::NakStorm || Phase(p) == Phase::Packet) &&
                (Kind(k) != Kind::Menu || Phase(p) != Phase::Packet))
                rows.push_back({Phase(p), Kind(k)});
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Steps, FaultMatrix, ::testing::ValuesIn(allRows()),
                         [](const ::testing::TestParamInfo<Row> &info) {
                             std::string name = std::string(kPhaseNames[int(info.param.first)]) +
                                 "_" + kKindNames[int(info.param.second)];
                             std::ranges::replace_if(
                                 name, [](unsigned char c) { return !isalnum(c); }, '_');
                             return name;
                         });

// The kill matrix: the updater is stopped at each stage of each board, and a fresh one finishes
// the run from its journal.
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

using Interrupt = ::testing::TestWithParam<KillPoint>;

TEST_P(Interrupt, AFreshUpdaterFinishesTheRunWithNothingLost)
{
    const KillPoint kill = GetParam();
    Bench b(kNewVersions);
    const InstrumentState before = b.instrument().state();
    ASSERT_TRUE(b.connect(b.session));
    atStage(b.session, kill.board, kill.stage, kill.packet, [] { throw Killed {}; });
    EXPECT_THROW(b.runJob(Job::update(false)), Killed);
    b.sim.line().close(); // the killed program's port is closed by the system
    b.clock.sleepMs(15000); // the operator starts the updater again

    // A fresh updater connects, finishes a board found waiting in its bootloader, connects again
    // and updates.
    Session session(b.sim.line(), b.clock, b.op, b.files());
    ASSERT_TRUE(b.connect(session));
    // The journal is written once the backup is made, and tells how far the run got: a board
    // killed after its transfer needs only its parameters, and is not flashed again.
    ASSERT_EQ(session.journal().has_value(), kill.stage != Stage::Backup);
    const RunJournal journal = session.journal().value_or(RunJournal {});
    const bool flashed = kill.stage == Stage::RestartWait || kill.stage == Stage::Restore;
    EXPECT_EQ(journal.describe().contains(boardName(kill.board) + u" flashed with"_s), flashed)
        << journal.describe().toStdString();
    if (const auto waiting = session.connection().bootloaderBoard) {
        const bool othersOpen = std::ranges::any_of(
            journal.boards, [&](const auto &b) { return b.board != *waiting && !b.done; });
        ASSERT_TRUE(session.run(Job::singleBoard(*waiting)).succeeded());
        session.run(Job::disconnect());
        ASSERT_TRUE(session.run(Job::connectTo(u"COM1"_s)).succeeded());
        EXPECT_EQ(session.journal().has_value(), othersOpen); // it goes with its last open board
    }
    EXPECT_TRUE(session.run(Job::update(false)).succeeded())
        << b.logLines().mid(b.logLines().size() - 40).join('\n').constData();
    for (const BoardKind kind : kAllBoards) {
        EXPECT_EQ(b.instrument().board(kind).firmware, kNewVersions[size_t(kind)]);
        EXPECT_EQ(b.instrument().board(kind).values, before.board(kind).values)
            << boardName(kind).toStdString();
    }
    EXPECT_TRUE(QDir(b.dir.path()).entryList({u"VarimoSentry_Journal_*"_s}).isEmpty());
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
    journal.backupFile = kBackupName;
    journal.boards = {
        {BoardKind::Main, u"FW_MAINBOARD_103_CRC5678.bin"_s, u"1.03"_s, Stage::Restore, false}};
    QString error;
    ASSERT_TRUE(journal.save(&error)) << error.toStdString();
    const QByteArray valid = contentOf(journal.path);
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
        Bench b(versions({}));
        writeFile(b.path(RunJournal::fileNameFor(u"00042"_s)), content);
        ASSERT_TRUE(b.connect(b.session));
        EXPECT_TRUE(b.session.connection().journalProblem.contains(QLatin1StringView(problem)))
            << b.session.connection().journalProblem.toStdString();
        EXPECT_TRUE(b.session.connection().unfinishedRun.isEmpty());
        EXPECT_FALSE(b.session.journal());
    }
}

} // namespace
