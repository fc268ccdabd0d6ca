// varimo-updater as a program: each command against the simulated instrument (varimo-sim) on a
// pseudo-terminal, with the real clock; the instrument's answer and restart delays are short, the
// updater's own waits are the real ones. Its standard input is never a terminal here; the
// terminal operator's own tests at the end give it one.

#include "Console.h"
#include "TerminalOperator.h"
#include "support/Files.h"
#include "support/Pty.h"
#include "support/SimProcess.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kProgram = QString::fromLocal8Bit(VARIMO_TEST_BINARY_DIR) + u"/cli/varimo-updater"_s;
constexpr int kCommandTimeoutMs = 280000;

struct CliResult
{
    int exitCode = -1;
    QString out;
    QString err;
    QString all() const { return out + err; }
};

void expectLines(const QString &text, const QStringList &lines)
{
    for (const QString &line : lines)
        EXPECT_TRUE(text.contains(line)) << qPrintable(line + u"\n"_s + text);
}

// Runs varimo-updater to its end (standard input is /dev/null), expecting its exit status and
// these lines on standard output.
CliResult expectRun(const QStringList &arguments, int status, const QStringList &lines = {})
{
    QProcess p; // killed when it goes, should it still run
    p.setStandardInputFile(QProcess::nullDevice());
    p.start(kProgram, arguments);
    const bool finished = p.waitForFinished(kCommandTimeoutMs);
    EXPECT_TRUE(finished) << qPrintable(p.errorString());
    const CliResult r {finished && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                       QString::fromLocal8Bit(p.readAllStandardOutput()),
                       QString::fromLocal8Bit(p.readAllStandardError())};
    EXPECT_EQ(r.exitCode, status) << qPrintable(arguments.join(u' ') + u"\n"_s + r.all());
    expectLines(r.out, lines);
    return r;
}

// The simulated instrument on a pseudo-terminal, unpaced and quick to answer and restart, with
// its auto-operator unless told otherwise.
struct Simulator : SimProcess
{
    explicit Simulator(const QStringList &extra = {}, bool autoOperator = true)
    {
        start(QStringList {u"--baud"_s, u"0"_s, u"--answer-delay"_s, u"5"_s, u"--restart-delay"_s,
                           u"500"_s, u"--operator-delay"_s, u"300"_s} +
              (autoOperator ? QStringList {u"--auto-operator"_s} : QStringList {}) + extra);
    }
};

// Only the Main Board's file is newer than the instrument.
const QStringList kOnlyMainBoardNewer = {u"--cpu-version"_s,  u"2.00"_s, u"--cpu-build"_s,  u"15"_s,
                                         u"--meas-version"_s, u"1.20"_s, u"--meas-build"_s, u"3"_s};

class CliProcess : public ::testing::Test
{
protected:
    // Firmware files one version newer than the instrument's, some pinned to its own versions.
    void makeFirmware(const QStringList &versions = kOnlyMainBoardNewer)
    {
        QProcess p; // quiet: the simulator names each file it writes
        p.start(SimProcess::programPath(),
                QStringList {u"--make-firmware"_s, dir.path()} + versions);
        ASSERT_TRUE(p.waitForFinished(30000) && p.exitCode() == 0)
            << p.readAllStandardError().data();
    }
    // The command on the simulator's port, with the test's program folder.
    QStringList on(const Simulator &sim, const QStringList &command) const
    {
        return QStringList {u"--dir"_s, dir.path(), u"--port"_s, sim.port} + command;
    }
    QString path(const QString &name) const { return dir.filePath(name); }
    QByteArray fileText(const QString &name) const { return contentOf(path(name)); }
    QString writeFile(const QString &name, const QByteArray &bytes)
    {
        return ::writeFile(path(name), bytes);
    }

    QTemporaryDir dir;
};

