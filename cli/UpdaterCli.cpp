#include "UpdaterCli.h"

#include "Console.h"
#include "backup/BackupDiff.h"
#include "backup/cBackup.h"
#include "backup/cXML.h"
#include "boards/cControler.h"
#include "link/Clock.h"
#include "link/PortList.h"
#include "link/SerialLine.h"
#include "shell/AppInfo.h"
#include "shell/Workspace.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

const QString kSettings = u"Settings"_s;
const QString kNoUpdatesRequired = u"No updates required"_s;

// The order in which the windows' panels show the boards.
constexpr qint32 kPanelOrder[] = {cControler::eCPU, cControler::eMain, cControler::eMeas};

QString boardKey(qint32 kind)
{
    switch (kind) {
    case cControler::eCPU:
        return u"cpu"_s;
    case cControler::eMeas:
        return u"meas"_s;
    default:
        return u"main"_s;
    }
}

std::optional<qint32> boardFromKey(const QString &key)
{
    for (const qint32 kind : kPanelOrder) {
        if (boardKey(kind) == key)
            return kind;
    }
    return std::nullopt;
}

QString boardName(qint32 kind)
{
    return UpdateRun::textsFor(kind).name;
}

struct CommandForm
{
    QString name;
    int minArguments;
    int maxArguments;
    bool needsPort;
};

const CommandForm kCommands[] = {
    {u"ports"_s, 0, 0, false},  {u"identify"_s, 0, 0, true}, {u"backup"_s, 0, 1, true},
    {u"restore"_s, 0, 1, true}, {u"update"_s, 0, 0, true},   {u"flash"_s, 2, 2, true},
    {u"diff"_s, 2, 2, false},
};

QString timeText(qint64 ms)
{
    const qint64 s = (ms + 500) / 1000;
    return u"%1:%2"_s.arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
}

// The text of each packet of a transfer: label + "(" + position + " of " + total + " Bytes
// transferred)...".
const QRegularExpression kPacketText(u"^(.*)\\((\\d+) of (\\d+) Bytes transferred\\)\\.\\.\\.$"_s);

} // namespace

QString HelpText()
{
    return uR"(Usage:
  varimo-updater ports
  varimo-updater [--dir DIR] --port PORT identify [--json]
  varimo-updater [--dir DIR] --port PORT backup [FILE]
  varimo-updater [--dir DIR] --port PORT restore [FILE]
  varimo-updater [--dir DIR] --port PORT update [--allow-downgrade]
  varimo-updater [--dir DIR] --port PORT flash {cpu|main|meas} FILE
  varimo-updater diff BACKUP1 BACKUP2

The terminal front end of the VARIMOsentry Firmware Updater: the same engine, log file,
settings file, firmware files and texts as the windows.

Commands:
  ports       List the serial ports of this computer.
  identify    Connect, read the three boards and the serial number, and print them with the
              firmware files found, the backup file name and the verdict of the update check.
  backup      Read every parameter of the three boards into FILE (default: the backup file name
              formed from the serial number, in the program folder).
  restore     Write every parameter back from FILE (default: that same name).
  update      Run the full update: back up the parameters, then for each board whose firmware
              file is newer (or, with --allow-downgrade, different) start its bootloader, send
              the image, wait for the restart and restore its parameters. A board found waiting
              in its bootloader is updated first.
  flash       Bring one board into its bootloader and send FILE to it, nothing else.
  diff        Compare two backup files board by board (identity and every value, by telegram
              or index) and print each difference.

Options:
  --dir DIR          The folder of the settings file, the log file, the firmware files and
                     the backups. Default, as for the windows: the firmware files beside this
                     program, the rest there too, or in ~/.local/share/VarimoSentry_Updater when
                     this program's folder is not writable.
  --port PORT        The serial port: a device path (/dev/ttyUSB0) or COMn (/dev/ttyS(n-1)).
  --yes              Answer every operator prompt with OK after printing it. A prompt that
                     comes back more than 3 times without the instrument moving on ends the
                     run (exit status 1), naming the board and the state it was left in.
  -v, --verbose      Print the log lines (every telegram) to standard error as they are written.
  --json             identify: print one JSON object instead of the table.
  --allow-downgrade  update: also offer boards whose file is older than the instrument's.
  --version          Print the version.
  --help             Print this text.

Operator prompts (instructions to press keys on the instrument) are printed with their lines
and wait for Enter. Without a terminal on standard input and without --yes a prompt is an error
(exit status 2).

identify --json prints one object with these fields:
  port            the port as given
  connected       true when the port opened, all boards answered and the serial number was read
  boards          an array of three objects, in the order CPU Board, Main Board, Measuring
                  Module:
    board           "cpu", "main" or "meas"
    title           "CPU Board", "Main Board", "Measuring Module"
    name            the board's name from its identity answer ("" when not read)
    firmware        the firmware version on the instrument ("" when not read)
    build           the build text
    bootloader      true when the board was found waiting in its bootloader
    file            the newest firmware file for the board in the program folder ("" if none)
    fileFirmware    the version that file carries, or a reason in angle brackets (<not found>)
    fileValid       true when the file has the board's exact image size
    willUpdate      true when an update run would flash this board
  serialNumber    five digits ("00042"), "" when not read
  backupFile      the full path of this instrument's backup file, "" when not known
  backupExists    true when that file exists
  updateAvailable true when the update check offers an update
  status          the status text of the update check, exactly as the windows show it (lines
                  joined by CR LF)
  statusIsError   true when the windows show that text in red
  error           why the connection failed, when it did ("" otherwise)

Exit status: 0 success; 1 the operation failed (the failure text on standard error); 2 usage
error, or a port or file that cannot be used; 3 nothing to do (no board needs an update).
diff: 0 when both backups hold the same values, 1 when not.
)"_s;
}

