#include "UpdaterCli.h"

#include "Console.h"
#include "backup/BackupDiff.h"
#include "backup/cBackup.h"
#include "backup/cXML.h"
#include "link/PortList.h"
#include "link/SerialLine.h"
#include "link/UpdaterError.h"
#include "shell/AppInfo.h"
#include "shell/Settings.h"
#include "update/Session.h"

#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

#ifndef Q_OS_WIN
#include <fcntl.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace {

struct CommandForm
{
    QString name;
    int minArguments;
    int maxArguments;
    bool needsPort;
    int (UpdaterCli::*run)();
};

const CommandForm kCommands[] = {
    {u"ports"_s, 0, 0, false, &UpdaterCli::ports},
    {u"identify"_s, 0, 0, true, &UpdaterCli::identify},
    {u"backup"_s, 0, 1, true, &UpdaterCli::backup},
    {u"restore"_s, 0, 1, true, &UpdaterCli::restore},
    {u"update"_s, 0, 0, true, &UpdaterCli::update},
    {u"flash"_s, 2, 2, true, &UpdaterCli::flash},
    {u"diff"_s, 2, 2, false, &UpdaterCli::diff},
    {u"journal"_s, 0, 0, false, &UpdaterCli::journal},
};

// The switches: what each sets, and the commands it belongs to (none named: every command).
struct Switch
{
    QStringList names;
    bool CliOptions::*value;
    QStringList commands;
};

const Switch kSwitches[] = {
    {{u"yes"_s}, &CliOptions::yes, {}},
    {{u"v"_s, u"verbose"_s}, &CliOptions::verbose, {}},
    {{u"json"_s}, &CliOptions::json, {u"identify"_s}},
    {{u"discard"_s}, &CliOptions::discard, {u"journal"_s}},
    {{u"allow-downgrade"_s}, &CliOptions::allowDowngrade, {u"update"_s}},
    {{u"force"_s}, &CliOptions::force, {u"flash"_s, u"restore"_s}},
    {{u"no-restore"_s}, &CliOptions::noRestore, {u"flash"_s}},
};

QString timeText(qint64 ms)
{
    const qint64 s = (ms + 500) / 1000;
    return u"%1:%2"_s.arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
}

// Whether an existing device is a serial port (a terminal device); true when it cannot be told.
bool isSerialDevice(const QString &device)
{
#ifndef Q_OS_WIN
    if (device.isEmpty() || !QFileInfo::exists(device))
        return true;
    const int fd = ::open(QFile::encodeName(device).constData(), O_RDONLY | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return true;
    const bool terminal = ::isatty(fd) != 0;
    ::close(fd);
    return terminal;
#else
    Q_UNUSED(device);
    return true;
#endif
}

QString helpText()
{
    // The text is kept as a file of its own; the manual page is made from it too.
    QFile file(u":/varimo-updater/help.txt"_s);
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : QString();
}

// Why the command and its options do not fit together, if they do not.
std::optional<QString> misfit(const CliOptions &options, bool dirSet)
{
    const auto form = std::ranges::find(kCommands, options.command, &CommandForm::name);
    if (form == std::end(kCommands))
        return u"unknown command '%1'"_s.arg(options.command);
    const auto count = options.arguments.size();
    if (count < form->minArguments || count > form->maxArguments)
        return u"wrong number of arguments for '%1'"_s.arg(form->name);
    if (form->needsPort && options.port.isEmpty())
        return u"'%1' needs --port PORT"_s.arg(form->name);
    for (const Switch &s : kSwitches) {
        if (options.*s.value && !s.commands.isEmpty() && !s.commands.contains(options.command))
            return u"--%1 belongs to %2"_s.arg(s.names.last(), s.commands.join(u" and "_s));
    }
    if (options.command == u"flash" && !boardFromKey(options.arguments.front()))
        return u"flash: the board is cpu, main or meas, not '%1'"_s.arg(options.arguments.front());
    if (dirSet && options.dir.isEmpty())
        return u"--dir needs a folder"_s;
    return std::nullopt;
}

// Ends a command early with its exit status, once the reason has been told.
struct CommandEnd
{
    int status;
};

} // namespace