TEST(CliUsage, MistakesInTheCommandLineEndWithStatusTwo)
{
    const QString missing = QDir::temp().filePath(u"varimo-no-such-file.bin"_s);
    const struct
    {
        QStringList arguments;
        const char *says;
    } cases[] = {
        {{}, "no command given"},
        {{u"frobnicate"_s}, "unknown command"},
        {{u"identify"_s}, "needs --port"},
        {{u"--port"_s, u"/dev/null"_s, u"backup"_s, u"--json"_s}, "--json belongs to identify"},
        {{u"--port"_s, u"/dev/null"_s, u"identify"_s, u"--allow-downgrade"_s}, "belongs to update"},
        {{u"--port"_s, u"/dev/null"_s, u"flash"_s, u"dsp"_s, u"x.bin"_s}, "cpu, main or meas"},
        {{u"diff"_s, u"one.xml"_s}, "wrong number of arguments"},
        {{u"--frequency"_s, u"ports"_s}, "Unknown option"},
        {{u"--port"_s, u"nonsense"_s, u"identify"_s}, "Invalid port - enter valid RS232-port"},
        {{u"--port"_s, kProgram, u"identify"_s}, "is not a serial port"},
        {{u"--port"_s, u"/dev/varimo-no-such-port"_s, u"identify"_s}, "varimo-no-such-port"},
        {{u"--dir"_s, u"/no/such/folder"_s, u"--port"_s, u"/dev/null"_s, u"identify"_s},
         "does not exist"},
        {{u"--dir"_s, kProgram, u"--port"_s, u"/dev/null"_s, u"identify"_s},
         "is a file, not a folder"},
        {{u"--port"_s, u"/dev/null"_s, u"flash"_s, u"main"_s, missing}, "Cannot read"},
        {{u"--port"_s, u"/dev/null"_s, u"flash"_s, u"main"_s, kProgram}, "--force"},
        {{u"--port"_s, u"/dev/null"_s, u"restore"_s, missing}, "No backup file"},
        {{u"diff"_s, missing, missing}, "is no backup file"},
    };
    QTemporaryDir dir; // the log and settings of the cases that get that far
    for (const auto &tc : cases) {
        QStringList arguments = tc.arguments;
        if (!arguments.contains(u"--dir"_s) && arguments.contains(u"--port"_s))
            arguments = QStringList {u"--dir"_s, dir.path()} + arguments;
        expectLines(expectRun(arguments, 2).err, {QString::fromLatin1(tc.says)});
    }
}