std::optional<int> ParseCommandLine(const QStringList &arguments, Console &console,
                                    CliOptions *options)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption dir(u"dir"_s, QString(), u"DIR"_s);
    const QCommandLineOption port(u"port"_s, QString(), u"PORT"_s);
    const QCommandLineOption yes(u"yes"_s);
    const QCommandLineOption verbose(QStringList {u"v"_s, u"verbose"_s});
    const QCommandLineOption json(u"json"_s);
    const QCommandLineOption allowDowngrade(u"allow-downgrade"_s);
    const QCommandLineOption version(u"version"_s);
    const QCommandLineOption help(QStringList {u"help"_s, u"h"_s});
    parser.addOptions({dir, port, yes, verbose, json, allowDowngrade, version, help});

    const auto usage = [&](const QString &text) {
        console.error(u"varimo-updater: "_s + text);
        console.error(u"Try 'varimo-updater --help'."_s);
        return std::optional<int>(eExitUsage);
    };

    if (!parser.parse(arguments))
        return usage(parser.errorText());
    if (parser.isSet(help)) {
        console.print(HelpText());
        return eExitSuccess;
    }
    if (parser.isSet(version)) {
        console.print(u"varimo-updater "_s + AppInfo::versionText());
        return eExitSuccess;
    }

    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty())
        return usage(u"no command given"_s);
    options->command = positional.front();
    options->arguments = positional.mid(1);
    options->dir = parser.value(dir);
    options->port = parser.value(port);
    options->yes = parser.isSet(yes);
    options->verbose = parser.isSet(verbose);
    options->json = parser.isSet(json);
    options->allowDowngrade = parser.isSet(allowDowngrade);

    const CommandForm *form = nullptr;
    for (const CommandForm &c : kCommands) {
        if (c.name == options->command)
            form = &c;
    }
    if (!form)
        return usage(u"unknown command '%1'"_s.arg(options->command));
    const auto count = options->arguments.size();
    if (count < form->minArguments || count > form->maxArguments)
        return usage(u"wrong number of arguments for '%1'"_s.arg(form->name));
    if (form->needsPort && options->port.isEmpty())
        return usage(u"'%1' needs --port PORT"_s.arg(form->name));
    if (options->json && options->command != u"identify")
        return usage(u"--json belongs to identify"_s);
    if (options->allowDowngrade && options->command != u"update")
        return usage(u"--allow-downgrade belongs to update"_s);
    if (options->command == u"flash" && !boardFromKey(options->arguments.front()))
        return usage(
            u"flash: the board is cpu, main or meas, not '%1'"_s.arg(options->arguments.front()));
    if (parser.isSet(dir) && options->dir.isEmpty())
        return usage(u"--dir needs a folder"_s);
    return std::nullopt;
}