std::optional<int> ParseCommandLine(const QStringList &arguments, Console &console,
                                    CliOptions *options)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption dir(u"dir"_s, QString(), u"DIR"_s);
    const QCommandLineOption port(u"port"_s, QString(), u"PORT"_s);
    const QCommandLineOption version(u"version"_s);
    const QCommandLineOption help(QStringList {u"help"_s, u"h"_s});
    parser.addOptions({dir, port, version, help});
    for (const Switch &s : kSwitches)
        parser.addOption(QCommandLineOption(s.names));

    const auto usage = [&](const QString &text) {
        console.error(u"varimo-updater: "_s + text);
        console.error(u"Try 'varimo-updater --help'."_s);
        return std::optional<int>(Exit::Usage);
    };

    if (!parser.parse(arguments))
        return usage(parser.errorText());
    if (parser.isSet(help)) {
        console.print(helpText());
        return Exit::Success;
    }
    if (parser.isSet(version)) {
        console.print(u"varimo-updater "_s + AppInfo::versionText());
        return Exit::Success;
    }

    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty())
        return usage(u"no command given"_s);
    options->command = positional.front();
    options->arguments = positional.mid(1);
    options->dir = parser.value(dir);
    options->port = parser.value(port);
    for (const Switch &s : kSwitches)
        options->*s.value = parser.isSet(s.names.front());
    if (const std::optional<QString> text = misfit(*options, parser.isSet(dir)))
        return usage(*text);
    return std::nullopt;
}

UpdaterCli::UpdaterCli(const CliOptions &options, Console &console, SerialLine &line, Clock &clock,
                       const Workspace::Folders &folders)
    : m_options(options)
    , m_console(console)
    , m_line(line)
    , m_clock(clock)
    , m_folders(folders)
    , m_operator(console, options.yes)
{
    m_console.setReportsToError(options.json);
    m_operator.setInstructionObserver([this] { endTransferDisplay(); });
}

UpdaterCli::~UpdaterCli() = default;

int UpdaterCli::run()
{
    // The command line has been checked: the command is one of the table's.
    const CommandForm &form = *std::ranges::find(kCommands, m_options.command, &CommandForm::name);
    try {
        // The commands without a port start what they need themselves.
        if (!form.needsPort)
            return (this->*form.run)();
        startWorkspace(true);
    } catch (const CommandEnd &end) {
        return end.status;
    }
    int status = Exit::Failed;
    try {
        status = (this->*form.run)();
    } catch (const CommandEnd &end) {
        status = end.status;
    } catch (const UpdaterError &e) {
        m_console.error(e.message());
    }
    // Released at the end; what fails now has been reported already.
    if (m_connected)
        runJob(Job::Kind::Disconnect);
    // Whatever a job left open is closed without a word in the log.
    m_line.close();
    m_workspace->Stop();
    return status;
}

void UpdaterCli::startWorkspace(bool withPort)
{
    Workspace::Folders folders = m_folders;
    if (!m_options.dir.isEmpty()) {
        const QFileInfo info(m_options.dir);
        if (!info.isDir())
            fail(Exit::Usage,
                 (info.exists() ? u"%1 is a file, not a folder."_s
                                : u"The folder %1 does not exist."_s)
                     .arg(m_options.dir));
        folders = {info.absoluteFilePath(), info.absoluteFilePath()};
    }
    m_workspace = std::make_unique<Workspace>(folders);
    m_workspace->Start();
    if (m_options.verbose)
        m_workspace->log().setEcho([this](const QByteArray &bytes) { m_console.echo(bytes); });
    if (m_options.allowDowngrade)
        m_workspace->setAllowDowngrade(true);
    m_session = std::make_unique<Session>(
        m_line, m_clock, m_operator,
        SessionFiles {&m_workspace->ini(), &m_workspace->log(), folders.data, folders.program});
    followSession();
    m_workspace->LoadFirmwareFiles(m_session->fresh());
    m_filesVerdict = m_workspace->CheckUpdateFiles(m_session->current(), m_session->fresh());

    if (!withPort)
        return;
    m_session->comm().setComPort(m_options.port);
    if (m_session->comPort().isEmpty() || !m_session->portValid()) {
        m_console.error(Eligibility::invalidPortText());
        m_workspace->Stop();
        throw CommandEnd {Exit::Usage};
    }
}

