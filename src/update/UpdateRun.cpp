#include "UpdateRun.h"

#include "link/Clock.h"
#include "link/Operator.h"
#include "link/UpdaterError.h"
#include "link/cComm.h"
#include "link/cParser.h"
#include "shell/Eligibility.h"
#include "shell/cINI.h"
#include "shell/cLog.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {
constexpr char kXmodemNak = 0x15;
constexpr char kTestBackupFileName[] = "TESTBackup.xml";
constexpr char kUpdateStatusText[] = "VARIMOsentry firmware update in progress";

QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}
} // namespace

UpdateRun::UpdateRun(cComm &comm, Clock &clock, Operator &op, const SessionFiles &files,
                     BoardSet &current, BoardSet &fresh, std::optional<RunJournal> &journal,
                     QObject *parent)
    : QObject(parent)
    , m_comm(comm)
    , m_clock(clock)
    , m_operator(op)
    , m_files(files)
    , m_current(current)
    , m_fresh(fresh)
    , m_journal(journal)
{
    m_backup.Init(&m_comm);
}

void UpdateRun::begin(const QString &statusText)
{
    m_result = JobResult();
    m_settings = Settings::read(*m_files.ini);
    if (!statusText.isEmpty())
        emit statusTextChanged(statusText);
}

JobResult UpdateRun::finish(bool ok)
{
    m_result.status = ok ? JobResult::Status::Succeeded : JobResult::Status::Failed;
    if (ok)
        m_result.message.clear();
    return m_result;
}

JobResult UpdateRun::failWith(const QString &message)
{
    showError(message);
    LogLine(u"ERROR: "_s + message);
    LogLine(u"Failed"_s);
    return finish(false);
}

void UpdateRun::enterStage(std::optional<BoardKind> board, Stage stage, BoardCondition state)
{
    if (board != m_result.board && board)
        m_result.firmware = m_fresh[*board].Firmware();
    m_result.board = board;
    m_result.stage = stage;
    m_result.boardState = state;
    if (stage == Stage::Transfer)
        m_result.bytesSent = m_result.bytesTotal = 0;
    RunJournal::Board *entry = board && m_journal ? m_journal->board(*board) : nullptr;
    if (entry && stage != Stage::None && stage != entry->stage) {
        entry->stage = stage;
        saveJournal();
    }
    emit jobEvent(JobEvent {board, stage});
}

void UpdateRun::saveJournal()
{
    QString error;
    if (!m_journal->save(&error))
        throw UpdaterError(error);
}

void UpdateRun::startJournal(const QString &backupFile, bool allowDowngrade)
{
    const QString serial = m_current[BoardKind::Cpu].SerialNumber();
    m_journal = RunJournal {.path = QDir(m_files.dataDir).filePath(RunJournal::fileNameFor(serial)),
                            .serialNumber = serial,
                            .backupFile = backupFile};
    for (const BoardKind board : kUpdateOrder) {
        if (Eligibility::JudgeBoard(m_current[board], m_fresh[board], allowDowngrade).needsUpdate())
            m_journal->boards.append(
                {board, QDir(m_files.firmwareDir).filePath(m_fresh[board].BinFileName()),
                 m_fresh[board].Firmware(), Stage::None, false});
    }
    // On disk before the first board is touched.
    saveJournal();
}

bool UpdateRun::finishBoard(const RunJournal::Board &entry)
{
    const BoardKind board = entry.board;
    if (entry.stage == Stage::RestartWait || entry.stage == Stage::Restore) {
        // Flashed before the run stopped: the parameters are all it may still need.
        cControler &found = m_current[board];
        found.InitFromDevice(&m_comm, board);
        if (!found.IsInBTLMode() && found.Firmware() == entry.firmware) {
            m_result.firmware = entry.firmware;
            return restoreAfterTransfer(board, m_journal->backupFile);
        }
    }
    return boardSequence(board, entry.image, m_journal->backupFile);
}

JobResult UpdateRun::runFull(const QString &backupFile, bool allowDowngrade, bool checkBackup)
{
    begin(text(kUpdateStatusText));
    if (!m_journal) {
        if (!backupInto(backupFile, true))
            return finish(false);
        Settings::saveLastBackupFileName(*m_files.ini, backupFile);
        startJournal(backupFile, allowDowngrade);
    } else {
        LogLine(m_journal->describe());
    }
    for (const RunJournal::Board &entry : std::as_const(m_journal->boards)) {
        if (!entry.done && !finishBoard(entry)) {
            LogLine(u"Failed"_s);
            return finish(false);
        }
    }
    m_journal->discard();
    m_journal.reset();
    if (checkBackup && !backupInto(text(kTestBackupFileName), true))
        return finish(false);
    emit succeeded();
    return finish(true);
}

