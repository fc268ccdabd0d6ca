#pragma once

#include "TerminalOperator.h"
#include "shell/Eligibility.h"
#include "shell/Workspace.h"
#include "update/Job.h"

#include <QObject>
#include <QStringList>
#include <memory>
#include <optional>

class Clock;
class Console;
class SerialLine;
class Session;

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
    // flash: a file of another size than the board's image; restore: a backup of another
    // instrument
    bool force = false;
    bool noRestore = false; // flash: no backup before, no restore after
    bool discard = false; // journal --discard
};

// Exit statuses; scripts depend on them.
namespace Exit {
enum Status : int {
    Success = 0,
    Failed = 1, // the operation failed
    Usage = 2, // usage error, or a port or file that cannot be used
    NothingToDo = 3, // no board needs an update
};
} // namespace Exit

// Reads the command line (the program name first). Returns the exit status when the program
// ends here (--help, --version, a usage error, with its text printed), nothing when the command
// is to run.
std::optional<int> ParseCommandLine(const QStringList &arguments, Console &console,
                                    CliOptions *options);

// The terminal front end's commands: each runs jobs on a Session, as the windows do, in the same
// workspace (log, settings, firmware files) and with the same eligibility verdict, with a terminal
// operator in place of the dialogs. It parses, prompts and prints; it follows a job through its
// events and its result only.
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

    // The commands, one a function; run() calls the one the options name.
    int ports();
    int journal();
    int identify();
    int backup();
    int restore();
    int update();
    int flash();
    int diff();

private:
    // The command's argument i as an absolute path; empty when it was not given.
    QString argumentPath(qsizetype i) const;
    bool discardJournal(const QString &path);
    void printJournal();
    // Starts the workspace and the session (and checks the port, withPort); ends the command
    // when it cannot.
    void startWorkspace(bool withPort);
    // Tells why the command cannot go on and ends it with status.
    [[noreturn]] void fail(int status, const QString &text);
    void followSession();
    // Runs one job on this command's port, with this workspace's downgrade permission.
    JobResult runJob(Job::Kind kind, const QString &file = {}, BoardKind board = BoardKind::Cpu);
    // The exit status of the job just run, which did not succeed, after saying why and where it
    // left the instrument.
    int ended(JobResult result);
    // Connects and identifies; prints the connecting line. Returns the exit status of a port
    // that could not be used or an instrument that did not answer, nothing when connected.
    std::optional<int> connectInstrument(bool report = true);
    // Connects for a backup or a restore, which a board in its bootloader refuses.
    void connectForParameters(const QString &refusal);
    // Ends the command when a board waits in its bootloader; refusal says what that prevents.
    void refuseBootloaderBoard(const QString &refusal);
    void disconnectInstrument();
    void updateWaitingBoard(BoardKind board);
    int readAgain();
    void checkBackupFile(const QString &file);
    void checkSettings();
    Eligibility::Verdict setConnectionState(bool connected);
    bool lineGone();

    void printBoards(const BoardSet &current);
    void printVerdict(const Eligibility::Verdict &verdict);
    QByteArray identifyJson(const BoardSet &current, const Eligibility::Verdict &verdict) const;

    void onJobEvent(const JobEvent &event);
    void onCurrentAction(const QString &text, bool isError);
    void onTransferProgress(const TransferProgress &progress);
    void endTransferDisplay();

    CliOptions m_options;
    Console &m_console;
    SerialLine &m_line;
    Clock &m_clock;
    Workspace::Folders m_folders;
    TerminalOperator m_operator;
    std::unique_ptr<Workspace> m_workspace;
    std::unique_ptr<Session> m_session;
    bool m_connected = false; // a Connect job opened the port: Disconnect before the end
    Eligibility::Verdict m_filesVerdict;

    Job::Kind m_job = Job::Kind::Connect; // the job running or run last
    QStringList m_errorsShown; // the error texts that job has shown
    QList<BoardKind> m_updated; // the boards the command's earlier jobs updated
    std::optional<TransferProgress> m_transfer; // the transfer being shown
    qint64 m_lastProgressDrawMs = -1;
};