void UpdaterCli::fail(int status, const QString &text)
{
    m_console.error(text);
    throw CommandEnd {status};
}

void UpdaterCli::followSession()
{
    const UpdateRun *reports = &m_session->reports();
    connect(reports, &UpdateRun::jobEvent, this, &UpdaterCli::onJobEvent);
    connect(reports, &UpdateRun::currentActionChanged, this, &UpdaterCli::onCurrentAction);
    connect(reports, &UpdateRun::transferProgressChanged, this, &UpdaterCli::onTransferProgress);
    connect(reports, &UpdateRun::statusTextChanged, this,
            [this](const QString &text) { m_console.print(text); });
    connect(reports, &UpdateRun::succeeded, this, [this] {
        endTransferDisplay();
        if (m_job == Job::Kind::Update || m_job == Job::Kind::SingleBoard)
            m_console.print(updateSucceededText());
    });
}

// ---- jobs -------------------------------------------------------------------------------------

JobResult UpdaterCli::runJob(Job::Kind kind, const QString &file, BoardKind board)
{
    Job job;
    job.kind = kind;
    job.port = m_options.port;
    job.file = file;
    job.board = board;
    job.allowDowngrade = m_workspace->AllowDowngrade();
    job.keepParameters = !m_options.noRestore;
    job.force = m_options.force;
    m_job = kind;
    m_errorsShown.clear();
    JobResult result = m_session->run(job);
    endTransferDisplay();
    return result;
}

int UpdaterCli::ended(JobResult result)
{
    const std::optional<OperatorAbort> &abort = m_operator.abort();
    const bool cancelled = abort || result.status == JobResult::Status::Cancelled;
    if (cancelled)
        m_console.error(abort ? abort->message() : result.message);
    else if (!result.message.isEmpty() && !m_errorsShown.contains(result.message))
        m_console.error(result.message);

    // Where it left the instrument: after any update run, and after any cancelled job but a
    // restore (which changes no firmware).
    const bool updateRun =
        m_job == Job::Kind::Update || m_job == Job::Kind::SingleBoard || m_job == Job::Kind::Flash;
    if (result.stage == Stage::Connect) {
        result.stage = Stage::None;
        result.board.reset();
    }
    result.updatedBoards = m_updated + result.updatedBoards;
    if ((updateRun || (cancelled && m_job != Job::Kind::Restore)) &&
        (result.stage != Stage::None || !result.updatedBoards.isEmpty()))
        m_console.error(describeWhereLeft(result));

    if (result.stage == Stage::Restore && result.board && !cancelled)
        m_console.error(
            u"Restoring the parameters of the %1 failed."_s.arg(boardName(*result.board)));
    if (result.refusal == JobResult::Refusal::OtherInstrument)
        m_console.error(u"To restore it all the same: varimo-updater restore --force FILE"_s);
    if (result.refusal != JobResult::Refusal::None)
        return Exit::Usage;
    if (!cancelled)
        return Exit::Failed;
    return abort && abort->reason() == OperatorAbort::Reason::NoTerminal ? Exit::Usage
                                                                         : Exit::Failed;
}

std::optional<int> UpdaterCli::connectInstrument(bool report)
{
    if (report)
        m_console.print(Eligibility::connectingText(m_options.port));
    const JobResult result = runJob(Job::Kind::Connect);
    if (m_operator.abort() || result.status == JobResult::Status::Cancelled)
        return ended(result);
    const Connection::Result &r = m_session->connection();
    m_connected = r.opened;
    if (!r.opened) {
        // The port itself failed (missing device, no permission) or the instrument was silent.
        const bool portFailed = !m_line.errorString().isEmpty();
        if (portFailed && !isSerialDevice(modHelper::devicePathForPort(m_session->comPort())))
            m_console.error(u"%1 is not a serial port."_s.arg(m_options.port));
        else
            m_console.error(r.error.isEmpty() ? Eligibility::noConnectionText() : r.error);
        return portFailed ? Exit::Usage : Exit::Failed;
    }
    if (!r.bootloaderBoard && !r.boardsRead) {
        if (!r.error.isEmpty())
            m_console.error(r.error);
        m_console.error(Eligibility::noConnectionText());
        return Exit::Failed;
    }
    return std::nullopt;
}