JobResult UpdateRun::runSingleBoard(BoardKind board, const QString &backupFile)
{
    begin(text(kUpdateStatusText));
    // A board of an unfinished run gets the run's image and the run's backup.
    const RunJournal::Board *entry = m_journal ? m_journal->board(board) : nullptr;
    const QString image =
        entry ? entry->image : QDir(m_files.firmwareDir).filePath(m_fresh[board].BinFileName());
    if (!boardSequence(board, image, entry ? m_journal->backupFile : backupFile)) {
        LogLine(u"Failed"_s);
        return finish(false);
    }
    if (m_journal && m_journal->finished()) {
        m_journal->discard();
        m_journal.reset();
    }
    emit succeeded();
    return finish(true);
}

JobResult UpdateRun::refuse(JobResult::Refusal refusal, const QString &message)
{
    m_result = {.refusal = refusal};
    return failWith(message);
}

JobResult UpdateRun::runRestoreOnly(const QString &backupFile, bool force,
                                    const QString &safetyBackupFile)
{
    begin(u"Restoring parameters to VARIMOsentry"_s);
    const QString file = QDir(m_files.dataDir).filePath(backupFile);
    const cBackup::FileCheck check = cBackup::CheckBackupFile(file);
    if (!check.error.isEmpty())
        return refuse(JobResult::Refusal::BadInput, check.error + u" Nothing was restored."_s);
    // A backup holds one instrument's calibration; in another one it would replace that
    // instrument's own values.
    if (!force && !check.serialNumber.isEmpty() && !m_serialNumber.isEmpty() &&
        check.serialNumber != m_serialNumber) {
        return refuse(JobResult::Refusal::OtherInstrument,
                      u"The backup file %1 was made from VARIMOsentry SN %2, not from this "
                      "VARIMOsentry (SN %3). Nothing was restored."_s.arg(file, check.serialNumber,
                                                                          m_serialNumber));
    }
    // The instrument's own values are kept before the first value is written.
    if (!safetyBackupFile.isEmpty() && !backupInto(safetyBackupFile, false)) {
        m_result.message += u"\r\nNothing was restored: the current parameters could not be "
                            "backed up first."_s;
        return finish(false);
    }
    for (const BoardKind board : kUpdateOrder) {
        emit currentActionChanged(text(boardFacts(board).restoreText), false);
        if (!m_backup.RestoreData(board, file)) {
            m_result.board = board;
            m_result.stage = Stage::Restore;
            return finish(restoreFailed());
        }
    }
    return finish(true);
}

JobResult UpdateRun::runBackupOnly(const QString &backupFile)
{
    begin();
    return finish(backupInto(backupFile, false));
}

JobResult UpdateRun::runFlashOnly(BoardKind board, const QString &imageFile,
                                  const QString &backupFile)
{
    begin();
    if (!backupFile.isEmpty() && !backupInto(backupFile, false))
        return finish(false);
    // A bare flash: the board may be waiting in its bootloader and answer nothing but "C", so
    // the port is opened without greeting the instrument.
    if (!m_comm.OpenPort(cComm::Greeting::Silent)) {
        m_result.stage = Stage::Connect;
        m_result.message = m_comm.lastError();
        return finish(false);
    }
    bool ok = bootloaderAndTransfer(board, imageFile);
    if (ok && backupFile.isEmpty())
        emit currentActionChanged(text(boardFacts(board).doneText), false);
    else if (ok)
        ok = restoreAfterTransfer(board, backupFile);
    m_comm.ClosePort();
    return finish(ok);
}

bool UpdateRun::backupInto(const QString &file, bool showFailure)
{
    enterStage(std::nullopt, Stage::Backup, BoardCondition::Untouched);
    emit currentActionChanged(u"Backup VARIMOsentry parameters in "_s + file + u"..."_s, false);
    // Without a name (no serial number was read) the backup has nowhere to go and fails.
    const QString path = file.isEmpty() ? QString() : QDir(m_files.dataDir).filePath(file);
    if (m_backup.SecureData(path, m_serialNumber)) {
        emit currentActionChanged(u"Backup successful completed."_s, false);
        enterStage(std::nullopt, Stage::None, BoardCondition::Untouched);
        return true;
    }
    showError(m_backup.CurrAction() + u"\r\n"_s + m_backup.LastError());
    // The previous backup is untouched; the incomplete one lies beside it.
    if (!m_backup.PartialFile().isEmpty()) {
        const QString kept = QFile::exists(path)
            ? u"The previous backup %1 was kept; the incomplete one is %2."_s
            : u"No backup %1 was made; the incomplete one is %2."_s;
        m_result.message += u"\r\n"_s + kept.arg(path, m_backup.PartialFile());
        LogLine(kept.arg(path, m_backup.PartialFile()));
    }
    if (showFailure)
        ShowMessage(m_backup.CurrAction(), m_backup.LastError(), u"No update is possible."_s,
                    InstructionText::kCheckConnection, QString());
    return false;
}

