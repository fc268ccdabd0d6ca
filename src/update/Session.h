#pragma once

#include "boards/cControler.h"
#include "link/cComm.h"
#include "update/Connection.h"
#include "update/Job.h"
#include "update/RunJournal.h"
#include "update/UpdateRun.h"

#include <QString>

class Clock;
class Operator;
class SerialLine;

// One instrument on one serial line: the transceiver, the six board descriptors and every job
// that the updater does with an instrument. Both front ends run their work as jobs here and
// follow it through the typed signals of reports() and the JobResult; the display texts
// (statusTextChanged, currentActionChanged) are for showing only.
//
// Holds all state of its runs; two sessions on two lines work side by side in one process.
// Lives on the thread that runs its jobs (the engine thread for the windows); run() blocks until
// the job has ended. The descriptors may be read and changed between jobs on that thread.
class Session
{
public:
    // How long a connect listens for a bootloader's "C" when the greeting found nobody.
    static constexpr int kBootloaderListenMs = 3000;
    static constexpr int kDisconnectTimeoutMs = 200;

    Session(SerialLine &line, Clock &clock, Operator &op, const SessionFiles &files);

    // Runs one job to its end. The operator's cancel ends it with Status::Cancelled; every other
    // failure with Status::Failed, the board and stage where it happened and the operator's
    // message.
    JobResult run(const Job &job);

    // What the last Connect found.
    const Connection::Result &connection() const { return m_connection; }
    QString comPort() const { return m_comm.ComPort(); }
    bool portValid() const { return m_comm.IsValidPort(); }

    BoardSet &current() { return m_current; }
    BoardSet &fresh() { return m_fresh; }

    // The backup file of a Backup or Restore job without a file of its own: this instrument's
    // backup name (Backup) or the last backup made (Restore), in the data folder.
    QString defaultBackupFile(Job::Kind kind) const;

    cComm &comm() { return m_comm; }
    // Where a running job reports (the typed events and the texts for showing): its signals.
    UpdateRun &reports() { return m_run; }

    // The unfinished update run of the connected instrument, if any.
    const std::optional<RunJournal> &journal() const { return m_journal; }
    // Forgets the unfinished run on purpose: its journal file is removed.
    bool discardJournal();

private:
    // The connect sequence up to the board reads and the serial number. A board in its bootloader
    // stops the reads; the caller hands that board to the single-board update.
    Connection::Result ConnectAndIdentify(const QString &portText);
    JobResult connectJob(const QString &port);
    JobResult disconnectJob();
    JobResult runJob(const Job &job);
    // Where a restore keeps the instrument's values before it writes any: a new name each time.
    QString safetyBackupFile();
    void findJournal();
    void findBoardOfTheRunInItsBootloader();
    QString backupBesideJournal(const QString &file) const;

    SessionFiles m_files;
    cComm m_comm;
    BoardSet m_current;
    BoardSet m_fresh;
    std::optional<RunJournal> m_journal; // an unfinished update run of the connected instrument
    UpdateRun m_run;
    Connection::Result m_connection;
};
