#pragma once

#include "shell/Eligibility.h"
#include "shell/cINI.h"
#include "shell/cLog.h"

#include <QString>

class Clock;
class cControler;
class UpdateRun;

// The updater's folders and what it keeps in them, shared by the windows and the terminal front
// end so that both start, judge and end the same way: the log file and the settings file, the
// firmware file-name patterns and the downgrade permission read at start, the new-firmware
// descriptors filled from the newest files, the verdict of a connected or disconnected state,
// and the closing log lines.
//
// Holds no widgets and talks to no instrument. Lives on the thread that owns the update run whose
// descriptors it fills (the engine thread); the log it owns may be written from any thread.
class Workspace
{
public:
    static constexpr char kIniFileName[] = "VarimoSentry_Updater.ini";
    static constexpr char kLogFileName[] = "VarimoSentry_Updater.txt";
    // The application name under which the user's data folder is found.
    static constexpr char kApplicationName[] = "VarimoSentry_Updater";

    struct Folders
    {
        QString program; // the firmware image files: the executable's folder
        QString data; // the settings file, the log and the backups
    };

    // The rule of the windows: data is the program folder when a file can be created there,
    // otherwise fallbackDir (created as needed).
    static Folders ChooseFolders(const QString &programDir, const QString &fallbackDir);
    // The user's data folder (~/.local/share/VarimoSentry_Updater on Linux), for a program whose
    // application name is kApplicationName, as the windows' is.
    static QString UserDataDir();

    Workspace(const Folders &folders, Clock *clock = nullptr);

    QString programDir() const { return m_folders.program; }
    QString dataDir() const { return m_folders.data; }
    // A name in the data folder (a backup); an absolute path stays as it is.
    QString pathFor(const QString &name) const;
    // The firmware files of the new-firmware descriptors as full paths in the program folder, as
    // the update run needs them when the data folder is elsewhere.
    void UseFullFirmwarePaths(UpdateRun &run) const;
    cINI &ini() { return m_ini; }
    cLog &log() { return m_log; }

    // Switches logging on, writes "VarimoSentry_Updater started...", binds the settings file and
    // reads the firmware file-name patterns, "RetryUpdates" and "AllowDowngrade".
    void Start();
    // "VarimoSentry_Updater terminated..." and a line of dashes.
    void Stop();

    // The file-name pattern of a board (cControler kind), as read by Start().
    QString Pattern(qint32 kind) const;
    qint16 RetryUpdates() const { return m_retryUpdates; }
    bool AllowDowngrade() const { return m_allowDowngrade; }
    // The test mode permits downgrades whatever the settings say; so does the terminal's
    // --allow-downgrade.
    void setAllowDowngrade(bool allow) { m_allowDowngrade = allow; }

    // Fills the update run's three new-firmware descriptors from the newest file of each board,
    // in the order CPU Board, Main Board, Measuring Module.
    void LoadFirmwareFiles(UpdateRun &run) const;
    // The newest file of the board's pattern in the program folder, into board.
    void LoadFirmwareFile(qint32 kind, cControler &board) const;

    // Colours the current descriptors and judges the firmware files; an empty message when every
    // file is usable.
    Eligibility::Verdict CheckUpdateFiles(UpdateRun &run) const;

    // What the windows show for a connection state. Disconnected: the current versions are
    // forgotten and the instruction lines (or "Invalid port - enter valid RS232-port") are the
    // message. Connected: the eligibility check, and comPort is saved as the port to preselect
    // next time. In both states missing or invalid firmware files override the message.
    Eligibility::Verdict SetConnectionState(UpdateRun &run, bool bConnected, bool portValid,
                                            const QString &comPort);

    static Eligibility::Boards CurrentBoards(UpdateRun &run);
    static Eligibility::Boards NewBoards(UpdateRun &run);

private:
    Folders m_folders;
    cINI m_ini;
    cLog m_log;
    QString m_patterns[3]; // by cControler kind
    qint16 m_retryUpdates = 5;
    bool m_allowDowngrade = false;
};
