#pragma once

#include <QString>

class cComm;
class cINI;
class cLog;
class UpdateRun;

// The serial side of Connect and Disconnect: opens the chosen port, reads the three boards in the
// order CPU Board, Measuring Module, Main Board (each only while the ones before succeeded), reads
// the serial number and forms the backup file name; and releases the instrument again. The
// windows and the terminal front end drive it and show its result.
//
// Lives on the engine thread with the transceiver and the update run whose current descriptors
// it fills.
class Connection
{
public:
    struct Result
    {
        bool portValid = false; // the port name named a port
        bool opened = false; // the port opened and the instrument greeted back
        bool boardsRead = false; // all three boards identified themselves
        qint32 bootloaderBoard = -1; // a board found waiting in its bootloader, or -1
        bool connected = false; // port open, boards read and the serial number answered
        QString serialNumber; // "00042"
        QString backupFileName; // "VarimoSentry_Backup_00042.xml"
        bool backupExists = false; // that file is in the program folder
        QString error; // why the connection failed, when there is more to say than silence
    };

    Connection(cComm &comm, cINI &ini, cLog &log, UpdateRun &run, const QString &programDir);

    // The connect sequence up to the board reads and the serial number. A board in its bootloader
    // stops the reads; the caller hands that board to the single-board update.
    Result ConnectAndIdentify(const QString &portText);
    // Deselects the boards ("DHR;0", then "KEY;1" when the instrument answered) and closes the
    // port.
    void Disconnect();

    // "VarimoSentry_Backup.xml" with ".xml" replaced by "_" + serial number + ".xml".
    static QString BackupFileNameFor(const QString &settingName, const QString &serialNumber);

    static constexpr int kDisconnectTimeoutMs = 200;

private:
    cComm &m_comm;
    cINI &m_ini;
    cLog &m_log;
    UpdateRun &m_run;
    QString m_programDir;
};
