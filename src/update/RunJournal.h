#pragma once

#include "boards/Board.h"
#include "update/Job.h"

#include <QList>
#include <QString>
#include <optional>

// The record of an update run that is under way, one file per instrument beside the backups, so
// that a run stopped anywhere (the instrument, the cable or the updater itself) can be finished
// with nothing lost: which backup the run works from, which boards it updates with which image,
// and the last stage each board reached. It is written atomically (write, flush, sync, rename)
// before the run touches a board and at every stage change after that, and removed when the run
// has finished.
//
// A value type; the file functions may be called from any thread.
class RunJournal
{
public:
    struct Board
    {
        BoardKind board = BoardKind::Cpu;
        QString image; // the firmware file the board gets
        QString firmware; // its version
        Stage stage = Stage::None; // the last stage begun; None: not begun yet
        bool done = false; // new firmware and parameters
    };

    static QString fileNameFor(const QString &serialNumber);
    // The journal of the instrument in dataDir. An empty serial number (the instrument could not
    // say it, a board waiting in its bootloader) takes the one journal of the folder, if there
    // is exactly one.
    static struct JournalFound find(const QString &dataDir, const QString &serialNumber);
    // Every journal file in dataDir, trusted or not.
    static QList<struct JournalFound> findAll(const QString &dataDir);

    // Writes the journal to its file atomically; false (and why in *error) when it could not.
    bool save(QString *error) const;
    // Removes the file: the run has finished, or the operator discarded it.
    bool discard() const;

    Board *board(BoardKind kind);
    // The boards that still need their image or their parameters.
    bool finished() const;
    // For the operator: which boards were flashed and which still need their image or their
    // parameters.
    QString describe() const;

    QString path; // the file
    QString serialNumber;
    QString backupFile; // the backup made before the run (a name in the data folder or a path)
    QList<Board> boards {}; // in the order of the run
};

// What was found on disk for an instrument.
struct JournalFound
{
    QString path; // the file
    std::optional<RunJournal> journal; // an unfinished run that can be trusted
    QString problem; // a journal that exists but cannot be trusted, and why
};