void UpdaterCli::connectForParameters(const QString &refusal)
{
    if (const std::optional<int> failed = connectInstrument())
        throw CommandEnd {*failed};
    refuseBootloaderBoard(refusal);
    printBoards(m_session->current());
}

void UpdaterCli::refuseBootloaderBoard(const QString &refusal)
{
    if (const std::optional<BoardKind> board = m_session->connection().bootloaderBoard)
        fail(Exit::Failed,
             u"The %1 is waiting in its bootloader: %2'update' finishes it."_s.arg(
                 boardName(*board), refusal));
}

void UpdaterCli::disconnectInstrument()
{
    if (!m_connected)
        return;
    m_connected = false;
    if (const JobResult result = runJob(Job::Kind::Disconnect); !result.succeeded())
        throw CommandEnd {ended(result)};
}

Eligibility::Verdict UpdaterCli::setConnectionState(bool connected)
{
    Eligibility::Verdict verdict =
        m_workspace->SetConnectionState(m_session->current(), m_session->fresh(), connected,
                                        m_session->connection().portValid, m_session->comPort());
    if (connected && !m_workspace->unsavedPortChoice().isEmpty())
        m_console.error(m_workspace->unsavedPortChoice());
    return verdict;
}

// ---- commands ---------------------------------------------------------------------------------

int UpdaterCli::ports()
{
    const QStringList found = modHelper::EnumerateSerialPorts();
    if (found.isEmpty())
        fail(Exit::Failed, Eligibility::noPortText());
    for (const QString &port : found)
        m_console.print(port);
    return Exit::Success;
}

void UpdaterCli::printJournal()
{
    const Connection::Result &r = m_session->connection();
    if (!r.unfinishedRun.isEmpty())
        m_console.print(r.unfinishedRun + u" 'update' finishes it."_s);
    if (!r.journalProblem.isEmpty())
        m_console.error(u"Run journal not used: "_s + r.journalProblem);
}

int UpdaterCli::journal()
{
    startWorkspace(false);
    const QList<JournalFound> all = RunJournal::findAll(m_workspace->dataDir());
    if (all.isEmpty())
        m_console.print(u"No unfinished update run in %1."_s.arg(m_workspace->dataDir()));
    int status = Exit::Success;
    for (const JournalFound &found : all) {
        m_console.print(found.journal ? found.journal->describe() : found.problem);
        if (m_options.discard && !discardJournal(found.path))
            status = Exit::Failed;
    }
    m_workspace->Stop();
    return status;
}

bool UpdaterCli::discardJournal(const QString &path)
{
    if (!m_options.yes) {
        if (!m_console.inputIsTerminal()) {
            m_console.error(u"Discarding asks for a confirmation: run it at a terminal, or add "
                            "--yes."_s);
            return false;
        }
        m_console.print(u"Discard it? Its boards keep what they have now; finishing is no "
                        "longer offered. Type yes to discard:"_s);
        if (m_console.readLine().value_or(QString()).trimmed() != u"yes") {
            m_console.print(u"Kept."_s);
            return true;
        }
    }
    if (!QFile::remove(path)) {
        m_console.error(u"Cannot remove %1."_s.arg(path));
        return false;
    }
    m_workspace->log().UpdateLog(u"Run journal discarded by the operator: "_s + path);
    m_console.print(u"Discarded %1."_s.arg(path));
    return true;
}

int UpdaterCli::identify()
{
    const std::optional<int> failed = connectInstrument(!m_options.json);
    if (m_operator.abort())
        return *failed;
    const Connection::Result &r = m_session->connection();
    const bool connected = r.connected && !r.bootloaderBoard;
    // Disconnected, the windows forget the versions read; the report still shows them.
    BoardSet current = m_session->current();
    const Eligibility::Verdict verdict = setConnectionState(connected);
    if (connected)
        current = m_session->current();
    if (m_options.json) {
        m_console.writeOut(identifyJson(current, verdict));
    } else if (r.opened) {
        printBoards(current);
        // A connection that failed is the news; the file check would only distract from it.
        if (!failed)
            printVerdict(verdict);
        printJournal();
    }
    if (failed)
        return *failed;
    refuseBootloaderBoard(QString());
    return Exit::Success;
}

