// The fault matrix: every step of a full run (connect, each backup telegram, the bootloader start
// of each board, packet 1 / middle / last / EOT of each transfer, the restart wait, each restore
// telegram) meets each kind of fault that can strike it, on the in-process instrument and virtual
// time. Each case checks the outcome the run shows, that no board is flashed after a failed
// backup, that a complete backup stays on disk, and that after the operator's recovery every
// parameter holds its value from before. One gtest case is one row (a step group and a fault
// kind); the figures go to <build>/reliability/fault-matrix.md.
#include "FirmwareImage.h"
#include "SimulatedInstrument.h"
#include "backup/cXML.h"
#include "boards/FirmwareFiles.h"
#include "link/UpdaterError.h"
#include "link/cComm.h"
#include "shell/Eligibility.h"
#include "shell/cINI.h"
#include "shell/cLog.h"
#include "support/ScriptedOperator.h"
#include "update/Connection.h"
#include "update/Session.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

enum class Phase { Connect, Backup, Bootloader, Packet, RestartWait, Restore };
enum class Kind { Silence, Menu, Garbage, Drop, NakStorm, Unplug };

const char *phaseName(Phase p)
{
    static const char *names[] = {"connect", "backup telegram", "bootloader start",
                                  "packet",  "restart wait",    "restore telegram"};
    return names[int(p)];
}
const char *kindName(Kind k)
{
    static const char *names[] = {"silence",      "E;03",      "garbage",
                                  "dropped byte", "NAK storm", "unplugged"};
    return names[int(k)];
}

const QByteArray kGarbage = QByteArrayLiteral("#\xB5\xFE?~\x80garbage");
constexpr int kOperatorRounds = 6; // the operator gives up after so many failure dialogs
const QString kBackupName = u"VarimoSentry_Backup_00042.xml"_s;
const QString kNoUpdate = u"No update is possible."_s;

using Values = std::array<QMap<QByteArray, QByteArray>, 3>;
using BackupLists = std::array<QList<QByteArray>, 3>;