UpdaterCli::UpdaterCli(const CliOptions &options, Console &console, SerialLine &line, Clock &clock,
                       const Workspace::Folders &folders)
    : m_options(options)
    , m_console(console)
    , m_line(line)
    , m_folders(folders)
    , m_operator(console, options.yes)
    , m_comm(line, clock, m_operator)
    , m_run(clock, m_operator)
{
    m_console.setReportsToError(options.json);
    connect(&m_run, &UpdateRun::currentActionChanged, this, &UpdaterCli::onCurrentAction);
    connect(&m_run, &UpdateRun::transferProgressChanged, this, &UpdaterCli::onTransferProgress);
    connect(&m_run, &UpdateRun::statusTextChanged, this,
            [this](const QString &text) { m_console.print(text); });
    connect(&m_run, &UpdateRun::succeeded, this, [this] {
        endTransferDisplay();
        if (m_state.board >= 0)
            m_state.finishedBoards.append(boardName(m_state.board));
        m_state = {-1, RunState::eIdle, 0, 0, m_state.finishedBoards};
        m_console.print(u"Update successfully completed"_s);
    });
    m_operator.setInstructionObserver([this](Operator::Instruction kind) {
        endTransferDisplay();
        if (kind == Operator::Instruction::MainBoardRestart)
            m_state.stage = RunState::eRestarted;
    });
}

UpdaterCli::~UpdaterCli() = default;

int UpdaterCli::run()
{
    if (m_options.command == u"ports")
        return ports();
    if (m_options.command == u"diff")
        return diff();

    if (const int status = startWorkspace(); status != eExitSuccess)
        return status;
    int status = eExitFailed;
    try {
        status = runCommand();
    } catch (const OperatorAbort &) {
        status = exitForAbort();
    } catch (const UpdaterError &e) {
        m_console.error(e.message());
        status = eExitFailed;
    }
    try {
        disconnectInstrument();
    } catch (const UpdaterError &) {
        // The instrument is gone or nobody can answer; the port is closed all the same.
        m_line.close();
    }
    m_workspace->Stop();
    return status;
}

int UpdaterCli::runCommand()
{
    const QString &c = m_options.command;
    if (c == u"identify")
        return identify();
    if (c == u"backup")
        return backup();
    if (c == u"restore")
        return restore();
    if (c == u"update")
        return update();
    return flash();
}

int UpdaterCli::startWorkspace()
{
    Workspace::Folders folders = m_folders;
    if (!m_options.dir.isEmpty()) {
        const QFileInfo info(m_options.dir);
        if (!info.isDir()) {
            m_console.error(u"The folder %1 does not exist."_s.arg(m_options.dir));
            return eExitUsage;
        }
        folders = {info.absoluteFilePath(), info.absoluteFilePath()};
    }
    m_workspace = std::make_unique<Workspace>(folders);
    m_workspace->Start();
    if (m_options.verbose)
        m_workspace->log().setEcho([this](const QByteArray &bytes) { m_console.echo(bytes); });
    if (m_options.allowDowngrade)
        m_workspace->setAllowDowngrade(true);
    m_run.Init(&m_workspace->ini(), &m_workspace->log(), folders.data);
    m_comm.Init(&m_workspace->log());
    m_connection = std::make_unique<Connection>(m_comm, m_workspace->ini(), m_workspace->log(),
                                                m_run, folders.data);
    m_workspace->LoadFirmwareFiles(m_run);
    m_filesVerdict = m_workspace->CheckUpdateFiles(m_run);

    m_comm.setComPort(m_options.port);
    if (m_comm.ComPort().isEmpty()) {
        m_console.error(u"Invalid port - enter valid RS232-port"_s);
        m_workspace->Stop();
        return eExitUsage;
    }
    return eExitSuccess;
}

std::optional<int> UpdaterCli::connectInstrument(Connection::Result *result, bool report)
{
    if (report)
        m_console.print(u"Connecting VARIMOsentry to "_s + m_options.port + u"..."_s);
    *result = m_connection->ConnectAndIdentify(m_options.port);
    m_portOpened = result->opened;
    if (!result->opened) {
        // The port itself failed (missing device, no permission) or the instrument was silent.
        const bool portFailed = !m_line.errorString().isEmpty();
        m_console.error(result->error.isEmpty() ? u"ERROR: No connection to VARIMOsentry"_s
                                                : result->error);
        return portFailed ? eExitUsage : eExitFailed;
    }
    if (result->bootloaderBoard < 0 && !result->boardsRead) {
        if (!result->error.isEmpty())
            m_console.error(result->error);
        m_console.error(u"ERROR: No connection to VARIMOsentry"_s);
        return eExitFailed;
    }
    return std::nullopt;
}

void UpdaterCli::disconnectInstrument()
{
    if (!m_portOpened)
        return;
    m_portOpened = false;
    // A run that ended with the port closed (the instrument gone) has nothing left to release.
    if (m_comm.IsOpen())
        m_connection->Disconnect();
}

