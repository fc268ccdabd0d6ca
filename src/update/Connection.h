#pragma once

#include "boards/cControler.h"

#include <QString>
#include <optional>

// What the serial side of Connect found: the chosen port opened, the three boards read in the
// order CPU Board, Measuring Module, Main Board (each only while the ones before succeeded), the
// serial number and the backup file name formed from it. The session fills it; the windows and
// the terminal front end show it.
namespace Connection {

struct Result
{
    bool portValid = false; // the port name named a port
    bool opened = false; // the port opened and the instrument greeted back
    bool boardsRead = false; // all three boards identified themselves
    std::optional<BoardKind> bootloaderBoard; // a board found waiting in its bootloader
    bool connected = false; // port open, boards read and the serial number answered
    QString serialNumber; // "00042"
    QString backupFileName; // "VarimoSentry_Backup_00042.xml"
    bool backupExists = false; // that file is in the program folder
    QString error; // why the connection failed, when there is more to say than silence
    QString unfinishedRun; // an update run of this instrument that did not finish
    QString journalProblem; // a run journal that exists but cannot be trusted
};

} // namespace Connection
