#pragma once

#include "TerminalOperator.h"
#include "boards/cControler.h"
#include "link/cComm.h"
#include "update/Connection.h"
#include "shell/Eligibility.h"
#include "shell/Workspace.h"
#include "update/UpdateRun.h"

#include <QObject>
#include <QStringList>
#include <memory>
#include <optional>

class Clock;
class Console;
class SerialLine;

// What the command line asked for.
struct CliOptions
{
    QString command; // ports, identify, backup, restore, update, flash, diff
    QStringList arguments; // the command's own arguments
    QString dir; // --dir; empty: the program folder rule
    QString port; // --port
    bool yes = false;
    bool verbose = false;
    bool json = false;
    bool allowDowngrade = false;
};

// Exit statuses; scripts depend on them.
enum CliExit : int {
    eExitSuccess = 0,
    eExitFailed = 1, // the operation failed
    eExitUsage = 2, // usage error, or a port or file that cannot be used
    eExitNothingToDo = 3, // no board needs an update
};

// Reads the command line (the program name first). Returns the exit status when the program
// ends here (--help, --version, a usage error, with its text printed), nothing when the command
// is to run.
std::optional<int> ParseCommandLine(const QStringList &arguments, Console &console,
                                    CliOptions *options);
QString HelpText();

// The terminal front end's commands, each a thin driver of the engine the windows use: the
// same workspace (log, settings, firmware files), the same connection, eligibility verdict,
// backup, restore and update run, with a terminal operator in place of the dialogs.
//
// Lives on the program's one thread; blocks until the command has ended.
class UpdaterCli : public QObject
{
    Q_OBJECT

public:
    // folders: where the files are when --dir is not given (the windows' rule applied).
    UpdaterCli(const CliOptions &options, Console &console, SerialLine &line, Clock &clock,
               const Workspace::Folders &folders);
    ~UpdaterCli() override;

    int run();

private:
    // Where the run stands, so that a run that ends half-way can say what it left behind.
    struct RunState
    {
        enum Stage { eIdle, eBackup, eBootloader, eTransfer, eRestart, eRestore, eRestarted };
        qint32 board = -1;
        Stage stage = eIdle;
        qint64 bytesSent = 0;
        qint64 bytesTotal = 0;
        QStringList finishedBoards;
    };

    int ports();
    int identify();
    int backup();
    int restore();
    int update();
    int flash();
    int diff();

    // Copies of the six descriptors, indexed by board kind, for a report.
    struct Boards
    {
        cControler current[3];
        cControler fresh[3];
    };

    int runCommand();
    int startWorkspace();
    // Connects and identifies; prints the connecting line. Returns the exit status of a port
    // that could not be used or an instrument that did not answer, nothing when connected.
    std::optional<int> connectInstrument(Connection::Result *result, bool report = true);
    void disconnectInstrument();
    bool runEngine(qint16 mode, qint16 board);
    int exitForAbort();
    bool lineGone();
    Boards snapshot();

    void printBoards(const Connection::Result &result, const Boards &boards);
    void printVerdict(const Eligibility::Verdict &verdict);
    QByteArray identifyJson(const Connection::Result &r, const Boards &snapshot,
                            const Eligibility::Verdict &verdict) const;
    QString stateText();
    QString absolutePath(const QString &path) const;

    void onCurrentAction(const QString &text, bool isError);
    void onTransferProgress(const TransferProgress &progress);
    void endTransferDisplay();
    void logLine(const QString &text);

    CliOptions m_options;
    Console &m_console;
    SerialLine &m_line;
    Workspace::Folders m_folders;
    TerminalOperator m_operator;
    cComm m_comm;
    UpdateRun m_run;
    std::unique_ptr<Workspace> m_workspace;
    std::unique_ptr<Connection> m_connection;
    bool m_portOpened = false;
    Eligibility::Verdict m_filesVerdict;

    RunState m_state;
    std::optional<TransferProgress> m_transfer; // the transfer being shown
    qint64 m_lastProgressDrawMs = -1;
};