int UpdaterCli::exitForAbort()
{
    endTransferDisplay();
    const auto &abort = m_operator.abort();
    if (!abort)
        return eExitFailed;
    m_console.error(abort->message());
    if (m_state.stage != RunState::eIdle || !m_state.finishedBoards.isEmpty())
        m_console.error(stateText());
    return abort->reason() == OperatorAbort::eNoTerminal ? eExitUsage : eExitFailed;
}

// ---- commands ---------------------------------------------------------------------------------

int UpdaterCli::ports()
{
    const QStringList found = modHelper::EnumerateSerialPorts();
    if (found.isEmpty()) {
        m_console.error(u"ERROR: No COM port available"_s);
        return eExitFailed;
    }
    for (const QString &port : found)
        m_console.print(port);
    return eExitSuccess;
}

int UpdaterCli::identify()
{
    Connection::Result r;
    const std::optional<int> failed = connectInstrument(&r, !m_options.json);
    const bool connected = r.connected && r.bootloaderBoard < 0;
    // Disconnected, the windows forget the versions read; the report still shows them.
    Boards boards = snapshot();
    const Eligibility::Verdict verdict =
        m_workspace->SetConnectionState(m_run, connected, r.portValid, m_comm.ComPort());
    if (connected)
        boards = snapshot();
    if (m_options.json) {
        m_console.writeOut(identifyJson(r, boards, verdict));
    } else if (r.opened) {
        printBoards(r, boards);
        printVerdict(verdict);
    }
    if (failed)
        return *failed;
    if (r.bootloaderBoard >= 0) {
        m_console.error(u"The %1 is waiting in its bootloader: 'update' finishes it."_s.arg(
            boardName(r.bootloaderBoard)));
        return eExitFailed;
    }
    return eExitSuccess;
}

UpdaterCli::Boards UpdaterCli::snapshot()
{
    Boards boards;
    for (const qint32 kind : kPanelOrder) {
        boards.current[kind] = m_run.current(kind);
        boards.fresh[kind] = m_run.fresh(kind);
    }
    return boards;
}

int UpdaterCli::backup()
{
    QString file;
    if (!m_options.arguments.isEmpty()) {
        file = absolutePath(m_options.arguments.front());
        if (!QFileInfo(QFileInfo(file).absolutePath()).isDir()) {
            m_console.error(u"The folder of %1 does not exist."_s.arg(file));
            return eExitUsage;
        }
    }
    Connection::Result r;
    if (const auto failed = connectInstrument(&r))
        return *failed;
    if (r.bootloaderBoard >= 0) {
        m_console.error(u"The %1 is waiting in its bootloader: its parameters cannot be read. "
                        "'update' finishes it."_s.arg(boardName(r.bootloaderBoard)));
        return eExitFailed;
    }
    printBoards(r, snapshot());
    if (file.isEmpty()) {
        const QString name = !r.backupFileName.isEmpty()
            ? r.backupFileName
            : m_workspace->ini().GetValue(kSettings, u"BackupFileName"_s,
                                          u"VarimoSentry_Backup.xml"_s);
        file = m_workspace->pathFor(name);
    }
    // Connected as the windows are: the port is the one offered next time.
    m_workspace->SetConnectionState(m_run, true, r.portValid, m_comm.ComPort());

    m_state.stage = RunState::eBackup;
    m_console.print(u"Backup VARIMOsentry parameters in "_s + file + u"..."_s);
    cBackup backup;
    backup.Init(&m_comm);
    const bool ok = backup.SecureData(file);
    if (m_operator.abort())
        return exitForAbort();
    m_state.stage = RunState::eIdle;
    if (!ok) {
        m_console.error(backup.CurrAction() + u"\r\n"_s + backup.LastError());
        return eExitFailed;
    }
    m_console.print(u"Backup successful completed."_s);
    return eExitSuccess;
}