bool UpdateRun::boardSequence(BoardKind board, const QString &image, const QString &backupFile)
{
    bool ok = false;
    int passCounter = 1;
    do {
        enterStage(board, Stage::BootloaderStart, BoardCondition::BootloaderUncertain);
        ok = bootloaderAndTransfer(board, image);
        if (!ok)
            recoverAfterFailedPass(board, m_result.stage != Stage::BootloaderStart, &passCounter);
        ++passCounter;
    } while (!ok && passCounter <= 1);
    return ok && restoreAfterTransfer(board, backupFile);
}

bool UpdateRun::restoreAfterTransfer(BoardKind board, const QString &backupFile)
{
    const BoardFacts &facts = boardFacts(board);
    enterStage(board, Stage::Restore, BoardCondition::FlashedNotRestored);
    emit currentActionChanged(text(facts.doneText) + u"\r\n"_s + text(facts.restoreText), false);
    LogLine(u"Restoring data..."_s);
    if (!restoreBoard(board, backupFile))
        return false;
    m_result.updatedBoards.append(board);
    if (RunJournal::Board *entry = m_journal ? m_journal->board(board) : nullptr) {
        entry->done = true;
        saveJournal();
    }
    enterStage(std::nullopt, Stage::None, BoardCondition::Untouched);
    return true;
}

bool UpdateRun::bootloaderAndTransfer(BoardKind board, const QString &imageFile)
{
    const BoardFacts &facts = boardFacts(board);
    emit currentActionChanged(text(facts.startText), false);
    LogLine(text(facts.startText));
    const bool started = StartBootloader(board);
    m_operator.letEventsRun();
    if (!started)
        return showError(u"Cannot start bootloader"_s);
    enterStage(board, Stage::Transfer, BoardCondition::InBootloader);
    emit currentActionChanged(text(facts.transferText), false);
    LogLine(text(facts.transferText));
    if (!m_settings.logParserTele) {
        m_files.log->UpdateLog(u"Flash binary file...."_s);
        m_files.log->Setlogging(false);
    }
    if (FlashUpdate(imageFile, board))
        return true;
    return showError(u"Cannot send binary file to VARIMOsentry"_s);
}

void UpdateRun::recoverAfterFailedPass(BoardKind board, bool bootloaderStarted, int *passCounter)
{
    const QString name = boardName(board);
    // A board that took its image but did not identify itself after the restart leaves no log
    // line of its own ("Bootloader not started" and the transfer's error line say the rest).
    if (bootloaderStarted && m_transferComplete)
        LogLine(name + u" flashed, but not answering after its restart"_s);
    // The operator resets and restarts the instrument until the port opens again; the CPU Board
    // needs no wait for the measured value display.
    const bool cpu = board == BoardKind::Cpu;
    do {
        m_comm.ClosePort();
        ShowMessage(Eligibility::noConnectionText(), InstructionText::kReset,
                    InstructionText::kPower,
                    cpu ? InstructionText::kContinue : InstructionText::kWaitForDisplay,
                    cpu ? QString() : InstructionText::kContinue);
    } while (!m_comm.OpenPort());
    cControler &found = m_current[board];
    found.InitFromDevice(&m_comm, board);
    LogLine(name +
            (found.IsInBTLMode()              ? u" found in its bootloader"_s
                 : found.Firmware().isEmpty() ? u" not answering"_s
                                              : u" found running firmware "_s + found.Firmware()));
    const bool runsNewFirmware =
        !found.IsInBTLMode() && found.Firmware() == m_fresh[board].Firmware();
    m_result.boardState = found.IsInBTLMode() ? BoardCondition::InBootloader
        : runsNewFirmware                     ? BoardCondition::FlashedNotRestored
        : found.Firmware().isEmpty()          ? m_result.boardState
                                              : BoardCondition::Untouched;
    if (!runsNewFirmware)
        *passCounter = -1;
}

