#pragma once

#include "backup/cBackup.h"
#include "boards/cControler.h"
#include "shell/Settings.h"
#include "update/Job.h"
#include "update/RunJournal.h"

#include <QObject>
#include <QString>
#include <functional>

class Clock;
class Operator;
class cComm;
class cINI;
class cLog;

// Where a session finds its files. The settings and the log may be shared with other threads
// (both are safe to use from two threads).
struct SessionFiles
{
    cINI *ini = nullptr;
    cLog *log = nullptr;
    QString dataDir; // settings, log and backups
    QString firmwareDir; // firmware image files
};

// The steps of the update window's operations: the full update run (backup, then each board that
// needs it: bootloader start, firmware transfer, parameter restore), the update of one board that
// is already in its bootloader, the restore of all parameters from a backup file, and the pieces
// the other jobs share (a backup, a bootloader start with its transfer). It reports through
// signals, asks the operator through Operator, knows nothing of widgets, and keeps where the run
// stands as a typed JobResult.
//
// Lives on the thread of its Session; every run blocks until it has ended. The descriptors belong
// to the Session.
class UpdateRun : public QObject
{
    Q_OBJECT

public:
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

    // journal: the run journal of the instrument, kept by the session: an unfinished run found
    // at connect, or the one a full run starts.
    UpdateRun(cComm &comm, Clock &clock, Operator &op, const SessionFiles &files, BoardSet &current,
              BoardSet &fresh, std::optional<RunJournal> &journal, QObject *parent = nullptr);

    // The full run: backup into backupFile, then every board the plan changes. With an
    // unfinished run in the journal: no backup; the run's boards are finished from its backup.
    JobResult runFull(const QString &backupFile, bool allowDowngrade, bool checkBackup);
    // One board found in its bootloader: transfer, restart and restore from backupFile.
    JobResult runSingleBoard(BoardKind board, const QString &backupFile);
    // Every board's parameters back from backupFile, after the instrument's current values were
    // backed up into safetyBackupFile. A file that cannot be restored, or one made from another
    // instrument (unless force), is refused before anything is sent.
    JobResult runRestoreOnly(const QString &backupFile, bool force,
                             const QString &safetyBackupFile);
    // Refuses a job for a bad input, before anything was sent.
    JobResult refuse(JobResult::Refusal refusal, const QString &message);
    // The serial number of the connected instrument ("" when unknown); backups record it.
    void setSerialNumber(const QString &serialNumber) { m_serialNumber = serialNumber; }
    // Every parameter into backupFile, nothing else.
    JobResult runBackupOnly(const QString &backupFile);
    // Bootloader start and transfer of imageFile to one board, on the port opened without a
    // greeting; with a backupFile, every parameter into it first and the board's back from it
    // after the transfer, as after any update of a board.
    JobResult runFlashOnly(BoardKind board, const QString &imageFile,
                           const QString &backupFile = {});

    // Ends the run with an error no step could handle, saying why.
    JobResult failWith(const QString &message);
    // Where the run stands (after a cancel: where it was cancelled).
    const JobResult &where() const { return m_result; }

    // The steps, public for the tests.
    bool StartBootloader(BoardKind board);
    bool FlashUpdate(const QString &imageFile, BoardKind board);
    // eachSecond, when given, hears the whole seconds still to go at the start and every second.
    void WaitSeconds(qint16 n, const std::function<void(int secondsLeft)> &eachSecond = {});

signals:
    void jobEvent(const JobEvent &event);
    // The status line of the update window (animated by the window).
    void statusTextChanged(const QString &text);
    // The current-action line, black or red.
    void currentActionChanged(const QString &text, bool isError);
    void transferProgressChanged(const TransferProgress &progress);
    // The run succeeded: the window shows "Update successfully completed" and its OK button.
    void succeeded();

private:
    JobResult finish(bool ok);
    void begin(const QString &statusText = {});
    void enterStage(std::optional<BoardKind> board, Stage stage, BoardCondition state);
    bool backupInto(const QString &file, bool showFailure);
    bool boardSequence(BoardKind board, const QString &image, const QString &backupFile);
    void startJournal(const QString &backupFile, bool allowDowngrade);
    void saveJournal();
    bool finishBoard(const RunJournal::Board &entry);
    bool bootloaderAndTransfer(BoardKind board, const QString &imageFile);
    void recoverAfterFailedPass(BoardKind board, bool bootloaderStarted, int *passCounter);
    bool restoreAfterTransfer(BoardKind board, const QString &backupFile);
    bool restoreBoard(BoardKind board, const QString &backupFile);
    void confirmMainBoardRestart();
    bool sendPackets(class cParser &parser, BoardKind board, qint32 total);
    bool confirmRestart(BoardKind board);
    void reportPacket(BoardKind board, qint32 position, qint32 total, qint32 invalidAnswers,
                      qint32 startTick);
    // The step's failure: the run's message, shown red on the current-action line; false.
    bool showError(const QString &message);
    // A board that did not take its parameters back: shown, logged with logLine, and the
    // operator told what to do; false.
    bool restoreFailed(const QString &logLine = {});
    void LogLine(const QString &text);
    void ShowMessage(const QString &l1, const QString &l2, const QString &l3, const QString &l4,
                     const QString &l5);

    cComm &m_comm;
    Clock &m_clock;
    Operator &m_operator;
    SessionFiles m_files;
    BoardSet &m_current;
    BoardSet &m_fresh;
    cBackup m_backup;
    Settings m_settings;
    std::optional<RunJournal> &m_journal;
    JobResult m_result; // where the run stands
    QString m_serialNumber;
    bool m_transferComplete = false; // the last transfer's EOT was acknowledged
};