int UpdaterCli::restore()
{
    const auto checkFile = [this](const QString &file) -> std::optional<int> {
        if (!QFileInfo(file).isFile()) {
            m_console.error(u"No backup file %1."_s.arg(file));
            return eExitUsage;
        }
        cXML document;
        if (!document.OpenXMLDocument(file)) {
            m_console.error(u"%1 is no backup file: %2"_s.arg(file, document.errorString()));
            return eExitUsage;
        }
        return std::nullopt;
    };

    QString file;
    if (!m_options.arguments.isEmpty()) {
        file = absolutePath(m_options.arguments.front());
        if (const auto bad = checkFile(file))
            return *bad;
    }
    Connection::Result r;
    if (const auto failed = connectInstrument(&r))
        return *failed;
    if (r.bootloaderBoard >= 0) {
        m_console.error(u"The %1 is waiting in its bootloader: 'update' finishes it."_s.arg(
            boardName(r.bootloaderBoard)));
        return eExitFailed;
    }
    printBoards(r, snapshot());
    if (file.isEmpty()) {
        const QString name = !r.backupFileName.isEmpty()
            ? r.backupFileName
            : m_workspace->ini().GetValue(kSettings, u"LastBackupFileName"_s,
                                          u"VarimoSentry_Backup.xml"_s);
        file = m_workspace->pathFor(name);
        if (const auto bad = checkFile(file))
            return *bad;
    }
    m_workspace->SetConnectionState(m_run, true, r.portValid, m_comm.ComPort());
    m_console.print(u"Restoring parameters from "_s + file);
    m_run.setBackupFileName(file);
    if (!runEngine(UpdateRun::eModeRestore, -1))
        return m_operator.abort() ? exitForAbort() : eExitFailed;
    m_console.print(u"Parameters restored."_s);
    return eExitSuccess;
}

int UpdaterCli::update()
{
    if (!m_filesVerdict.message.isEmpty()) {
        m_console.error(m_filesVerdict.message);
        return eExitUsage;
    }
    Connection::Result r;
    if (const auto failed = connectInstrument(&r))
        return *failed;

    bool updatedOne = false;
    if (r.bootloaderBoard >= 0) {
        // As the windows do: the board waiting in its bootloader is updated on its own first,
        // then the instrument is read again.
        const qint32 board = r.bootloaderBoard;
        printBoards(r, snapshot());
        m_console.print(
            u"The %1 is waiting in its bootloader: updating it first."_s.arg(boardName(board)));
        if (!runEngine(UpdateRun::eModeSingleBoard, qint16(board)))
            return m_operator.abort() ? exitForAbort() : eExitFailed;
        updatedOne = true;
        m_workspace->CheckUpdateFiles(m_run);
        disconnectInstrument();
        if (const auto failed = connectInstrument(&r))
            return *failed;
    }

    const bool connected = r.connected && r.bootloaderBoard < 0;
    const Eligibility::Verdict verdict =
        m_workspace->SetConnectionState(m_run, connected, r.portValid, m_comm.ComPort());
    printBoards(r, snapshot());
    if (!connected) {
        m_console.error(verdict.message);
        return eExitFailed;
    }
    if (!verdict.updateEnabled) {
        if (verdict.message == kNoUpdatesRequired) {
            printVerdict(verdict);
            return updatedOne ? eExitSuccess : eExitNothingToDo;
        }
        m_console.error(verdict.message);
        return eExitFailed;
    }
    printVerdict(verdict);

    const bool ok = runEngine(UpdateRun::eModeFull, 0);
    if (!ok)
        return m_operator.abort() ? exitForAbort() : eExitFailed;

    // As after the windows' update: the files and the instrument are read again.
    m_console.print(u"Reading VARIMOsentry again..."_s);
    disconnectInstrument();
    m_workspace->LoadFirmwareFiles(m_run);
    m_workspace->CheckUpdateFiles(m_run);
    if (connectInstrument(&r, false)) {
        m_console.error(u"The update run succeeded, but VARIMOsentry did not answer afterwards."_s);
        return eExitFailed;
    }
    printBoards(r, snapshot());
    printVerdict(
        m_workspace->SetConnectionState(m_run, r.connected, r.portValid, m_comm.ComPort()));
    return eExitSuccess;
}