// One place in a run where a fault strikes.
struct Step
{
    QString name;
    qint32 board = -1; // cControler kind
    int telegram = -1; // telegrams handled since the operation began before the fault strikes
    QByteArray text; // that telegram
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
BackupLists backupLists(const QString &file)
{
    BackupLists lists;
    cXML xml;
    if (!xml.OpenXMLDocument(file))
        return lists;
    for (qint32 kind : {0, 1, 2}) {
        try {
            xml.GetTelegramsFromXML(kind == 0       ? u"CPUboard"_s
                                        : kind == 1 ? u"Measureboard"_s
                                                    : u"Mainboard"_s,
                                    lists[size_t(kind)]);
        } catch (const UpdaterError &) {
        }
    }
    return lists;
}

// A program folder, the updater's objects and an in-process instrument, prepared as the main
// window prepares a run; the operator does what the dialogs say and, at a failure dialog, mends
// the line (the fault goes, the adapter is plugged in) before resetting the instrument.
struct Bench
{
    // versions: CPU Board, Measuring Module, Main Board files.
    explicit Bench(const std::array<QByteArray, 3> &versions)
    {
        log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
        log.Setlogging(true);
        ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));
        ini.SetValue(u"Settings"_s, u"LogParserTele"_s, u"False"_s);
        sim.line().setPortName(u"sim"_s);
        sim.instrument().addObserver(&watch);
        QObject::connect(
            &session, &Session::currentActionChanged,
            [this](const QString &t, bool error) { actions << (error ? u"!"_s : QString()) + t; });
        QObject::connect(&session, &Session::jobEvent, [this](const JobEvent &e) {
            if (onEvent)
                onEvent(e);
        });
        QObject::connect(&session, &Session::transferProgressChanged,
                         [this](const TransferProgress &) {
                             if (onPacket)
                                 onPacket();
                         });
        op.setReaction([this](const ScriptedOperator::Prompt &p) { react(p); });
        // The images are made once per set of versions and linked into the folder.
        static std::map<std::array<QByteArray, 3>, std::unique_ptr<QTemporaryDir>> made;
        auto &store = made[versions];
        if (!store) {
            store = std::make_unique<QTemporaryDir>();
            FirmwareImage::writeSet(store->path(), {versions[0], "017"}, {versions[1], "4"},
                                    {versions[2], "1"});
        }
        for (const QString &name : QDir(store->path()).entryList(QDir::Files))
            QFile::link(QDir(store->path()).filePath(name), dir.filePath(name));
    }

    Instrument &inst() { return sim.instrument(); }

    void react(const ScriptedOperator::Prompt &p)
    {
        if (p.kind == ScriptedOperator::Prompt::MessageBox) {
            inst().press(PanelKey::MenuClose);
            return;
        }
        if (p.instruction == Operator::Instruction::CpuUpdateMode) {
            inst().press(PanelKey::ResetZero);
            clock.sleepMs(300);
            inst().press(PanelKey::UpdateMode);
            return;
        }
        if (p.instruction == Operator::Instruction::General) {
            general << p.lines;
            if (general.size() > kOperatorRounds)
                throw UpdaterError(u"The operator gives up"_s);
            mend();
        }
        restart();
    }
    void mend()
    {
        inst().faults().clear();
        if (!inst().plugged())
            inst().plug();
    }
    void restart()
    {
        inst().press(PanelKey::ResetZero);
        clock.sleepMs(300);
        inst().press(PanelKey::Power);
        clock.sleepMs(inst().timing().bootTimeMs + 500);
    }

    Connection::Result connect()
    {
        session.run(Job::connectTo(u"COM1"_s));
        return session.connection();
    }
    // Connects and reads the firmware files.
    bool prepare()
    {
        if (!connect().connected)
            return false;
        for (const BoardKind kind : kPanelOrder) {
            const QString pattern = QString::fromLatin1(boardFacts(kind).defaultPattern);
            session.fresh()[kind].InitFromBinFile(
                dir.path(), modHelper::FindNewestFile(dir.path(), pattern), pattern, kind);
        }
        return true;
    }
    bool runJob(const Job &job) { return session.run(job).succeeded(); }
    Values values()
    {
        return {inst().board(BoardKind::Cpu).values, inst().board(BoardKind::Meas).values,
                inst().board(BoardKind::Main).values};
    }
    QString path(const QString &name) const { return dir.filePath(name); }
    QByteArrayList logLines() const
    {
        QFile f(log.path());
        QByteArrayList lines;
        if (f.open(QIODevice::ReadOnly))
            for (const QByteArray &l : f.readAll().split('\n'))
                if (l.size() > 11)
                    lines << l.mid(11).trimmed();
        return lines;
    }

    QTemporaryDir dir;
    VirtualClock clock;
    SimulatedInstrument sim {clock};
    ScriptedOperator op;
    cLog log {&clock};
    cINI ini;
    Session session {sim.line(), clock, op, {&ini, &log, dir.path(), dir.path()}};
    TelegramWatch watch;
    QStringList actions; // "!" before an error text
    QList<QStringList> general; // the failure dialogs' lines
    std::function<void(const JobEvent &)> onEvent;
    std::function<void()> onPacket;
};

// What every row needs once: the telegrams of the connect sequence, of a backup and of a restore,
// and the backup of the default instrument.
struct Reference
{
    QByteArrayList connect, backup, restore;
    QByteArray backupFile;
    BackupLists lists;
    Values values;

