#include "Session.h"

#include "link/Clock.h"
#include "link/Operator.h"
#include "link/UpdaterError.h"
#include "shell/Eligibility.h"
#include "shell/Settings.h"
#include "shell/cINI.h"
#include "shell/cLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

Session::Session(SerialLine &line, Clock &clock, Operator &op, const SessionFiles &files)
    : m_files(files)
    , m_comm(line, clock, op)
    , m_run(m_comm, clock, op, files, m_current, m_fresh, m_journal)
{
    qRegisterMetaType<JobEvent>();
    qRegisterMetaType<TransferProgress>();
    qRegisterMetaType<JobResult>();
    m_comm.Init(m_files.log);
}

QString Session::defaultBackupFile(Job::Kind kind) const
{
    if (!m_connection.backupFileName.isEmpty())
        return m_connection.backupFileName;
    // Connected without an answer to "SER": the update run has no backup file name, and its
    // backup fails rather than overwrite a file of another instrument.
    if (kind == Job::Kind::Update && m_connection.connected)
        return {};
    const Settings settings = Settings::read(*m_files.ini);
    return kind == Job::Kind::Backup || kind == Job::Kind::Update ? settings.backupFileName
                                                                  : settings.lastBackupFileName;
}

JobResult Session::run(const Job &job)
{
    JobResult result;
    try {
        if (job.kind == Job::Kind::Connect)
            return connectJob(job.port);
        if (job.kind == Job::Kind::Disconnect)
            return disconnectJob();
        if (job.kind == Job::Kind::DiscardJournal)
            return {.status = discardJournal() ? JobResult::Status::Succeeded
                                               : JobResult::Status::Failed};
        result = runJob(job);
    } catch (const UpdaterError &e) {
        result = m_run.failWith(e.message());
    } catch (const OperatorCancel &cancel) {
        const bool instrumentJob =
            job.kind != Job::Kind::Connect && job.kind != Job::Kind::Disconnect;
        result = instrumentJob ? m_run.where() : JobResult();
        result.status = JobResult::Status::Cancelled;
        result.message = cancel.message();
        m_files.log->Setlogging(true);
        m_files.log->UpdateLog(u"ERROR: "_s + cancel.message());
    }
    // The log's indentation stays where the run's last line left it.
    return result;
}

QString Session::safetyBackupFile()
{
    // "VarimoSentry_Backup_00042.xml" ->
    // "VarimoSentry_Backup_00042_BeforeRestore_20260314-104713.xml"
    QString name = defaultBackupFile(Job::Kind::Backup);
    if (name.endsWith(u".xml"_s, Qt::CaseInsensitive))
        name.chop(4);
    return name + u"_BeforeRestore_"_s + m_comm.clock().now().toString(u"yyyyMMdd-HHmmss"_s) +
        u".xml"_s;
}

JobResult Session::runJob(const Job &job)
{
    // A setting that would leave a board stuck in its bootloader stops a run before it begins.
    const bool transfers = job.kind == Job::Kind::Update || job.kind == Job::Kind::SingleBoard ||
        job.kind == Job::Kind::Flash;
    if (const QString harmful = Settings::read(*m_files.ini).harmfulSetting();
        transfers && !harmful.isEmpty())
        return m_run.refuse(JobResult::Refusal::BadInput, harmful);
    const QString backupFile = job.file.isEmpty() ? defaultBackupFile(job.kind) : job.file;
    switch (job.kind) {
    case Job::Kind::Backup:
        return m_run.runBackupOnly(QDir(m_files.dataDir).filePath(backupBesideJournal(backupFile)));
    case Job::Kind::Restore:
        return m_run.runRestoreOnly(backupFile, job.force, safetyBackupFile());
    case Job::Kind::Update:
        return m_run.runFull(backupFile, job.allowDowngrade, job.checkBackup);
    case Job::Kind::SingleBoard:
        return m_run.runSingleBoard(job.board, defaultBackupFile(Job::Kind::Restore));
    case Job::Kind::Flash:
        // As the single-board run: the board's parameters come back from a backup made before.
        return m_run.runFlashOnly(
            job.board, job.file,
            job.keepParameters
                ? QDir(m_files.dataDir).filePath(defaultBackupFile(Job::Kind::Backup))
                : QString());
    default:
        return {};
    }
}

QString Session::backupBesideJournal(const QString &file) const
{
    // The backup an unfinished run works from keeps its name and its values.
    if (!m_journal ||
        QFileInfo(QDir(m_files.dataDir).filePath(file)) !=
            QFileInfo(QDir(m_files.dataDir).filePath(m_journal->backupFile)))
        return file;
    return QString(file).replace(u".xml"_s, u"_after_interrupted_update.xml"_s);
}

