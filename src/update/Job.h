#pragma once

#include "boards/Board.h"

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <optional>

// The typed language of jobs: what a job is asked to do, what it reports while it runs, and how it
// ended. The windows (through the engine thread) and the terminal front end run the same jobs on a
// Session and follow them only through these values, never through display texts.
//
// Value types; callable from any thread.

// The stages of a job that touches a board (and the backup before them).
enum class Stage { None, Connect, Backup, BootloaderStart, Transfer, RestartWait, Restore };

// Where a board was left when a job ended.
enum class BoardCondition {
    Untouched, // nothing was done to it
    BootloaderUncertain, // its bootloader start stopped: old firmware, or waiting in its bootloader
    InBootloader, // the transfer broke off: waiting in its bootloader
    FlashedUnconfirmed, // it took its new firmware; its restart was not confirmed
    FlashedNotRestored, // it runs its new firmware without its parameters
    RestoredUnconfirmed, // parameters restored; its restart (Main Board) was not confirmed
    Updated, // new firmware and parameters
};

// What a job is asked to do.
struct Job
{
    enum class Kind {
        Connect, // open the port, read the boards and the serial number
        Disconnect, // deselect the boards and close the port
        Backup, // every parameter into file (empty: this instrument's backup name)
        Restore, // every parameter back from file (empty: the last backup)
        Update, // the full update run: backup, then every board that needs it
        SingleBoard, // one board found in its bootloader: transfer, restart, restore
        Flash, // one board: backup, bootloader start, transfer of file, restart, restore
        DiscardJournal, // forget the connected instrument's unfinished run, on the operator's word
    };

    Kind kind = Kind::Connect;
    QString port {}; // Connect
    QString file {}; // Backup, Restore, Flash
    BoardKind board = BoardKind::Cpu; // SingleBoard, Flash
    bool allowDowngrade = false; // Update: boards with an older file are updated too
    bool checkBackup = false; // Update in test mode: a second backup after the run
    // Flash: every parameter backed up first (into this instrument's backup file) and the
    // board's restored after its restart; false: bootloader start and transfer, nothing else.
    bool keepParameters = true;
    bool force = false; // Restore: also a backup made from another instrument

    static Job connectTo(const QString &port) { return {.kind = Kind::Connect, .port = port}; }
    static Job disconnect() { return {.kind = Kind::Disconnect}; }
    static Job discardJournal() { return {.kind = Kind::DiscardJournal}; }
    static Job restore(const QString &file = {}) { return {.kind = Kind::Restore, .file = file}; }
    static Job update(bool allowDowngrade, bool checkBackup = false)
    {
        return {.kind = Kind::Update, .allowDowngrade = allowDowngrade, .checkBackup = checkBackup};
    }
    static Job singleBoard(BoardKind board) { return {.kind = Kind::SingleBoard, .board = board}; }
};

// A job's progress: a stage of a board begins (board empty for the backup).
struct JobEvent
{
    std::optional<BoardKind> board;
    Stage stage = Stage::None;
    // RestartWait: whole seconds of the wait still to go, reported each second (-1: not counted).
    int secondsLeft = -1;
};

// Progress of a firmware transfer, for a progress bar beside the text line.
struct TransferProgress
{
    BoardKind board = BoardKind::Cpu;
    qint64 bytesSent = 0;
    qint64 bytesTotal = 0;
    qint32 packetsRetried = 0; // invalid answers so far
    qint64 elapsedMs = 0;
    qint64 remainingMs = -1; // -1 while unknown
    // The current-action line of the update window for this packet.
    QString text {};
};

// How a job ended.
struct JobResult
{
    enum class Status { Succeeded, Failed, Cancelled };

    // Why a job was refused before anything was written to the instrument.
    enum class Refusal {
        None,
        BadInput, // a backup file or a setting that would harm the instrument
        OtherInstrument, // a restore from the backup of another instrument (Job::force allows it)
    };

    Status status = Status::Failed;
    Refusal refusal = Refusal::None;
    // Where it failed (or was cancelled): the board (empty before any board) and the stage.
    std::optional<BoardKind> board {};
    Stage stage = Stage::None;
    BoardCondition boardState = BoardCondition::Untouched;
    // The boards a run finished before it ended.
    QList<BoardKind> updatedBoards {};
    // The firmware the failed board was to get, and how far its transfer came.
    QString firmware {};
    qint64 bytesSent = 0;
    qint64 bytesTotal = 0;
    // Why it failed, as the operator is told.
    QString message {};

    bool succeeded() const { return status == Status::Succeeded; }
};

// Where a run that ended half-way left the instrument, in one sentence for the operator ("The
// Main Board was left in its bootloader: ...").
QString describeWhereLeft(const JobResult &result);
// "Waiting for the Main Board to restart: 12 s".
QString restartWaitText(BoardKind board, int secondsLeft);
// "Update successfully completed".
QString updateSucceededText();

Q_DECLARE_METATYPE(Job)
Q_DECLARE_METATYPE(JobEvent)
Q_DECLARE_METATYPE(TransferProgress)
Q_DECLARE_METATYPE(JobResult)