    static const Reference &get()
    {
        static const Reference r = [] {
            Reference ref;
            Bench b({"2.00", "1.20", "1.02"});
            ref.values = b.values();
            b.prepare();
            ref.connect = b.watch.texts;
            b.watch.texts.clear();
            b.runJob(Job::update(false));
            ref.backup = b.watch.texts;
            QFile f(b.path(kBackupName));
            f.open(QIODevice::ReadOnly);
            ref.backupFile = f.readAll();
            ref.lists = backupLists(b.path(kBackupName));
            for (BoardKind kind : kAllBoards)
                InstrumentState::resetToFactory(kind, b.inst().board(kind));
            b.watch.texts.clear();
            b.runJob(Job::restore());
            ref.restore = b.watch.texts;
            return ref;
        }();
        return r;
    }
};

qint32 boardOfBackupTelegram(int index)
{
    // Main Board: select, identity, 8 queries, "DHR;0"; Measuring Module: select, identity, 43.
    return qint32(index < 11 ? BoardKind::Main : index < 56 ? BoardKind::Meas : BoardKind::Cpu);
}

QString boardName(qint32 kind)
{
    return ::boardName(BoardKind(kind));
}

int packetsOf(qint32 kind)
{
    return boardFacts(BoardKind(kind)).packets;
}

std::vector<Step> stepsOf(Phase phase)
{
    const Reference &ref = Reference::get();
    std::vector<Step> steps;
    const auto telegrams = [&](const QByteArrayList &list, auto boardOf) {
        for (int i = 0; i < list.size(); ++i)
            if (list[i] != "CEW;1") // the write enable goes with the telegram after it
                steps.push_back({QString::fromLatin1(list[i]), boardOf(i), i, list[i]});
    };
    switch (phase) {
    case Phase::Connect:
        telegrams(ref.connect, [](int) { return -1; });
        break;
    case Phase::Backup:
        telegrams(ref.backup.mid(0, 143), boardOfBackupTelegram);
        break;
    case Phase::Restore: {
        qint32 board = qint32(BoardKind::Main);
        // The restore first backs up the instrument's values (the 143 telegrams of the backup
        // rows); the rows strike the telegrams that write.
        for (int i = 143; i < ref.restore.size(); ++i) {
            if (ref.restore[i].startsWith("DHR;"))
                board = ref.restore[i].mid(4).toInt();
            if (ref.restore[i] != "CEW;1")
                steps.push_back({boardName(board) + u": "_s + QString::fromLatin1(ref.restore[i]),
                                 board, i, ref.restore[i]});
        }
        break;
    }
    default:
        for (const BoardKind board : kUpdateOrder) {
            const qint32 kind = qint32(board);
            const int n = packetsOf(kind);
            if (phase == Phase::Bootloader)
                steps.push_back({boardName(kind), kind, -1, {}, 0});
            else if (phase == Phase::RestartWait)
                steps.push_back({boardName(kind), kind, -1, {}, n + 2}); // after the EOT
            else
                for (int packet : {1, n / 2, n, n + 1})
                    steps.push_back(
                        {boardName(kind) + (packet > n ? u" EOT"_s : u" packet %1"_s.arg(packet)),
                         kind,
                         -1,
                         {},
                         packet});
        }
    }
    return steps;
}

bool applies(Phase phase, Kind kind, const Step &step)
{
    if (kind == Kind::NakStorm)
        return phase == Phase::Packet && step.packet <= packetsOf(step.board);
    // No setup menu while a bootloader owns the line.
    return !(kind == Kind::Menu && phase == Phase::Packet);
}

// The fault itself, struck at the next telegram (or block) the instrument gets.
void strike(Bench &b, Phase phase, Kind kind, const Step &step)
{
    Instrument &inst = b.inst();
    const bool block = phase == Phase::Packet;
    switch (kind) {
    case Kind::Silence:
        inst.addFault(block ? FaultRule::silence() : FaultRule::ignoreTelegram({}, -1));
        break;
    case Kind::Menu:
        inst.addFault(FaultRule::answerInstead({}, "E;03"));
        break;
    case Kind::Garbage:
        inst.addFault(block ? FaultRule::corruptBytes(FaultRule::Direction::Out, 1)
                            : FaultRule::answerInstead({}, kGarbage));
        break;
    case Kind::Drop: // the telegram's last character, or a block's first byte
        inst.addFault(FaultRule::dropBytes(FaultRule::Direction::In,
                                           block ? 1 : qMax<qint64>(1, step.text.size())));
        break;
    case Kind::NakStorm:
        inst.addFault(FaultRule::nakPacket(step.packet, 30));
        break;
    case Kind::Unplug:
        if (block || phase == Phase::RestartWait || phase == Phase::Bootloader)
            inst.unplug();
        else
            inst.addFault(FaultRule::unplugAfterTelegram(1));
        break;
    }
}