bool UpdateRun::restoreBoard(BoardKind board, const QString &backupFile)
{
    const QString file = QDir(m_files.dataDir).filePath(backupFile);
    m_comm.Transceive("DHR;0");
    m_comm.Transceive("KEY;0");
    if (!m_backup.RestoreData(board, file)) {
        return restoreFailed(u"ERROR during: Restoring data"_s);
    }
    if (board == BoardKind::Main)
        confirmMainBoardRestart();
    return true;
}

void UpdateRun::confirmMainBoardRestart()
{
    // The Main Board runs its restored parameters only after a restart.
    m_result.boardState = BoardCondition::RestoredUnconfirmed;
    QByteArray answer;
    do {
        m_comm.Transceive("DHR;0");
        m_operator.instruction(Operator::Instruction::MainBoardRestart,
                               InstructionText::mainBoardRestart());
        m_comm.Transceive("DHR;0");
        answer = m_comm.Transceive("KEY;0");
    } while (answer != "KEY;0");
}

bool UpdateRun::StartBootloader(BoardKind board)
{
    // A bootloader that already asks for data needs no telegram at all.
    if (m_comm.ReadT(kFirstBootloaderReadMs, "C").endsWith('C')) {
        m_files.log->UpdateLog(u"Bootloader already running"_s);
        return true;
    }

    const QByteArray selectTelegram = boardFacts(board).bootloaderSelect;
    const QByteArray bootloaderTelegram = boardFacts(board).bootloaderTelegram;
    const bool cpu = board == BoardKind::Cpu;
    bool result = false;
    for (int pass = 1; !result && pass <= kBootloaderPasses; ++pass) {
        QByteArray answer = m_comm.Transceive(selectTelegram);
        WaitSeconds(kWaitAfterSelectS);
        if (cpu && answer.contains("E;1")) {
            // A CPU bootloader left waiting: "F" makes it ask again.
            m_comm.WriteTelegram("F", cComm::kCrLf);
            answer = m_comm.Transceive(selectTelegram);
        }
        if (cpu && !answer.endsWith('C'))
            m_operator.instruction(Operator::Instruction::CpuUpdateMode,
                                   InstructionText::cpuUpdateMode());
        if (answer == selectTelegram) {
            if (cpu) {
                const QByteArray second = m_comm.ReadT(kBootloaderReadMs, cComm::kCrLf);
                if (second.contains(bootloaderTelegram)) {
                    m_comm.WriteTelegram("F", cComm::kCrLf);
                    result = m_comm.ReadT(kBootloaderReadMs, {}).contains('C');
                }
            } else {
                m_comm.WriteTelegram("BOT;$", cComm::kCrLf);
                WaitSeconds(kWaitAfterBotS);
                const QByteArray second = m_comm.ReadT(kBootloaderReadMs, bootloaderTelegram);
                if (second.contains('C') || second.contains(bootloaderTelegram)) {
                    WaitSeconds(kWaitBeforeRequestReadS);
                    result = m_comm.ReadT(kBootloaderReadMs, "C").contains('C');
                }
            }
        }
        if (answer.endsWith('C'))
            result = true;
    }
    m_files.log->UpdateLog(result ? u"Bootloader started"_s : u"Bootloader not started"_s);
    return result;
}

bool UpdateRun::FlashUpdate(const QString &imageFile, BoardKind board)
{
    m_settings = Settings::read(*m_files.ini); // the transfer wait may have changed
    cParser parser;
    parser.Init(m_files.log);
    qint32 total = 0;
    try {
        total = parser.OpenFile(imageFile);
    } catch (const UpdaterError &e) {
        m_files.log->UpdateLog(e.message());
        return false;
    }
    if (!m_settings.logParserTele) {
        m_files.log->UpdateLog(u"......"_s);
        m_files.log->Setlogging(false);
    }
    m_transferComplete = false;
    if (!sendPackets(parser, board, total))
        return false;
    m_transferComplete = true;
    enterStage(board, Stage::RestartWait, BoardCondition::FlashedUnconfirmed);
    // The board restarts into the new firmware and must identify itself again.
    return confirmRestart(board);
}

