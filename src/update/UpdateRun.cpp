#include "UpdateRun.h"

#include "link/Clock.h"
#include "link/Operator.h"
#include "link/UpdaterError.h"
#include "link/cComm.h"
#include "link/cParser.h"
#include "shell/cINI.h"
#include "shell/cLog.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace {
constexpr char kCrLf[] = "\r\n";
constexpr char kCpuSelect[] = "DHR;0";
constexpr char kEndOfTransmission = 0x04;
constexpr char kXmodemNak = 0x15;

const QString kSettings = u"Settings"_s;

QString noConnectionLine()
{
    return u"ERROR: No connection to VARIMOsentry"_s;
}
QString resetLine()
{
    return u"Reset VARIMOsentry by pressing RESET && ZERO buttons simultaneously."_s;
}
QString powerLine()
{
    return u"Restart VARIMOsentry by pressing the POWER KEY."_s;
}
QString waitDisplayLine()
{
    return u"Wait a few seconds until the measured value display is shown."_s;
}
QString continueLine()
{
    return u"Continue with OK."_s;
}
QString checkConnectionLine()
{
    return u"Check connection to VARIMOsentry."_s;
}
QString tryRestoreAgainLine()
{
    return u"Try again to restore parameters with Restore Data - button."_s;
}
} // namespace