struct Outcome
{
    bool passed = true;
    int lost = 0;
    bool silentLoss = false; // a wrong value taken without any error shown
    QStringList why;
    void check(bool ok, const QString &what)
    {
        if (!ok) {
            passed = false;
            why << what;
        }
    }
};

int differences(const Values &a, const Values &b)
{
    int n = 0;
    for (size_t i = 0; i < 3; ++i)
        for (auto it = a[i].begin(); it != a[i].end(); ++it)
            n += b[i].value(it.key()) != it.value();
    return n;
}

// The versions of the files: only the step's board is newer (the Main Board for the backup).
std::array<QByteArray, 3> versionsFor(Phase phase, qint32 board)
{
    std::array<QByteArray, 3> v {"2.00", "1.20", "1.02"};
    const std::array<QByteArray, 3> newer {"2.01", "1.21", "1.03"};
    const qint32 target = phase == Phase::Backup ? qint32(BoardKind::Main) : board;
    if (target >= 0)
        v[size_t(target)] = newer[size_t(target)];
    return v;
}

Outcome runCase(Phase phase, Kind kind, const Step &step)
{
    const Reference &ref = Reference::get();
    Outcome o;
    Bench b(versionsFor(phase, step.board));
    const Values before = b.values();

    if (phase == Phase::Connect) {
        b.watch.armAt = step.telegram;
        b.watch.arm = [&] { strike(b, phase, kind, step); };
        if (step.telegram == 0)
            std::exchange(b.watch.arm, {})();
        const Connection::Result r = b.connect();
        b.mend();
        o.check(!r.connected || r.boardsRead, u"connected without the boards"_s);
        o.check(b.prepare(), u"no connection after the line was mended"_s);
        o.lost = differences(before, b.values());
        o.check(o.lost == 0, u"parameters changed"_s);
        return o;
    }

    o.check(b.prepare(), u"no connection before the run"_s);
    {
        QFile f(b.path(kBackupName)); // the backup of an earlier run
        f.open(QIODevice::WriteOnly);
        f.write(ref.backupFile);
    }
    if (phase == Phase::Restore)
        for (BoardKind k : kAllBoards) // as the boards are after their flash
            InstrumentState::resetToFactory(k, b.inst().board(k));

    // Arm the fault.
    const auto fire = [&] { strike(b, phase, kind, step); };
    if (step.telegram >= 0) {
        b.watch.handled = 0;
        b.watch.armAt = step.telegram;
        b.watch.arm = fire;
        if (step.telegram == 0)
            std::exchange(b.watch.arm, {})();
    } else {
        const BoardKind target = BoardKind(step.board);
        auto armed = std::make_shared<bool>(false);
        auto packets = std::make_shared<int>(-1);
        const auto once = [armed, fire] {
            if (!std::exchange(*armed, true))
                fire();
        };
        b.onEvent = [=, &step](const JobEvent &e) {
            if (e.board != target)
                return;
            if (phase == Phase::Bootloader && e.stage == Stage::BootloaderStart)
                once();
            if (e.stage == Stage::Transfer && !*armed) {
                *packets = 0;
                if (step.packet == 1)
                    once();
            }
        };
        b.onPacket = [=, &step] {
            if (*packets >= 0 && ++*packets == step.packet - 1)
                once();
        };
    }

    const bool restoreOnly = phase == Phase::Restore;
    const QByteArrayList firmwareBefore = {b.inst().board(BoardKind::Cpu).firmware,
                                           b.inst().board(BoardKind::Meas).firmware,
                                           b.inst().board(BoardKind::Main).firmware};
    const bool result = b.runJob(restoreOnly ? Job::restore() : Job::update(false));
    const QByteArrayList sent = b.watch.texts;
    b.mend();
    const QString lastError = b.actions.isEmpty() ? QString() : b.actions.last();

    if (!restoreOnly) {
        const bool backupOk = b.actions.contains(u"Backup successful completed."_s);
        if (!backupOk) {
            o.check(!result, u"success without a backup"_s);
            o.check(b.general.size() == 1 && b.general[0].value(2) == kNoUpdate &&
                        b.general[0].value(0).startsWith(u"ERROR: Backup "_s) &&
                        b.general[0].value(3) == u"Check connection to VARIMOsentry."_s,
                    u"backup failure dialog"_s);
            o.check(lastError ==
                        u"!"_s + b.general.value(0).value(0) + u"\r\n"_s +
                            b.general.value(0).value(1),
                    u"backup failure text"_s);
            for (const char *t : {"DHR;3", "DHR;4", "BOT;$", "F"})
                o.check(!sent.contains(t), u"a bootloader was started after a failed backup"_s);
            o.check(backupLists(b.path(kBackupName)) == ref.lists,
                    u"the previous backup was not kept"_s);
        } else {
            o.silentLoss = backupLists(b.path(kBackupName)) != ref.lists;
            if (result) {
                const qint32 target = phase == Phase::Backup ? qint32(BoardKind::Main) : step.board;
                o.check(b.inst().board(BoardKind(target)).firmware ==
                            versionsFor(phase, step.board)[size_t(target)],
                        u"success without the new firmware"_s);
            } else {
                o.check(b.logLines().contains("Failed"), u"no \"Failed\" in the log"_s);
                o.check(lastError.startsWith(u"!"_s), u"no error shown"_s);
            }
        }
        for (qint32 later : {1, 0}) // boards after the Main Board keep their firmware
            if (phase == Phase::Backup)
                o.check(b.inst().board(BoardKind(later)).firmware == firmwareBefore[later],
                        u"a board was flashed that did not need it"_s);
        if (!result && backupOk) {
            // The operator restores the parameters, as the failure dialog says.
            o.check(b.connect().connected, u"no connection after the run"_s);
            // A backup that took a wrong value may refuse to go back.
            o.check(b.runJob(Job::restore()) || o.silentLoss, u"Restore Data failed"_s);
        }
    } else {
        if (!result) {
            o.check(b.general.size() == 1 &&
                        b.general[0].value(3) ==
                            u"Try again to restore parameters with Restore Data - button."_s,
                    u"restore failure dialog"_s);
            o.check(lastError ==
                        u"!"_s + b.general.value(0).value(0) + u"\r\n"_s +
                            b.general.value(0).value(1),
                    u"restore failure text"_s);
            o.check(b.connect().connected, u"no connection after the run"_s);
            o.check(b.runJob(Job::restore()), u"Restore Data failed"_s);
        }
    }
    o.lost = differences(before, b.values());
    // A restore that reported success leaves the operator nothing to do.
    o.silentLoss = o.silentLoss || (restoreOnly && result);
    if (o.lost > 0 && !o.silentLoss)
        o.check(false, u"%1 parameters lost"_s.arg(o.lost));
    return o;
}