bool UpdateRun::sendPackets(cParser &parser, BoardKind board, qint32 total)
{
    const qint32 startTick = m_clock.tickCount();
    // Nothing sent yet: the count shows from the start, the line keeps the transfer text.
    emit transferProgressChanged(TransferProgress {
        .board = board, .bytesTotal = total, .text = text(boardFacts(board).transferText)});
    const qint32 waitMs = m_settings.xmodemWaitTimeMs;
    qint32 waitBeforeRead = kFirstPacketWaitMs;
    qint32 position = 1;
    quint8 packetNumber = 1;
    qint32 invalidAnswers = 0;
    // The transfer's last log line, written whatever the setting for the packets' lines says.
    const auto logEnd = [&](const QString &what) {
        m_files.log->Setlogging(true);
        m_files.log->UpdateLog(what + u" (XModemWaitTime = "_s + QString::number(waitMs) +
                               u" ms): Number of invalid answers: "_s +
                               QString::number(invalidAnswers));
    };
    for (;;) {
        QByteArray packet;
        QByteArray answer;
        for (int attempt = 0; attempt < kPacketTries; ++attempt) {
            m_clock.sleepMs(waitMs);
            packet = parser.GetTelegram(position, kPacketDataSize, packetNumber);
            answer = m_comm.TransceiveX(packet, waitBeforeRead);
            waitBeforeRead = 0;
            if (answer == "ACK")
                break;
            ++invalidAnswers;
        }
        if (answer.contains("E;13") || answer == QByteArray(1, kXmodemNak) || answer.isEmpty()) {
            logEnd(u"Error during Flash binary file"_s);
            return false;
        }
        // Any other answer lets the transfer go on: the board decides with its next request.
        reportPacket(board, position, total, invalidAnswers, startTick);
        const bool endOfTransmission =
            packet.size() == 1 && packet.at(0) == cParser::kEndOfTransmission;
        packetNumber = packetNumber == 255 ? 0 : quint8(packetNumber + 1);
        position += kPacketDataSize;
        if (endOfTransmission)
            break;
    }
    logEnd(u"Flash binary file finished"_s);
    return true;
}

void UpdateRun::reportPacket(BoardKind board, qint32 position, qint32 total, qint32 invalidAnswers,
                             qint32 startTick)
{
    const qint64 sent = qMin<qint64>(qint64(position) - 1 + kPacketDataSize, total);
    const qint64 elapsedMs = qint64(quint32(m_clock.tickCount()) - quint32(startTick));
    m_result.bytesSent = sent;
    m_result.bytesTotal = total;
    emit transferProgressChanged(TransferProgress {
        .board = board,
        .bytesSent = sent,
        .bytesTotal = total,
        .packetsRetried = invalidAnswers,
        .elapsedMs = elapsedMs,
        .remainingMs = sent > 0 ? elapsedMs * (total - sent) / sent : -1,
        .text = text(boardFacts(board).transferText) + u"("_s + QString::number(position - 1) +
            u" of "_s + QString::number(total) + u" Bytes transferred)..."_s});
    m_operator.letEventsRun();
}

bool UpdateRun::confirmRestart(BoardKind board)
{
    WaitSeconds(kRestartWaitS, [&](int secondsLeft) {
        emit jobEvent(JobEvent {board, Stage::RestartWait, secondsLeft});
    });
    for (int check = 0; check < kIdentityChecks; ++check) {
        const QByteArray answer = m_comm.Transceive("KVT");
        WaitSeconds(kIdentityCheckWaitS);
        if (answer.contains("KVT;"))
            return true;
    }
    return false;
}

void UpdateRun::WaitSeconds(qint16 n, const std::function<void(int secondsLeft)> &eachSecond)
{
    // Whole calendar seconds, as a clock on the wall counts them.
    const auto wholeSeconds = [](const QDateTime &t) { return t.toSecsSinceEpoch(); };
    const qint64 start = wholeSeconds(m_clock.now());
    for (;;) {
        m_operator.letEventsRun();
        const QDateTime now = m_clock.now();
        if (wholeSeconds(now) - start >= n)
            break;
        if (eachSecond)
            eachSecond(int(n - (wholeSeconds(now) - start)));
        m_clock.sleepMs(1000 - now.time().msec());
    }
}

bool UpdateRun::restoreFailed(const QString &logLine)
{
    showError(m_backup.CurrAction() + u"\r\n"_s + m_backup.LastError());
    if (!logLine.isEmpty())
        LogLine(logLine);
    ShowMessage(m_backup.CurrAction(), m_backup.LastError(), InstructionText::kCheckConnection,
                InstructionText::kTryRestoreAgain, QString());
    return false;
}

bool UpdateRun::showError(const QString &message)
{
    m_result.message = message;
    emit currentActionChanged(message, true);
    return false;
}

void UpdateRun::LogLine(const QString &text)
{
    m_files.log->SetTabs(0);
    m_files.log->UpdateLog(text);
    m_files.log->SetTabs(1);
}

void UpdateRun::ShowMessage(const QString &l1, const QString &l2, const QString &l3,
                            const QString &l4, const QString &l5)
{
    m_operator.instruction(Operator::Instruction::General, {l1, l2, l3, l4, l5});
}