int UpdaterCli::flash()
{
    const qint32 board = *boardFromKey(m_options.arguments.at(0));
    const QString file = absolutePath(m_options.arguments.at(1));
    const QFileInfo info(file);
    if (!info.isFile() || !info.isReadable()) {
        m_console.error(u"Cannot read the firmware file %1."_s.arg(file));
        return eExitUsage;
    }
    cControler expected;
    expected.setControler(board);
    const qint64 imageSize = qint64(expected.MaxNumOfPackages()) * UpdateRun::kPacketDataSize;
    if (info.size() != imageSize) {
        m_console.print(u"Note: %1 holds %2 bytes; a %3 image has %4."_s.arg(file)
                            .arg(info.size())
                            .arg(boardName(board))
                            .arg(imageSize));
    }

    // The board may be waiting in its bootloader and answer nothing but "C": the port is opened
    // without greeting the instrument.
    if (!m_line.setSettings(QString::fromLatin1(CommText::kLineSettings)) || !m_line.open()) {
        m_console.error(m_line.errorString());
        return eExitUsage;
    }
    m_workspace->log().UpdateLog(m_comm.ComPort() +
                                 u" opened: 57600 Baud, No parity, 8 data bits, 1 stop bit"_s);
    // Nothing restarts behind a receiver that has gone away: a vanished port ends the job at
    // once instead of after the restart wait.
    m_operator.setLineCheck([this] { return lineGone(); }, m_options.port);
    m_run.SetModeAndInitCom(&m_comm, UpdateRun::eModeSingleBoard, qint16(board));

    const UpdateRun::BoardTexts texts = UpdateRun::textsFor(board);
    int status = eExitSuccess;
    try {
        onCurrentAction(texts.start, false);
        logLine(texts.start);
        if (!m_run.StartBootloader(texts.select, texts.bootloader)) {
            onCurrentAction(u"Cannot start bootloader"_s, true);
            status = eExitFailed;
        } else {
            onCurrentAction(texts.transfer, false);
            logLine(texts.transfer);
            if (!m_workspace->ini().GetBoolValue(kSettings, u"LogParserTele"_s, true)) {
                m_workspace->log().UpdateLog(u"Flash binary file...."_s);
                m_workspace->log().Setlogging(false);
            }
            m_run.setTransferWaitMs(
                m_workspace->ini().GetIntValue(kSettings, u"XModemWaitTime"_s, 1));
            if (!m_run.FlashUpdate(file, qint16(board))) {
                onCurrentAction(u"Cannot send binary file to VARIMOsentry"_s, true);
                status = eExitFailed;
            } else {
                onCurrentAction(texts.done, false);
            }
        }
    } catch (const OperatorAbort &) {
        m_workspace->log().Setlogging(true);
        status = exitForAbort();
    }
    endTransferDisplay();
    m_workspace->log().SetTabs(0);
    m_operator.setLineCheck(nullptr, {});
    m_comm.ClosePort();
    m_line.close();
    return status;
}

int UpdaterCli::diff()
{
    cXML documents[2];
    for (int i = 0; i < 2; ++i) {
        const QString file = absolutePath(m_options.arguments.at(i));
        if (!documents[i].OpenXMLDocument(file)) {
            m_console.error(u"%1 is no backup file: %2"_s.arg(file, documents[i].errorString()));
            return eExitUsage;
        }
    }
    QList<BackupDiff::Difference> differences;
    try {
        differences = BackupDiff::Compare(documents[0], documents[1]);
    } catch (const UpdaterError &e) {
        m_console.error(e.message());
        return eExitUsage;
    }
    for (const BackupDiff::Difference &d : differences)
        m_console.print(BackupDiff::Describe(d));
    if (!BackupDiff::SameValues(differences)) {
        int values = 0;
        for (const BackupDiff::Difference &d : differences)
            values += d.identity ? 0 : 1;
        m_console.print(u"%1 values differ."_s.arg(values));
        return eExitFailed;
    }
    m_console.print(differences.isEmpty()
                        ? u"The backups are the same."_s
                        : u"Every value is the same; only the identity of the boards differs."_s);
    return eExitSuccess;
}

// ---- the engine and its reports -------------------------------------------------------------

bool UpdaterCli::runEngine(qint16 mode, qint16 board)
{
    m_workspace->UseFullFirmwarePaths(m_run);
    m_run.SetModeAndInitCom(&m_comm, mode, board);
    const bool ok = m_run.run();
    endTransferDisplay();
    if (!ok && !m_operator.abort() && m_state.stage != RunState::eIdle)
        m_console.error(stateText());
    return ok;
}