struct Row
{
    Phase phase;
    Kind kind;
};

void PrintTo(const Row &row, std::ostream *os)
{
    *os << phaseName(row.phase) << " / " << kindName(row.kind);
}

class FaultMatrix : public ::testing::TestWithParam<Row>
{
};

// Figures of each row go into a file of their own; the summary is made from all present.
void writeFigures(const Row &row, int cases, int passed, int lost, const QString &note)
{
    QDir dir(QStringLiteral(VARIMO_TEST_BINARY_DIR "/reliability/fault-matrix"));
    dir.mkpath(u"."_s);
    QFile f(dir.filePath(u"%1-%2.txt"_s.arg(int(row.phase)).arg(int(row.kind))));
    if (f.open(QIODevice::WriteOnly))
        f.write(QByteArray(phaseName(row.phase)) + '\t' + kindName(row.kind) + '\t' +
                QByteArray::number(cases) + '\t' + QByteArray::number(passed) + '\t' +
                QByteArray::number(lost) + '\t' + note.toUtf8() + '\n');
    f.close();
    QByteArray table = "| step | fault | cases | passed | parameters lost | note |\n"
                       "|---|---|---|---|---|---|\n";
    int total[3] = {0, 0, 0};
    QStringList files = dir.entryList({u"*.txt"_s}, QDir::Files, QDir::Name);
    for (const QString &name : files) {
        QFile part(dir.filePath(name));
        if (!part.open(QIODevice::ReadOnly))
            continue;
        const QByteArrayList fields = part.readAll().trimmed().split('\t');
        if (fields.size() < 5)
            continue;
        table += "| " + fields.join(" | ") + (fields.size() == 5 ? " | |\n" : " |\n");
        for (int i = 0; i < 3; ++i)
            total[i] += fields[2 + i].toInt();
    }
    table += "| **all** | | " + QByteArray::number(total[0]) + " | " +
        QByteArray::number(total[1]) + " | " + QByteArray::number(total[2]) + " | |\n";
    QFile summary(dir.filePath(u"../fault-matrix.md"_s));
    if (summary.open(QIODevice::WriteOnly))
        summary.write(table);
}