UpdateRun::UpdateRun(Clock &clock, Operator &op, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
    , m_operator(op)
{
    qRegisterMetaType<TransferProgress>();
}

UpdateRun::~UpdateRun() = default;

int UpdateRun::index(qint32 kind)
{
    if (kind < cControler::eCPU || kind > cControler::eMain)
        throw UpdaterError(u"Unknown board %1"_s.arg(kind));
    return kind;
}

void UpdateRun::Init(cINI *p_oIni, cLog *p_oLog, const QString &programDir)
{
    m_ini = p_oIni;
    m_log = p_oLog;
    m_programDir = programDir;
    m_backup = cBackup();
    for (int kind = 0; kind < 3; ++kind) {
        m_current[kind] = cControler();
        m_current[kind].setControler(kind);
        m_new[kind] = cControler();
        m_new[kind].setControler(kind);
    }
    m_mode = eModeUnset;
}

void UpdateRun::SetModeAndInitCom(cComm *q_comPort, qint16 pIsUpdateType, qint16 pControler)
{
    m_comm = q_comPort;
    m_backup.Init(q_comPort);
    m_mode = pIsUpdateType;
    m_boardIndex = pControler;
}

UpdateRun::BoardTexts UpdateRun::textsFor(qint32 kind)
{
    switch (kind) {
    case cControler::eCPU:
        return {"DHR;0",
                "KVT;BLCPU;1",
                u"CPU Board"_s,
                u"Starting CPU Board bootloader..."_s,
                u"Sending CPU Board binary file "_s,
                u"Update of CPU Board successfully completed."_s,
                u"Restoring parameters to CPU Board..."_s};
    case cControler::eMeas:
        return {"DHR;3",
                "BLMM;1",
                u"Measuring Module"_s,
                u"Starting Measuring Module bootloader..."_s,
                u"Sending Measuring Module binary file "_s,
                u"Update of Measuring Module successfully completed."_s,
                u"Restoring parameters to Measuring Module..."_s};
    default:
        return {"DHR;4",
                "BLSP;1",
                u"Main Board"_s,
                u"Starting Main Board bootloader..."_s,
                u"Sending Main Board binary file "_s,
                u"Update of Main Board successfully completed."_s,
                u"Restoring parameters to Main Board..."_s};
    }
}

bool UpdateRun::NeedsUpdate(const cControler &current, const cControler &fresh)
{
    return current.Color() != cControler::kBlack && fresh.Color() != cControler::kRed;
}

bool UpdateRun::run()
{
    m_result = false;
    if (m_mode == eModeUnset || !m_comm) {
        emit finished(false);
        return false;
    }
    try {
        switch (m_mode) {
        case eModeSingleBoard:
            m_result = runSingleBoard();
            break;
        case eModeRestore:
            m_result = runRestoreOnly();
            break;
        default:
            m_result = runFull();
            break;
        }
    } catch (const UpdaterError &e) {
        // An error no step could handle: the run ends here, saying why.
        m_result = false;
        SetCurrentAction(e.message(), true);
        LogLine(u"ERROR: "_s + e.message());
        LogLine(u"Failed"_s);
    }
    m_log->SetTabs(0);
    emit finished(m_result);
    return m_result;
}

bool UpdateRun::runFull()
{
    emit statusTextChanged(u"VARIMOsentry firmware update in progress"_s);
    if (m_backupFileName.isEmpty())
        m_backupFileName =
            m_ini->GetValue(kSettings, u"BackupFileName"_s, u"VarimoSentry_Backup.xml"_s);
    if (!backupInto(m_backupFileName))
        return false;
    m_ini->SetValue(kSettings, u"LastBackupFileName"_s, m_backupFileName);

    bool ok = true;
    for (const qint32 kind : {cControler::eMain, cControler::eMeas, cControler::eCPU}) {
        if (NeedsUpdate(current(kind), fresh(kind)))
            ok = boardSequence(kind);
        if (!ok)
            break;
    }
    if (!ok) {
        LogLine(u"Failed"_s);
        return false;
    }
    if (bCheckBackup && !backupInto(u"TESTBackup.xml"_s))
        return false;
    emit succeeded();
    return true;
}

bool UpdateRun::runSingleBoard()
{
    emit statusTextChanged(u"VARIMOsentry firmware update in progress"_s);
    if (!boardSequence(m_boardIndex)) {
        LogLine(u"Failed"_s);
        return false;
    }
    emit succeeded();
    return true;
}

bool UpdateRun::runRestoreOnly()
{
    emit statusTextChanged(u"Restoring parameters to VARIMOsentry"_s);
    m_backup.Init(m_comm);
    const QString file = pathInProgramDir(backupFileOrLast());
    for (const qint32 kind : {cControler::eMain, cControler::eMeas, cControler::eCPU}) {
        SetCurrentAction(textsFor(kind).restore);
        if (!m_backup.RestoreData(kind, file)) {
            SetCurrentAction(m_backup.CurrAction() + u"\r\n"_s + m_backup.LastError(), true);
            ShowMessage(m_backup.CurrAction(), m_backup.LastError(), checkConnectionLine(),
                        tryRestoreAgainLine(), QString());
            return false;
        }
    }
    return true;
}

bool UpdateRun::backupInto(const QString &fileName)
{
    SetCurrentAction(u"Backup VARIMOsentry parameters in "_s + fileName + u"..."_s);
    if (m_backup.SecureData(pathInProgramDir(fileName))) {
        SetCurrentAction(u"Backup successful completed."_s);
        return true;
    }
    SetCurrentAction(m_backup.CurrAction() + u"\r\n"_s + m_backup.LastError(), true);
    ShowMessage(m_backup.CurrAction(), m_backup.LastError(), u"No update is possible."_s,
                checkConnectionLine(), QString());
    return false;
}

bool UpdateRun::boardSequence(qint32 kind)
{
    const BoardTexts texts = textsFor(kind);
    bool ok = false;
    int passCounter = 1;
    do {
        SetCurrentAction(texts.start);
        LogLine(texts.start);
        ok = StartBootloader(texts.select, texts.bootloader);
        const bool bootloaderStarted = ok;
        m_operator.letEventsRun();
        if (!ok) {
            SetCurrentAction(u"Cannot start bootloader"_s, true);
        } else {
            SetCurrentAction(texts.transfer);
            LogLine(texts.transfer);
            if (!m_ini->GetBoolValue(kSettings, u"LogParserTele"_s, true)) {
                log(u"Flash binary file...."_s);
                m_log->Setlogging(false);
            }
            m_transferWaitMs = m_ini->GetIntValue(kSettings, u"XModemWaitTime"_s, 1);
            ok = FlashUpdate(pathInProgramDir(fresh(kind).BinFileName()), qint16(kind));
            if (!ok)
                SetCurrentAction(u"Cannot send binary file to VARIMOsentry"_s, true);
        }
        if (!ok) {
            // Say where the board was left, so a reader of the log knows what to expect.
            LogLine(texts.name +
                    (!bootloaderStarted       ? u" left as it was: bootloader not started"_s
                         : m_transferComplete ? u" flashed, but not answering after its restart"_s
                                              : u" left in its bootloader: transfer broken off"_s));
            // The operator resets and restarts the instrument until the port opens again.
            do {
                m_comm->ClosePort();
                if (kind == cControler::eCPU)
                    ShowMessage(noConnectionLine(), resetLine(), powerLine(), continueLine(),
                                QString());
                else
                    ShowMessage(noConnectionLine(), resetLine(), powerLine(), waitDisplayLine(),
                                continueLine());
            } while (!m_comm->OpenPort());
            cControler &board = current(kind);
            board.InitFromDevice(m_comm, kind);
            LogLine(texts.name +
                    (board.IsInBTLMode() ? u" found in its bootloader"_s
                         : board.Firmware().isEmpty()
                         ? u" not answering"_s
                         : u" found running firmware "_s + board.Firmware()));
            if (board.IsInBTLMode() || board.Firmware() != fresh(kind).Firmware())
                passCounter = -1;
        }
        ++passCounter;
    } while (!ok && passCounter <= 1);

    if (ok) {
        SetCurrentAction(texts.done + u"\r\n"_s + texts.restore);
        LogLine(u"Restoring data..."_s);
        ok = restoreBoard(kind);
    }
    return ok;
}

bool UpdateRun::restoreBoard(qint32 kind)
{
    const QString file = pathInProgramDir(backupFileOrLast());
    m_comm->Transceive("DHR;0");
    m_comm->Transceive("KEY;0");
    const bool ok = m_backup.RestoreData(kind, file);

    if (ok && kind == cControler::eMain) {
        // The Main Board runs its restored parameters only after a restart.
        QByteArray answer;
        do {
            m_comm->Transceive("DHR;0");
            m_operator.instruction(Operator::Instruction::MainBoardRestart,
                                   InstructionText::mainBoardRestart());
            m_comm->Transceive("DHR;0");
            answer = m_comm->Transceive("KEY;0");
        } while (answer != "KEY;0");
    }
    if (!ok) {
        SetCurrentAction(m_backup.CurrAction() + u"\r\n"_s + m_backup.LastError(), true);
        LogLine(u"ERROR during: Restoring data"_s);
        ShowMessage(m_backup.CurrAction(), m_backup.LastError(), checkConnectionLine(),
                    tryRestoreAgainLine(), QString());
    }
    return ok;
}

bool UpdateRun::StartBootloader(const QByteArray &selectTelegram,
                                const QByteArray &bootloaderTelegram)
{
    // A bootloader that already asks for data needs no telegram at all.
    if (m_comm->ReadT(kFirstBootloaderReadMs, "C").endsWith('C')) {
        log(u"Bootloader already running"_s);
        return true;
    }

    const bool cpu = selectTelegram == kCpuSelect;
    bool result = false;
    for (int pass = 1; !result && pass <= kBootloaderPasses; ++pass) {
        QByteArray answer = m_comm->Transceive(selectTelegram);
        WaitSeconds(kWaitAfterSelectS);
        if (cpu && answer.contains("E;1")) {
            // A CPU bootloader left waiting: "F" makes it ask again.
            m_comm->WriteTelegram("F", kCrLf);
            answer = m_comm->Transceive(selectTelegram);
        }
        if (cpu && !answer.endsWith('C'))
            m_operator.instruction(Operator::Instruction::CpuUpdateMode,
                                   InstructionText::cpuUpdateMode());
        if (answer == selectTelegram) {
            if (cpu) {
                const QByteArray second = m_comm->ReadT(kBootloaderReadMs, kCrLf);
                if (second.contains(bootloaderTelegram)) {
                    m_comm->WriteTelegram("F", kCrLf);
                    if (m_comm->ReadT(kBootloaderReadMs, {}).contains('C'))
                        result = true;
                }
            } else {
                m_comm->WriteTelegram("BOT;$", kCrLf);
                WaitSeconds(kWaitAfterBotS);
                QByteArray second = m_comm->ReadT(kBootloaderReadMs, bootloaderTelegram);
                if (second.contains('C') || second.contains(bootloaderTelegram)) {
                    WaitSeconds(kWaitBeforeRequestReadS);
                    second = m_comm->ReadT(kBootloaderReadMs, "C");
                    if (second.contains('C')) {
                        result = true;
                        break;
                    }
                    result = false;
                }
            }
        }
        if (answer.endsWith('C')) {
            result = true;
            break;
        }
    }
    log(result ? u"Bootloader started"_s : u"Bootloader not started"_s);
    return result;
}

bool UpdateRun::FlashUpdate(const QString &imageFile, qint16 boardIndex)
{
    cParser parser;
    parser.Init(m_log);
    qint32 total = 0;
    try {
        total = parser.OpenFile(imageFile);
    } catch (const UpdaterError &e) {
        log(e.message());
        return false;
    }

    const QString label = textsFor(boardIndex == 0       ? cControler::eCPU
                                       : boardIndex == 1 ? cControler::eMeas
                                                         : cControler::eMain)
                              .transfer;
    const bool logPackets = m_ini->GetBoolValue(kSettings, u"LogParserTele"_s, true);
    if (!logPackets) {
        log(u"......"_s);
        m_log->Setlogging(false);
    }

    m_transferComplete = false;
    const qint32 startTick = m_clock.tickCount();
    qint32 waitBeforeRead = kFirstPacketWaitMs;
    qint32 position = 1;
    quint8 packetNumber = 1;
    qint32 invalidAnswers = 0;
    const QString waitText = QString::number(m_transferWaitMs);
    for (;;) {
        QByteArray packet;
        QByteArray answer;
        for (int attempt = 0; attempt < kPacketTries; ++attempt) {
            m_clock.sleepMs(m_transferWaitMs);
            packet = parser.GetTelegram(position, kPacketDataSize, packetNumber);
            answer = m_comm->TransceiveX(packet, waitBeforeRead);
            waitBeforeRead = 0;
            if (answer == "ACK")
                break;
            ++invalidAnswers;
        }
        if (answer.contains("E;13") || answer == QByteArray(1, kXmodemNak) || answer.isEmpty()) {
            m_log->Setlogging(true);
            parser.CloseFile();
            log(u"Error during Flash binary file (XModemWaitTime = "_s + waitText +
                u" ms): Number of invalid answers: "_s + QString::number(invalidAnswers));
            return false;
        }
        // Any other answer lets the transfer go on: the board decides with its next request.
        SetCurrentAction(label + u"("_s + QString::number(position - 1) + u" of "_s +
                         QString::number(total) + u" Bytes transferred)..."_s);

        TransferProgress progress;
        progress.board = boardIndex;
        progress.bytesTotal = total;
        progress.bytesSent = qMin<qint64>(qint64(position) - 1 + kPacketDataSize, total);
        progress.packetsRetried = invalidAnswers;
        progress.elapsedMs = qint64(quint32(m_clock.tickCount()) - quint32(startTick));
        if (progress.bytesSent > 0)
            progress.remainingMs =
                progress.elapsedMs * (total - progress.bytesSent) / progress.bytesSent;
        emit transferProgressChanged(progress);
        m_operator.letEventsRun();

        const bool endOfTransmission = packet.size() == 1 && packet.at(0) == kEndOfTransmission;
        packetNumber = packetNumber == 255 ? 0 : quint8(packetNumber + 1);
        position += kPacketDataSize;
        if (endOfTransmission)
            break;
    }
    m_transferComplete = true;
    m_log->Setlogging(true);
    log(u"Flash binary file finished (XModemWaitTime = "_s + waitText +
        u" ms): Number of invalid answers: "_s + QString::number(invalidAnswers));

    // The board restarts into the new firmware and must identify itself again.
    WaitSeconds(kRestartWaitS);
    bool result = false;
    for (int check = 0; check < kIdentityChecks; ++check) {
        const QByteArray answer = m_comm->Transceive("KVT");
        WaitSeconds(kIdentityCheckWaitS);
        if (answer.contains("KVT;")) {
            result = true;
            break;
        }
    }
    parser.CloseFile();
    return result;
}

void UpdateRun::WaitSeconds(qint16 n)
{
    if (n <= 0) {
        m_operator.letEventsRun();
        return;
    }
    // Whole calendar seconds, as a clock on the wall counts them.
    const auto wholeSeconds = [](const QDateTime &t) { return t.toSecsSinceEpoch(); };
    const qint64 start = wholeSeconds(m_clock.now());
    for (;;) {
        m_operator.letEventsRun();
        const QDateTime now = m_clock.now();
        if (wholeSeconds(now) - start >= n)
            break;
        m_clock.sleepMs(1000 - now.time().msec());
    }
}

void UpdateRun::SetCurrentAction(const QString &text, bool isError)
{
    emit currentActionChanged(text, isError);
}

void UpdateRun::LogLine(const QString &text)
{
    m_log->SetTabs(0);
    m_log->UpdateLog(text);
    m_log->SetTabs(1);
}

void UpdateRun::ShowMessage(const QString &l1, const QString &l2, const QString &l3,
                            const QString &l4, const QString &l5)
{
    m_operator.instruction(Operator::Instruction::General, {l1, l2, l3, l4, l5});
}

QString UpdateRun::pathInProgramDir(const QString &name) const
{
    return QDir(m_programDir).filePath(name);
}

QString UpdateRun::backupFileOrLast()
{
    if (m_backupFileName.isEmpty())
        m_backupFileName =
            m_ini->GetValue(kSettings, u"LastBackupFileName"_s, u"VarimoSentry_Backup.xml"_s);
    return m_backupFileName;
}

void UpdateRun::log(const QString &text)
{
    m_log->UpdateLog(text);
}