void UpdaterCli::onCurrentAction(const QString &text, bool isError)
{
    const QRegularExpressionMatch packet = kPacketText.match(text);
    if (packet.hasMatch() && !isError)
        return; // shown by the progress display
    endTransferDisplay();

    // Follow the run's state from its texts.
    for (const qint32 kind : kPanelOrder) {
        const UpdateRun::BoardTexts texts = UpdateRun::textsFor(kind);
        if (text == texts.start) {
            if (m_state.board >= 0 && m_state.board != kind && m_state.stage >= RunState::eRestore)
                m_state.finishedBoards.append(boardName(m_state.board));
            m_state.board = kind;
            m_state.stage = RunState::eBootloader;
        } else if (text.startsWith(texts.transfer)) {
            m_state.board = kind;
            m_state.stage = RunState::eTransfer;
            m_state.bytesSent = 0;
            m_state.bytesTotal = 0;
        } else if (text.startsWith(texts.done)) {
            m_state.board = kind;
            m_state.stage = RunState::eRestore;
            m_operator.noteProgress();
        }
    }
    if (text.startsWith(u"Backup VARIMOsentry parameters in "_s))
        m_state.stage = m_state.board < 0 ? RunState::eBackup : m_state.stage;
    else if (text == u"Backup successful completed."_s && m_state.stage == RunState::eBackup)
        m_state.stage = RunState::eIdle;

    // The abort is reported once, at the end, with the state it left.
    if (isError && m_operator.abort() && text == m_operator.abort()->message())
        return;
    if (isError)
        m_console.error(text);
    else
        m_console.print(text);
}

void UpdaterCli::onTransferProgress(const TransferProgress &p)
{
    m_operator.noteProgress();
    m_transfer = p;
    m_state.bytesSent = p.bytesSent;
    m_state.bytesTotal = p.bytesTotal;
    if (p.bytesSent >= p.bytesTotal)
        m_state.stage = RunState::eRestart;
    if (!m_console.outputIsTerminal())
        return;
    // A terminal gets a bar, redrawn at most ten times a second.
    const bool last = p.bytesSent >= p.bytesTotal;
    if (!last && m_lastProgressDrawMs >= 0 && p.elapsedMs - m_lastProgressDrawMs < 100)
        return;
    m_lastProgressDrawMs = p.elapsedMs;
    constexpr int kWidth = 30;
    const int filled = p.bytesTotal > 0 ? int(kWidth * p.bytesSent / p.bytesTotal) : 0;
    const double rate = p.elapsedMs > 0 ? p.bytesSent * 1000.0 / p.elapsedMs : 0.0;
    m_console.progress(
        u"[%1%2] %3/%4 bytes  %5 kB/s  %6 left%7"_s
            .arg(QString(filled, u'#'), QString(kWidth - filled, u'.'))
            .arg(p.bytesSent)
            .arg(p.bytesTotal)
            .arg(rate / 1000.0, 0, 'f', 1)
            .arg(p.remainingMs >= 0 ? timeText(p.remainingMs) : u"?"_s)
            .arg(p.packetsRetried > 0 ? u"  %1 retries"_s.arg(p.packetsRetried) : QString()));
}

void UpdaterCli::endTransferDisplay()
{
    if (!m_transfer)
        return;
    const TransferProgress p = *m_transfer;
    m_transfer.reset();
    m_lastProgressDrawMs = -1;
    m_console.endProgress();
    m_console.print(u"%1 of %2 bytes sent in %3 (%4 invalid answers)"_s.arg(p.bytesSent)
                        .arg(p.bytesTotal)
                        .arg(timeText(p.elapsedMs))
                        .arg(p.packetsRetried));
}

bool UpdaterCli::lineGone()
{
#ifndef Q_OS_WIN
    // An unplugged adapter or a closed pseudo-terminal takes its device file with it.
    const QString device = modHelper::devicePathForPort(m_comm.ComPort());
    if (!device.isEmpty() && !QFileInfo::exists(device))
        return true;
#endif
    // Otherwise a vanished device shows only when the port is used: a short wait for data asks.
    if (m_line.isOpen())
        m_line.waitForData(1);
    return !m_line.isOpen();
}

void UpdaterCli::logLine(const QString &text)
{
    cLog &log = m_workspace->log();
    log.SetTabs(0);
    log.UpdateLog(text);
    log.SetTabs(1);
}