// One instrument through identify (as text and as JSON), backup, diff, input a careless or
// hostile user gives (refused with a clear message, no telegram writing a value, the good backup
// kept) and a forced restore.
TEST_F(CliProcess, IdentifyBackupRefusalsAndAForcedRestoreOnOneInstrument)
{
    makeFirmware();
    Simulator sim({u"--state"_s, path(u"instrument.json"_s)});
    const CliResult r =
        expectRun(on(sim, {u"identify"_s}), 0,
                  {u"VARIMOsentry SN 00042"_s, u"VARIMOsentry ready for update"_s,
                   u"VarimoSentry_Backup_00042.xml (not made yet)"_s, u"FW_MAINBOARD_103_CRC"_s});
    EXPECT_TRUE(r.out.contains(QRegularExpression(u"Main Board +Vm2PS +1\\.02 +7 +- +"_s)));
    // The same log and settings as the windows.
    const QByteArray log = fileText(u"VarimoSentry_Updater.txt"_s);
    EXPECT_TRUE(log.contains("Telegram sent : SER\r\n"));
    EXPECT_TRUE(log.contains("Telegram sent : KEY;1\r\n")) << log.right(300).constData();
    EXPECT_TRUE(fileText(u"VarimoSentry_Updater.ini"_s).contains("COMPort=" + sim.port.toLatin1()));

    const CliResult json = expectRun(on(sim, {u"identify"_s, u"--json"_s, u"-v"_s}), 0);
    // -v: every line the log receives, on standard error.
    EXPECT_TRUE(json.err.contains(u" : Telegram sent : KVT\r\n"_s)) << qPrintable(json.err);
    const QJsonObject o = QJsonDocument::fromJson(json.out.toUtf8()).object();
    EXPECT_TRUE(o[u"connected"_s].toBool());
    EXPECT_EQ(o[u"serialNumber"_s].toString(), u"00042"_s);
    EXPECT_EQ(o[u"status"_s].toString(), u"VARIMOsentry ready for update"_s);
    QStringList boards;
    for (const QJsonValue &board : o[u"boards"_s].toArray()) {
        const QJsonObject b = board.toObject();
        boards << b[u"board"_s].toString() + u' ' + b[u"firmware"_s].toString() + u' ' +
                b[u"fileFirmware"_s].toString() +
                (b[u"willUpdate"_s].toBool() ? u" update"_s : u""_s);
    }
    EXPECT_EQ(boards,
              (QStringList {u"cpu 2.00 2.00"_s, u"main 1.02 1.03 update"_s, u"meas 1.20 1.20"_s}));

    expectRun(on(sim, {u"backup"_s}), 0);
    const QByteArray good = fileText(u"VarimoSentry_Backup_00042.xml"_s);
    const QByteArray ch = "<Value Telegram=\"CH\">12.5<";
    ASSERT_TRUE(good.contains(ch) && good.contains(" SerialNumber=\"00042\""));
    const auto variant = [&](const char *name, const QByteArray &from, const QByteArray &to) {
        return writeFile(QString::fromLatin1(name), QByteArray(good).replace(from, to));
    };
    // Another instrument's file with one Main Board value changed: diff tells them apart.
    const QString foreign = writeFile(u"sn77.xml"_s,
                                      QByteArray(good)
                                          .replace(ch, "<Value Telegram=\"CH\">13.5<")
                                          .replace("\"00042\"", "\"00077\""));
    expectRun({u"diff"_s, path(u"VarimoSentry_Backup_00042.xml"_s), foreign}, 1,
              {u"Main Board  Telegram=CH: \"12.5\" -> \"13.5\""_s});

    const QString plain = writeFile(u"plain.txt"_s, "not a port");
    // Arguments (after --dir and --port), the settings file during the case, what the updater
    // says.
    const std::tuple<QStringList, QByteArray, const char *> cases[] = {
        {{u"restore"_s, foreign}, {}, "not from this VARIMOsentry (SN 00042)"},
        {{u"restore"_s,
          variant("inject.xml", ch, "<Value Telegram=\"CH\">1&#13;&#10;CEW;1&#13;&#10;CH;666<")},
         {},
         "control byte 0x0d"},
        {{u"restore"_s,
          variant("long.xml", ch, "<Value Telegram=\"CH\">" + QByteArray(2000, '9') + "<")},
         {},
         "more than the 1024"},
        {{u"update"_s, u"--yes"_s}, "[Settings]\nXModemWaitTime=999999\n", "0 to 1000 ms"},
        {{u"flash"_s, u"main"_s, plain}, "[Settings]\nXModemWaitTime=-5\n", "0 to 1000 ms"},
    };
    const QByteArray settings = fileText(u"VarimoSentry_Updater.ini"_s);
    for (const auto &[arguments, ini, says] : cases) {
        writeFile(u"VarimoSentry_Updater.ini"_s, ini.isEmpty() ? settings : ini);
        expectLines(expectRun(on(sim, arguments), 2).err, {QString::fromLatin1(says)});
        EXPECT_EQ(fileText(u"VarimoSentry_Backup_00042.xml"_s), good) << says;
    }
    for (const char *write :
         {"Telegram sent : CEW;1", "Telegram sent : XUC", "Telegram sent : BOT"})
        EXPECT_FALSE(fileText(u"VarimoSentry_Updater.txt"_s).contains(write)) << write;

    // Forced, the restore first keeps the instrument's own values, then writes the file's.
    writeFile(u"VarimoSentry_Updater.ini"_s, settings);
    expectRun(on(sim, {u"restore"_s, u"--force"_s, foreign}), 0,
              {u"Restoring parameters to CPU Board..."_s});
    EXPECT_EQ(
        QDir(dir.path()).entryList({u"VarimoSentry_Backup_00042_BeforeRestore_*.xml"_s}).size(), 1);

    // The instrument keeps the values written back.
    sim.stop();
    const QJsonObject state = QJsonDocument::fromJson(fileText(u"instrument.json"_s)).object();
    EXPECT_EQ(state[u"boards"_s][u"main"_s][u"values"_s][u"CH"_s].toString(), u"13.5"_s);
}