TEST_P(FaultMatrix, RunEndsAsDesignedAndKeepsEveryParameter)
{
    const Row row = GetParam();
    int cases = 0, passed = 0, lost = 0;
    QStringList notes;
    for (const Step &step : stepsOf(row.phase)) {
        if (!applies(row.phase, row.kind, step))
            continue;
        ++cases;
        const Outcome o = runCase(row.phase, row.kind, step);
        passed += o.passed;
        lost += o.lost;
        if (o.silentLoss && o.lost > 0)
            notes << step.name;
        EXPECT_TRUE(o.passed) << phaseName(row.phase) << " / " << kindName(row.kind) << " at "
                              << step.name.toStdString() << ": "
                              << o.why.join(u", "_s).toStdString();
    }
    // Cases where a wrong value was taken without any error shown (the echo checks compare the
    // command only): named, for the report.
    const QString note = notes.isEmpty()
        ? QString()
        : u"%1 cases took a wrong value without an error: %2"_s.arg(notes.size())
              .arg(notes.mid(0, 6).join(u", "_s) + (notes.size() > 6 ? u", ..."_s : QString()));
    writeFigures(row, cases, passed, lost, note);
}

std::vector<Row> allRows()
{
    std::vector<Row> rows;
    for (Phase p : {Phase::Connect, Phase::Backup, Phase::Bootloader, Phase::Packet,
                    Phase::RestartWait, Phase::Restore})
        for (Kind k :
             {Kind::Silence, Kind::Menu, Kind::Garbage, Kind::Drop, Kind::NakStorm, Kind::Unplug})
            if ((k != Kind::NakStorm || p == Phase::Packet) &&
                (k != Kind::Menu || p != Phase::Packet))
                rows.push_back({p, k});
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Steps, FaultMatrix, ::testing::ValuesIn(allRows()),
                         [](const ::testing::TestParamInfo<Row> &info) {
                             std::string name = std::string(phaseName(info.param.phase)) + "_" +
                                 kindName(info.param.kind);
                             for (char &c : name)
                                 if (!isalnum(static_cast<unsigned char>(c)))
                                     c = '_';
                             return name;
                         });

} // namespace