QString UpdaterCli::argumentPath(qsizetype i) const
{
    return i < m_options.arguments.size() ? QFileInfo(m_options.arguments.at(i)).absoluteFilePath()
                                          : QString();
}

int UpdaterCli::backup()
{
    const QString file = argumentPath(0);
    if (!file.isEmpty() && !QFileInfo(QFileInfo(file).absolutePath()).isDir())
        fail(Exit::Usage, u"The folder of %1 does not exist."_s.arg(file));
    connectForParameters(u"its parameters cannot be read. "_s);
    // Connected as the windows are: the port is the one offered next time.
    setConnectionState(true);
    // Without a file of its own the session picks this instrument's backup name.
    const JobResult result = runJob(Job::Kind::Backup, file);
    return result.succeeded() ? Exit::Success : ended(result);
}

void UpdaterCli::checkBackupFile(const QString &file)
{
    if (!QFileInfo(file).isFile())
        fail(Exit::Usage, u"No backup file %1."_s.arg(file));
    // The same check as the restore job's, before the port is opened.
    if (const QString error = cBackup::CheckBackupFile(file).error; !error.isEmpty())
        fail(Exit::Usage, error);
}

void UpdaterCli::checkSettings()
{
    // The same check as the session's before a transfer, before the port is opened.
    if (const QString harmful = Settings::read(m_workspace->ini()).harmfulSetting();
        !harmful.isEmpty())
        fail(Exit::Usage, harmful);
}

int UpdaterCli::restore()
{
    QString file = argumentPath(0);
    if (!file.isEmpty())
        checkBackupFile(file);
    connectForParameters(QString());
    if (file.isEmpty()) {
        file = m_workspace->pathFor(m_session->defaultBackupFile(Job::Kind::Restore));
        checkBackupFile(file);
    }
    setConnectionState(true);
    m_console.print(u"Restoring parameters from "_s + file);
    const JobResult result = runJob(Job::Kind::Restore, file);
    if (!result.succeeded())
        return ended(result);
    m_console.print(u"Parameters restored."_s);
    return Exit::Success;
}

int UpdaterCli::update()
{
    if (!m_filesVerdict.message.isEmpty())
        fail(Exit::Usage, m_filesVerdict.message);
    checkSettings();
    if (const std::optional<int> failed = connectInstrument())
        return *failed;
    if (const std::optional<BoardKind> board = m_session->connection().bootloaderBoard)
        updateWaitingBoard(*board);

    const Connection::Result &r = m_session->connection();
    const bool connected = r.connected && !r.bootloaderBoard;
    const Eligibility::Verdict verdict = setConnectionState(connected);
    printBoards(m_session->current());
    // An unfinished run is finished whatever the verdict says of the boards now.
    const bool unfinished = connected && m_session->journal();
    if (!connected ||
        (!unfinished && !verdict.updateEnabled && verdict.kind == Eligibility::eError))
        fail(Exit::Failed, verdict.message);
    printVerdict(verdict);
    printJournal();
    if (!unfinished && !verdict.updateEnabled) // no board needs an update
        return m_updated.isEmpty() ? Exit::NothingToDo : Exit::Success;

    const JobResult result = runJob(Job::Kind::Update);
    if (!result.succeeded())
        return ended(result);
    m_updated += result.updatedBoards;
    return readAgain();
}

// As the windows do: the board waiting in its bootloader is updated on its own first, then the
// instrument is read again.
void UpdaterCli::updateWaitingBoard(BoardKind board)
{
    printBoards(m_session->current());
    m_console.print(
        u"The %1 is waiting in its bootloader: updating it first."_s.arg(boardName(board)));
    const JobResult result = runJob(Job::Kind::SingleBoard, QString(), board);
    if (!result.succeeded())
        throw CommandEnd {ended(result)};
    m_updated = {board};
    m_workspace->CheckUpdateFiles(m_session->current(), m_session->fresh());
    disconnectInstrument();
    if (const std::optional<int> failed = connectInstrument())
        throw CommandEnd {*failed};
}

