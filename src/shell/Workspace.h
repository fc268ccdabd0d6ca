#pragma once

#include "boards/cControler.h"
#include "shell/Eligibility.h"
#include "shell/Settings.h"
#include "shell/cINI.h"
#include "shell/cLog.h"

#include <QString>

class Clock;

// The updater's folders and what it keeps in them, shared by the windows and the terminal front
// end so that both start, judge and end the same way: the log file and the settings file, the
// firmware file-name patterns and the downgrade permission read at start, the new-firmware
// descriptors filled from the newest files, the verdict of a connected or disconnected state,
// and the closing log lines.
//
// Holds no widgets and talks to no instrument. Lives on the thread of the front end (the GUI
// thread for the windows); the log it owns may be written from any thread.
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
    cINI &ini() { return m_ini; }
    cLog &log() { return m_log; }

    // Switches logging on, writes "VarimoSentry_Updater started...", binds the settings file and
    // reads the firmware file-name patterns, "RetryUpdates" and "AllowDowngrade".
    void Start();
    // "VarimoSentry_Updater terminated..." and a line of dashes.
    void Stop();

    // The settings as read by Start().
    const Settings &settings() const { return m_settings; }
    bool AllowDowngrade() const { return m_allowDowngrade; }
    // The test mode permits downgrades whatever the settings say; so does the terminal's
    // --allow-downgrade. Reset reads the setting again.
    void setAllowDowngrade(bool allow) { m_allowDowngrade = allow; }
    void resetAllowDowngrade();

    // Fills the three new-firmware descriptors from the newest file of each board, in the order
    // CPU Board, Main Board, Measuring Module.
    void LoadFirmwareFiles(BoardSet &fresh) const;
    // The file (a name in the program folder, or a path) into the board's descriptor.
    void LoadFirmwareFile(BoardKind kind, const QString &file, cControler &board) const;

    // Colours the current descriptors and judges the firmware files; an empty message when every
    // file is usable.
    Eligibility::Verdict CheckUpdateFiles(BoardSet &current, const BoardSet &fresh) const;

    // What the windows show for a connection state. Disconnected: the current versions are
    // forgotten and the instruction lines (or "Invalid port - enter valid RS232-port") are the
    // message. Connected: the eligibility check, and comPort is saved as the port to preselect
    // next time. In both states missing or invalid firmware files override the message.
    Eligibility::Verdict SetConnectionState(BoardSet &current, const BoardSet &fresh,
                                            bool connected, bool portValid, const QString &comPort);
    // Why the last connected state's port choice was not saved ("" when it was).
    QString unsavedPortChoice() const { return m_unsavedPortChoice; }

private:
    Folders m_folders;
    cINI m_ini;
    cLog m_log;
    Settings m_settings;
    bool m_allowDowngrade = false;
    QString m_unsavedPortChoice;
};
