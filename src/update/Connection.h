#pragma once

#include "boards/cControler.h"

#include <QString>

class cComm;
class cINI;
class cLog;

// The serial side of Connect and Disconnect: opens the chosen port, reads the three boards in the
// order CPU Board, Measuring Module, Main Board (each only while the ones before succeeded), reads
// the serial number and forms the backup file name; and releases the instrument again. The
// windows and the terminal front end drive it and show its result.
//
// Lives on the thread of its Session, with the transceiver and the descriptors it fills.
class Connection
{
public:
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

    // current: the descriptors the board reads fill; dataDir: where the backups are.
    Connection(cComm &comm, cINI &ini, cLog &log, BoardSet &current, const QString &dataDir);

    // The connect sequence up to the board reads and the serial number. A board in its bootloader
    // stops the reads; the caller hands that board to the single-board update.
    Result ConnectAndIdentify(const QString &portText);
    // Deselects the boards ("DHR;0", then "KEY;1" when the instrument answered) and closes the
    // port.
    void Disconnect();

    // The backup name of the settings with ".xml" replaced by "_" + serial number + ".xml".
    static QString BackupFileNameFor(const QString &settingName, const QString &serialNumber);

    static constexpr int kDisconnectTimeoutMs = 200;

private:
    cComm &m_comm;
    cINI &m_ini;
    cLog &m_log;
    BoardSet &m_current;
    QString m_dataDir;
};