// As after the windows' update: the files and the instrument are read again.
int UpdaterCli::readAgain()
{
    m_console.print(u"Reading VARIMOsentry again..."_s);
    disconnectInstrument();
    m_workspace->LoadFirmwareFiles(m_session->fresh());
    m_workspace->CheckUpdateFiles(m_session->current(), m_session->fresh());
    if (const std::optional<int> failed = connectInstrument(false)) {
        if (m_operator.abort())
            return *failed;
        fail(Exit::Failed,
             u"The update run succeeded, but VARIMOsentry did not answer afterwards."_s);
    }
    printBoards(m_session->current());
    printVerdict(setConnectionState(m_session->connection().connected));
    return Exit::Success;
}

int UpdaterCli::flash()
{
    const BoardKind board = *boardFromKey(m_options.arguments.at(0));
    const QString file = argumentPath(1);
    const QFileInfo info(file);
    if (!info.isFile() || !info.isReadable())
        fail(Exit::Usage, u"Cannot read the firmware file %1."_s.arg(file));
    checkSettings();
    const qint64 imageSize = qint64(boardFacts(board).packets) * UpdateRun::kPacketDataSize;
    if (info.size() != imageSize) {
        const QString size = u"%1 holds %2 bytes; a %3 image has %4."_s.arg(file)
                                 .arg(info.size())
                                 .arg(boardName(board))
                                 .arg(imageSize);
        if (!m_options.force)
            fail(Exit::Usage, size + u" --force sends it anyway."_s);
        m_console.print(u"Note: "_s + size);
    }

    if (m_options.noRestore) {
        // The session opens the port without greeting: the board may answer nothing but "C".
        m_console.error(u"Warning: no backup and no restore: the %1 comes up with the factory "
                        "parameters of its new firmware."_s.arg(boardName(board)));
    } else {
        connectForParameters(u"its parameters cannot be read. "_s);
    }
    const JobResult result = runJob(Job::Kind::Flash, file, board);
    m_operator.setLineCheck(nullptr, {});
    if (result.succeeded())
        return Exit::Success;
    const int status = ended(result);
    // A port that did not open cannot be used.
    return result.stage == Stage::Connect && !m_operator.abort() ? Exit::Usage : status;
}

int UpdaterCli::diff()
{
    cXML documents[2];
    for (int i = 0; i < 2; ++i) {
        const QString file = argumentPath(i);
        if (!documents[i].OpenXMLDocument(file))
            fail(Exit::Usage, u"%1 is no backup file: %2"_s.arg(file, documents[i].errorString()));
    }
    QList<BackupDiff::Difference> differences;
    try {
        differences = BackupDiff::Compare(documents[0], documents[1]);
    } catch (const UpdaterError &e) {
        fail(Exit::Usage, e.message());
    }
    for (const BackupDiff::Difference &d : differences)
        m_console.print(BackupDiff::Describe(d));
    if (!BackupDiff::SameValues(differences)) {
        const auto values =
            std::ranges::count(differences, false, &BackupDiff::Difference::identity);
        m_console.print(u"%1 values differ."_s.arg(values));
        return Exit::Failed;
    }
    m_console.print(differences.isEmpty()
                        ? u"The backups are the same."_s
                        : u"Every value is the same; only the identity of the boards differs."_s);
    return Exit::Success;
}

// ---- following a job ------------------------------------------------------------------------

void UpdaterCli::onJobEvent(const JobEvent &event)
{
    if (!event.board)
        return;
    // The restart wait counts down below the transfer's last line: on a terminal as the one
    // progress line, otherwise once.
    if (event.stage == Stage::RestartWait && event.secondsLeft >= 0) {
        endTransferDisplay();
        const QString wait = restartWaitText(*event.board, event.secondsLeft);
        if (m_console.outputIsTerminal())
            m_console.progress(wait);
        else if (event.secondsLeft == UpdateRun::kRestartWaitS)
            m_console.print(wait);
    }
    // A board took its firmware: the run moved forward, prompts count afresh.
    if (event.stage == Stage::Restore && m_job != Job::Kind::Restore)
        m_operator.noteProgress();
    // Nothing restarts behind a receiver that has gone away: once the port is open, a vanished
    // port ends a flash at once instead of after the restart wait.
    if (m_job == Job::Kind::Flash)
        m_operator.setLineCheck([this] { return lineGone(); }, m_options.port);
}