Connection::Result Session::ConnectAndIdentify(const QString &portText)
{
    Connection::Result r;
    m_comm.Init(m_files.log);
    m_comm.setComPort(portText);
    r.portValid = m_comm.IsValidPort();
    if (r.portValid)
        r.opened = m_comm.OpenPort();
    if (!r.opened) {
        r.error = m_comm.lastError();
        return r;
    }

    for (const BoardKind kind : kReadOrder) {
        cControler &board = m_current[kind];
        if (board.InitFromDevice(&m_comm, kind))
            continue;
        if (board.IsInBTLMode())
            r.bootloaderBoard = kind;
        else
            r.error = board.LastError();
        return r;
    }
    r.boardsRead = true;

    m_comm.Transceive("DHR;0");
    const QByteArray serialAnswer = m_comm.Transceive("SER");
    if (!serialAnswer.isEmpty()) {
        if (SerialNumberFromAnswer(serialAnswer, &r.serialNumber, &r.error)) {
            // The backup name of the settings with ".xml" replaced by "_" + serial number + ".xml".
            QString name = Settings::read(*m_files.ini).backupFileName;
            r.backupFileName = name.replace(u".xml"_s, u"_"_s + r.serialNumber + u".xml"_s);
            r.backupExists = QFile::exists(QDir(m_files.dataDir).filePath(r.backupFileName));
        } else {
            m_files.log->UpdateLog(r.error);
        }
    }
    r.connected = true;
    return r;
}

JobResult Session::connectJob(const QString &port)
{
    m_run.setSerialNumber(QString());
    try {
        m_connection = ConnectAndIdentify(port);
        m_run.setSerialNumber(m_connection.serialNumber);
    } catch (const UpdaterError &e) {
        m_connection.connected = false;
        m_connection.error = e.message();
        m_files.log->UpdateLog(e.message());
    }
    findJournal();
    findBoardOfTheRunInItsBootloader();
    if (m_connection.connected || m_connection.bootloaderBoard)
        return {.status = JobResult::Status::Succeeded,
                .board = m_connection.bootloaderBoard,
                .stage = Stage::Connect};
    return {.stage = Stage::Connect,
            .message = m_connection.error.isEmpty() ? Eligibility::noConnectionText()
                                                    : m_connection.error};
}

void Session::findJournal()
{
    QString serial = m_connection.serialNumber;
    if (serial.isEmpty())
        serial = m_current[BoardKind::Cpu].SerialNumber();
    JournalFound found = RunJournal::find(m_files.dataDir, serial);
    m_journal = found.journal;
    m_connection.journalProblem = found.problem;
    m_connection.unfinishedRun = m_journal ? m_journal->describe() : QString();
    if (!found.problem.isEmpty())
        m_files.log->UpdateLog(u"Run journal not used: "_s + found.problem);
}

void Session::findBoardOfTheRunInItsBootloader()
{
    // A run stopped during a board's bootloader start or transfer leaves the instrument routing
    // the line to that board's bootloader: it answers whatever it is sent with its "C" requests,
    // so the greeting finds no identity, or a select telegram seems to find another board there.
    if (!m_journal || m_connection.connected)
        return;
    std::optional<BoardKind> started;
    for (const RunJournal::Board &b : std::as_const(m_journal->boards)) {
        if (!b.done && (b.stage == Stage::BootloaderStart || b.stage == Stage::Transfer))
            started = b.board;
    }
    if (!started)
        return;
    if (!m_connection.opened) {
        if (!m_comm.OpenPort(cComm::Greeting::Silent))
            return;
        if (!m_comm.ReadT(kBootloaderListenMs, "C").contains('C')) {
            m_comm.ClosePort();
            return;
        }
        m_connection.opened = true;
        m_connection.error.clear();
    }
    m_connection.bootloaderBoard = started;
    m_files.log->UpdateLog(boardName(*started) +
                           u" of the unfinished run found in its bootloader"_s);
}

bool Session::discardJournal()
{
    const bool removed = !m_journal || m_journal->discard();
    if (m_journal)
        m_files.log->UpdateLog(u"Run journal discarded by the operator: "_s + m_journal->path);
    m_journal.reset();
    m_connection.unfinishedRun.clear();
    return removed;
}

JobResult Session::disconnectJob()
{
    // Errors while releasing the instrument are of no interest: it may be gone.
    // Deselects the boards ("DHR;0", then "KEY;1" when the instrument answered) and closes the
    // port.
    try {
        if (m_comm.IsOpen() && !m_comm.Transceive("DHR;0", kDisconnectTimeoutMs).isEmpty())
            m_comm.Transceive("KEY;1", kDisconnectTimeoutMs);
        m_comm.ClosePort();
    } catch (const UpdaterError &) {
        m_comm.ClosePort();
    }
    return {.status = JobResult::Status::Succeeded};
}