QString UpdaterCli::stateText()
{
    QString text;
    if (m_state.board < 0) {
        text = m_state.stage == RunState::eBackup
            ? u"No board was changed: the parameter backup did not finish."_s
            : u"No board was changed."_s;
    } else {
        const QString name = boardName(m_state.board);
        const QString fresh = m_run.fresh(m_state.board).Firmware();
        switch (m_state.stage) {
        case RunState::eBootloader:
            text = u"The %1 was left where its bootloader start stopped: still running its old "
                   "firmware, or waiting in its bootloader."_s.arg(name);
            break;
        case RunState::eTransfer:
            text = u"The %1 was left in its bootloader: the firmware transfer stopped after %2 "
                   "of %3 bytes."_s.arg(name)
                       .arg(m_state.bytesSent)
                       .arg(m_state.bytesTotal);
            break;
        case RunState::eRestart:
            text = u"The %1 was left after receiving its new firmware: its restart was not "
                   "confirmed."_s.arg(name);
            break;
        case RunState::eRestore:
            text = u"The %1 was left running the new firmware %2 without its parameters: "
                   "restore them with 'restore'."_s.arg(name, fresh);
            break;
        case RunState::eRestarted:
            text = u"The %1 was left running the new firmware %2 with its parameters restored; "
                   "its restart was not confirmed."_s.arg(name, fresh);
            break;
        default:
            text = u"The %1 was left untouched."_s.arg(name);
            break;
        }
    }
    if (!m_state.finishedBoards.isEmpty())
        text += u" Updated before: %1."_s.arg(m_state.finishedBoards.join(u", "_s));
    return text;
}

// ---- printing -----------------------------------------------------------------------------------

void UpdaterCli::printBoards(const Connection::Result &r, const Boards &boards)
{
    if (!r.serialNumber.isEmpty())
        m_console.print(u"VARIMOsentry SN "_s + r.serialNumber);
    const auto row = [](const QString &a, const QString &b, const QString &c, const QString &d,
                        const QString &e, const QString &f, const QString &g) {
        return u"%1 %2 %3 %4 %5 %6 %7"_s.arg(a, -17)
            .arg(b, -14)
            .arg(c, -9)
            .arg(d, -10)
            .arg(e, -11)
            .arg(f, -36)
            .arg(g)
            .trimmed();
    };
    m_console.print(row(u"Board"_s, u"Name"_s, u"Firmware"_s, u"Build"_s, u"Bootloader"_s,
                        u"Firmware file"_s, u"File version"_s));
    for (const qint32 kind : kPanelOrder) {
        const cControler &cur = boards.current[kind];
        const cControler &file = boards.fresh[kind];
        const QString fileName = file.BinFileName();
        m_console.print(row(boardName(kind), cur.Name(), cur.Firmware(), cur.Build(),
                            cur.IsInBTLMode() ? u"waiting"_s : u"-"_s,
                            fileName.isEmpty() ? u"-"_s : fileName, file.Firmware()));
    }
    if (!r.backupFileName.isEmpty()) {
        m_console.print(
            u"Backup file: %1 (%2)"_s.arg(m_workspace->pathFor(r.backupFileName),
                                          r.backupExists ? u"exists"_s : u"not made yet"_s));
    }
}

void UpdaterCli::printVerdict(const Eligibility::Verdict &verdict)
{
    if (verdict.kind == Eligibility::eError)
        m_console.error(verdict.message);
    else
        m_console.print(verdict.message);
}

QByteArray UpdaterCli::identifyJson(const Connection::Result &r, const Boards &snapshot,
                                    const Eligibility::Verdict &verdict) const
{
    QJsonArray boards;
    for (const qint32 kind : kPanelOrder) {
        const cControler &cur = snapshot.current[kind];
        const cControler &file = snapshot.fresh[kind];
        boards.append(QJsonObject {
            {u"board"_s, boardKey(kind)},
            {u"title"_s, boardName(kind)},
            {u"name"_s, cur.Name()},
            {u"firmware"_s, cur.Firmware()},
            {u"build"_s, cur.Build()},
            {u"bootloader"_s, cur.IsInBTLMode()},
            {u"file"_s, file.BinFileName()},
            {u"fileFirmware"_s, file.Firmware()},
            {u"fileValid"_s, file.ValidBinFile()},
            {u"willUpdate"_s,
             r.connected && !cur.Firmware().isEmpty() && UpdateRun::NeedsUpdate(cur, file)},
        });
    }
    const QJsonObject object {
        {u"port"_s, m_options.port},
        {u"connected"_s, r.connected && r.bootloaderBoard < 0},
        {u"boards"_s, boards},
        {u"serialNumber"_s, r.serialNumber},
        {u"backupFile"_s,
         r.backupFileName.isEmpty() ? QString() : m_workspace->pathFor(r.backupFileName)},
        {u"backupExists"_s, r.backupExists},
        {u"updateAvailable"_s, verdict.updateEnabled},
        {u"status"_s, verdict.message},
        {u"statusIsError"_s, verdict.kind == Eligibility::eError},
        {u"error"_s, r.error},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

QString UpdaterCli::absolutePath(const QString &path) const
{
    return QFileInfo(path).absoluteFilePath();
}