void UpdaterCli::onCurrentAction(const QString &text, bool isError)
{
    endTransferDisplay();
    if (!isError) {
        m_console.print(text);
        return;
    }
    // The abort is reported once, at the end, with where it left the instrument.
    if (m_operator.abort() && text == m_operator.abort()->message())
        return;
    m_errorsShown.append(text);
    m_console.error(text);
}

void UpdaterCli::onTransferProgress(const TransferProgress &p)
{
    m_operator.noteProgress();
    m_transfer = p;
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
    const QString device = modHelper::devicePathForPort(m_session->comPort());
    if (!device.isEmpty() && !QFileInfo::exists(device))
        return true;
#endif
    // Otherwise a vanished device shows only when the port is used: a short wait for data asks.
    if (m_line.isOpen())
        m_line.waitForData(1);
    return !m_line.isOpen();
}

// ---- printing -----------------------------------------------------------------------------------

void UpdaterCli::printBoards(const BoardSet &current)
{
    const Connection::Result &r = m_session->connection();
    if (!r.serialNumber.isEmpty())
        m_console.print(u"VARIMOsentry SN "_s + r.serialNumber);
    // Columns of fixed widths, the last one as long as its text.
    const auto row = [](const QStringList &cells) {
        constexpr int kWidths[] = {17, 14, 9, 10, 11, 36};
        QString line;
        for (int i = 0; i < std::ssize(kWidths); ++i)
            line += cells.at(i).leftJustified(kWidths[i]) + u' ';
        return (line + cells.last()).trimmed();
    };
    m_console.print(row({u"Board"_s, u"Name"_s, u"Firmware"_s, u"Build"_s, u"Bootloader"_s,
                         u"Firmware file"_s, u"File version"_s}));
    for (const BoardKind kind : kPanelOrder) {
        const cControler &cur = current[kind];
        const cControler &file = m_session->fresh()[kind];
        const QString fileName = file.BinFileName();
        m_console.print(row({boardName(kind), cur.Name(), cur.Firmware(), cur.Build(),
                             cur.IsInBTLMode() ? u"waiting"_s : u"-"_s,
                             fileName.isEmpty() ? u"-"_s : fileName, file.Firmware()}));
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

QByteArray UpdaterCli::identifyJson(const BoardSet &current,
                                    const Eligibility::Verdict &verdict) const
{
    const Connection::Result &r = m_session->connection();
    QJsonArray boards;
    for (const BoardKind kind : kPanelOrder) {
        const cControler &cur = current[kind];
        const cControler &file = m_session->fresh()[kind];
        const bool willUpdate = r.connected && !cur.Firmware().isEmpty() &&
            Eligibility::JudgeBoard(cur, file, m_workspace->AllowDowngrade()).needsUpdate();
        boards.append(QJsonObject {
            {u"board"_s, QString::fromLatin1(boardFacts(kind).key)},
            {u"title"_s, boardName(kind)},
            {u"name"_s, cur.Name()},
            {u"firmware"_s, cur.Firmware()},
            {u"build"_s, cur.Build()},
            {u"bootloader"_s, cur.IsInBTLMode()},
            {u"file"_s, file.BinFileName()},
            {u"fileFirmware"_s, file.Firmware()},
            {u"fileValid"_s, file.ValidBinFile()},
            {u"willUpdate"_s, willUpdate},
        });
    }
    const QJsonObject object {
        {u"port"_s, m_options.port},
        {u"connected"_s, r.connected && !r.bootloaderBoard},
        {u"boards"_s, boards},
        {u"serialNumber"_s, r.serialNumber},
        {u"backupFile"_s,
         r.backupFileName.isEmpty() ? QString() : m_workspace->pathFor(r.backupFileName)},
        {u"backupExists"_s, r.backupExists},
        {u"updateAvailable"_s, verdict.updateEnabled},
        {u"status"_s, verdict.message},
        {u"statusIsError"_s, verdict.kind == Eligibility::eError},
        {u"error"_s, r.error},
        {u"unfinishedRun"_s, r.unfinishedRun},
        {u"journalProblem"_s, r.journalProblem},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}