TEST_F(CliProcess, FlashDeliversTheFileByteExactToAnXmodemReceiver)
{
    QByteArray bytes;
    for (int i = 0; i < 112 * 128; ++i)
        bytes += char((i * 7 + i / 128) & 0xFF); // every byte value, the control bytes too
    const QString image = writeFile(u"image.bin"_s, bytes);

    // rx on one end of a pseudo-terminal pair; the updater opens the other end.
    const QString port = path(u"port"_s);
    const QString received = path(u"received.bin"_s);
    QProcess socat;
    socat.start(
        u"socat"_s,
        {u"pty,raw,echo=0,link="_s + port, u"EXEC:rx -c -X "_s + received + u",pty,raw,echo=0"_s});
    ASSERT_TRUE(socat.waitForStarted());
    for (int i = 0; i < 100 && !QFile::exists(port); ++i)
        QThread::msleep(50);

    // rx takes the file and ends; no board restarts behind it.
    const CliResult r = expectRun({u"--dir"_s, dir.path(), u"--port"_s, port, u"flash"_s,
                                   u"--no-restore"_s, u"main"_s, image},
                                  1);
    socat.waitForFinished(10000);
    expectLines(r.err, {u"Warning: no backup and no restore"_s});
    EXPECT_EQ(fileText(u"received.bin"_s), bytes);
    // rx asked with "C" before anything was sent; whether its last acknowledge arrives before its
    // end closes the line is a race of no interest here.
    EXPECT_TRUE(fileText(u"VarimoSentry_Updater.txt"_s).contains("Bootloader already running"));
}

TEST_F(CliProcess, APromptWithoutTerminalIsAnError)
{
    makeFirmware({});
    Simulator sim({}, false);
    sim.type("menu-open"); // every telegram is answered "E;03" until the menu is closed

    const CliResult r =
        expectRun(on(sim, {u"identify"_s}), 2, {u"Leave VARIMOsentry setup menu and press OK"_s});
    expectLines(r.err, {u"standard input is no terminal"_s});
}

// The Main Board waits in its bootloader, and the instrument is gone half-way through its
// transfer: with --yes the instruction to restart it comes back because the port cannot be opened
// again; after three rounds the run ends, naming the board and where it was left.
TEST_F(CliProcess, AnInstrumentThatIsGoneEndsTheUpdateNamingTheBoardAndItsState)
{
    makeFirmware();
    const QString state =
        writeFile(u"instrument.json"_s,
                  R"({"boards": {"main": {"mode": "bootloader", "imageValid": false}}})");
    Simulator sim({u"--state"_s, state, u"--fault"_s, u"unplug packet=20"_s});

    const CliResult r = expectRun(on(sim, {u"update"_s, u"--yes"_s}), 1,
                                  {u"The Main Board is waiting in its bootloader"_s});
    EXPECT_EQ(r.out.count(u"ERROR: No connection to VARIMOsentry"_s), 3) << qPrintable(r.out);
    expectLines(r.err,
                {u"Cannot send binary file to VARIMOsentry"_s, u"Gave up"_s,
                 u"The Main Board was left in its bootloader"_s});
}

// The updater killed (SIGKILL) once the Main Board has taken its new image, before its
// parameters are written back, and started again by the operator a little later: the second
// update finishes the run from the backup made before the first one, and a third has nothing to
// do; a flash of one board still backs it up and restores it. (scripts/kill-matrix kills it at
// more points.)
TEST_F(CliProcess, AnUpdaterKilledMidRunIsFinishedByTheNextUpdate)
{
    makeFirmware();
    Simulator sim;
    QProcess first;
    first.setStandardInputFile(QProcess::nullDevice());
    first.start(kProgram, on(sim, {u"update"_s, u"--yes"_s}));
    QElapsedTimer waited;
    waited.start();
    while (!fileText(u"VarimoSentry_Updater.txt"_s).contains("Flash binary file finished") &&
           waited.elapsed() < kCommandTimeoutMs)
        QThread::msleep(20);
    first.kill();
    first.waitForFinished();
    const QString killed = QString::fromLocal8Bit(first.readAllStandardOutput());
    expectLines(killed, {u"Backup successful completed."_s, u"Sending Main Board"_s});
    EXPECT_FALSE(killed.contains(u"Starting CPU Board bootloader..."_s));
    EXPECT_TRUE(fileText(u"VarimoSentry_Updater.ini"_s)
                    .contains("LastBackupFileName=VarimoSentry_Backup_00042.xml"));
    const QString before = path(u"before.xml"_s);
    ASSERT_TRUE(QFile::copy(path(u"VarimoSentry_Backup_00042.xml"_s), before));

    expectRun(on(sim, {u"update"_s, u"--yes"_s}), 0,
              {u"Unfinished update of VARIMOsentry SN 00042"_s,
               u"Update of Main Board successfully completed."_s,
               u"Reset VARIMOsentry by pressing RESET & ZERO buttons simultaneously."_s,
               u"Update successfully completed"_s, u"No updates required"_s});
    EXPECT_TRUE(QDir(dir.path()).entryList({u"VarimoSentry_Journal_*"_s}).isEmpty());
    expectRun(on(sim, {u"backup"_s, path(u"after.xml"_s)}), 0);
    expectRun({u"diff"_s, before, path(u"after.xml"_s)}, 0);
    expectRun(on(sim, {u"update"_s, u"--yes"_s}), 3, {u"No updates required"_s});

    // A board flashed on its own is backed up first and restored after.
    const QString image = QDir(dir.path()).entryList({u"FW_MAINBOARD_*.bin"_s}).value(0);
    expectRun(on(sim, {u"flash"_s, u"--yes"_s, u"main"_s, path(image)}), 0,
              {u"Backup successful completed."_s, u"Waiting for the Main Board to restart: 20 s"_s,
               u"Restoring parameters to Main Board..."_s});
}

