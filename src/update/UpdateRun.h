#pragma once

#include "backup/cBackup.h"
#include "boards/cControler.h"

#include <QObject>
#include <QString>
#include <QStringList>

class Clock;
class Operator;
class cComm;
class cINI;
class cLog;

// Progress of a firmware transfer, for a progress bar beside the text line.
struct TransferProgress
{
    qint32 board = 0; // cControler kind
    qint64 bytesSent = 0;
    qint64 bytesTotal = 0;
    qint32 packetsRetried = 0; // invalid answers so far
    qint64 elapsedMs = 0;
    qint64 remainingMs = -1; // -1 while unknown
};
Q_DECLARE_METATYPE(TransferProgress)

// One update operation from start to end: the full update run (backup, then each board that
// needs it: bootloader start, firmware transfer, parameter restore), the update of one board that
// is already in its bootloader, or the restore of all parameters from the backup file. It is the
// engine side of the update window: it reports through signals and asks the operator through
// Operator, and knows nothing of widgets.
//
// Lives on the engine thread; run() blocks until the operation has ended. The descriptors are
// filled by the connection job on the same thread; the windows get copies through signals.
class UpdateRun : public QObject
{
    Q_OBJECT

public:
    enum Mode : qint16 { eModeUnset = -1, eModeRestore = 0, eModeSingleBoard = 1, eModeFull = 2 };

    static constexpr int kFirstBootloaderReadMs = 5000;
    static constexpr int kBootloaderPasses = 5;
    static constexpr int kWaitAfterSelectS = 3;
    static constexpr int kWaitAfterBotS = 4;
    static constexpr int kWaitBeforeRequestReadS = 2;
    static constexpr int kBootloaderReadMs = 2000;
    static constexpr int kFirstPacketWaitMs = 2000;
    static constexpr int kPacketTries = 10;
    static constexpr int kRestartWaitS = 20;
    static constexpr int kIdentityChecks = 3;
    static constexpr int kIdentityCheckWaitS = 2;
    static constexpr int kPacketDataSize = 128;

    UpdateRun(Clock &clock, Operator &op, QObject *parent = nullptr);
    ~UpdateRun() override;

    // Keeps the settings and the log, creates the backup object and the six descriptors, and
    // clears the mode. programDir is the folder of firmware files and backups.
    void Init(cINI *p_oIni, cLog *p_oLog, const QString &programDir);
    // Hands over the transceiver and chooses the operation.
    void SetModeAndInitCom(cComm *q_comPort, qint16 pIsUpdateType, qint16 pControler);

    // Runs the chosen operation; returns (and keeps in Result) whether it succeeded. A mode that
    // was never set ends at once with false.
    bool run();
    bool Result() const { return m_result; }

    // The boards as read from the instrument and as offered by the firmware files.
    cControler &current(qint32 kind) { return m_current[index(kind)]; }
    cControler &fresh(qint32 kind) { return m_new[index(kind)]; }

    // The backup file name (without folder), set by the connection; empty means the last one.
    QString BackupFileName() const { return m_backupFileName; }
    void setBackupFileName(const QString &name) { m_backupFileName = name; }
    bool bCheckBackup = false;

    // The steps, public for the tests and the terminal front end's "flash" command.
    bool StartBootloader(const QByteArray &selectTelegram, const QByteArray &bootloaderTelegram);
    bool FlashUpdate(const QString &imageFile, qint16 boardIndex);
    void WaitSeconds(qint16 n);
    static bool NeedsUpdate(const cControler &current, const cControler &fresh);
    // The transfer wait read from the settings ("XModemWaitTime") before each transfer.
    void setTransferWaitMs(qint32 ms) { m_transferWaitMs = ms; }

    // Per board: select and bootloader telegrams, and the texts of the update run.
    struct BoardTexts
    {
        QByteArray select;
        QByteArray bootloader;
        QString name;
        QString start;
        QString transfer;
        QString done;
        QString restore;
    };
    static BoardTexts textsFor(qint32 kind);

signals:
    // The status line of the update window (animated by the window).
    void statusTextChanged(const QString &text);
    // The current-action line, black or red.
    void currentActionChanged(const QString &text, bool isError);
    void transferProgressChanged(const TransferProgress &progress);
    // The run succeeded: the window shows "Update successfully completed" and its OK button.
    void succeeded();
    // The run has ended (after succeeded() or after a failure); the window may close.
    void finished(bool result);

private:
    bool runFull();
    bool runSingleBoard();
    bool runRestoreOnly();
    bool backupInto(const QString &fileName);
    bool boardSequence(qint32 kind);
    bool restoreBoard(qint32 kind);
    void SetCurrentAction(const QString &text, bool isError = false);
    void LogLine(const QString &text);
    void ShowMessage(const QString &l1, const QString &l2, const QString &l3, const QString &l4,
                     const QString &l5);
    QString pathInProgramDir(const QString &name) const;
    QString backupFileOrLast();
    void log(const QString &text);
    static int index(qint32 kind);

    Clock &m_clock;
    Operator &m_operator;
    cINI *m_ini = nullptr;
    cLog *m_log = nullptr;
    cComm *m_comm = nullptr;
    QString m_programDir;
    cBackup m_backup;
    cControler m_current[3];
    cControler m_new[3];
    qint16 m_mode = eModeUnset;
    qint16 m_boardIndex = 0;
    bool m_result = false;
    QString m_backupFileName;
    qint32 m_transferWaitMs = 1;
    bool m_transferComplete = false; // the last transfer's EOT was acknowledged
};