// The terminal operator on its own.

using Instruction = Operator::Instruction;

std::optional<OperatorAbort::Reason> reasonOf(const std::function<void()> &prompt)
{
    try {
        prompt();
    } catch (const OperatorAbort &e) {
        return e.reason();
    }
    return std::nullopt;
}

// Without a terminal every prompt is an error, the prompts of the clean-up too, shown or not.
// With --yes, a prompt that keeps coming back without the run moving forward is answered kRounds
// times; the next showing ends the run.
TEST(TerminalOperator, WithoutTerminalAPromptIsAnErrorAndYesGivesUpOnTheFourthRound)
{
    // The prompts (i: the instruction, m: a message box, p: progress of the run), --yes, the index
    // of the first prompt that ends the run (-1 for none), how many were shown.
    const std::tuple<const char *, bool, int, int> cases[] = {{"iiipiii", true, -1, 6},
                                                              {"iiimmmi", true, 6, 6},
                                                              {"mmmm", true, 3, 3},
                                                              {"im", false, 0, 1}};
    // The windows' advice names their button; the terminal names the command.
    const QStringList kRestoreFailed = {u"ERROR: Restore failed"_s,
                                        InstructionText::kTryRestoreAgain, u"Continue with OK."_s,
                                        QString(), QString()};
    for (const auto &[prompts, yes, abortsAt, shownCount] : cases) {
        FILE *file = std::tmpfile();
        Console console(file, file, file);
        TerminalOperator op(console, yes);
        int aborted = -1;
        const QByteArray script(prompts);
        for (int i = 0; i < script.size(); ++i) {
            const auto reason = reasonOf([&] {
                if (script[i] == 'i')
                    op.instruction(Instruction::General, kRestoreFailed);
                else if (script[i] == 'm')
                    op.messageBox(u"Leave VARIMOsentry setup menu and press OK"_s);
                else
                    op.noteProgress();
            });
            if (reason) {
                EXPECT_EQ(*reason,
                          yes ? OperatorAbort::Reason::GaveUp : OperatorAbort::Reason::NoTerminal)
                    << prompts;
                aborted = aborted < 0 ? i : aborted;
            }
        }
        EXPECT_EQ(aborted, abortsAt) << prompts;
        EXPECT_EQ(op.promptsShown(), shownCount) << prompts;
        QByteArray shown(4096, 0);
        std::fflush(file);
        std::rewind(file);
        shown.truncate(qsizetype(std::fread(shown.data(), 1, shown.size(), file)));
        EXPECT_EQ(shown.contains("the parameters with 'varimo-updater restore'."), script[0] == 'i')
            << shown.constData();
        std::fclose(file);
    }
}

TEST(TerminalOperator, OnATerminalEnterAnswersAndTheEndOfInputAborts)
{
    PtyPair pty;
    ASSERT_TRUE(pty.isValid());
    FILE *in = std::fopen(pty.slavePath().toLocal8Bit().constData(), "r");
    ASSERT_NE(in, nullptr);
    FILE *out = std::tmpfile();
    {
        Console console(in, out, out);
        ASSERT_TRUE(console.inputIsTerminal());
        TerminalOperator op(console, false);
        ASSERT_TRUE(pty.write("\n"));
        EXPECT_EQ(reasonOf([&] { op.instruction(Instruction::MainBoardRestart, {u"x"_s}); }),
                  std::nullopt);
        pty.closeMaster(); // the terminal went away: the end of the input
        EXPECT_EQ(reasonOf([&] { op.instruction(Instruction::MainBoardRestart, {u"x"_s}); }),
                  OperatorAbort::Reason::EndOfInput);
    }
    std::fclose(in);
    std::fclose(out);
}

} // namespace
