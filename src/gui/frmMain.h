#pragma once

#include "gui/Engine.h"
#include "gui/GuiOperator.h"
#include "link/PortList.h"
#include "shell/Workspace.h"

#include <QMainWindow>
#include <functional>
#include <memory>

class QComboBox;
class QGroupBox;
class QLabel;
class QPushButton;
class QToolButton;
class frmBackup;
class frmUpdate;
class userControler;

// What the main window is given: where the program's files are, how the engine reaches the
// instrument, and how the serial ports are listed.
struct frmMainSetup
{
    QString programDir; // the firmware image files
    QString dataDir; // the settings file, the log and the backups
    EngineLinkFactory link = productLink;
    std::function<QStringList()> listPorts = modHelper::EnumerateSerialPorts;
};

// The main window: the operator's starting point. It chooses the serial port, shows state and
// instructions in the status line, shows the boards in the instrument and in the firmware files,
// and carries Connect, Update, Restore Data, Reload all, Quit and the test mode (Ctrl+T).
//
// Lives on the GUI thread. Every exchange with the instrument is a job of the engine thread; the
// window keeps copies of the six board descriptors, hands them to the engine with each job and
// takes the boards as read back from each connect. What it shows for a state and whether the
// update is offered is the workspace's verdict. While a job runs, the buttons that could start
// another are disabled.
class frmMain : public QMainWindow
{
    Q_OBJECT

public:
    explicit frmMain(const frmMainSetup &setup, QWidget *parent = nullptr);
    ~frmMain() override;

    void SetConnectionState(bool connected);

    // For the tests and the start-up's test hook.
    bool isConnected() const { return m_connected; }
    // No command is under way: no job, no run, no test-mode dialog.
    bool isIdle() const { return !m_busy; }
    bool allowDowngrade() const { return m_workspace.AllowDowngrade(); }
    bool checkBackup() const { return m_checkBackup; }
    QString statusText() const { return m_statusText; }
    int statusKind() const { return m_statusKind; }
    QString backupFileName() const { return m_backupFileName; }
    frmUpdate *updateWindow() const { return m_update; }

    QGroupBox *fraConnect;
    QLabel *lblComPort;
    QComboBox *cmbPorts;
    QPushButton *cmdConnect;
    QToolButton *cmdRetry;
    QGroupBox *fraStatus;
    QLabel *lblStatus;
    QLabel *lblJournal; // "Update finishes it, or discard ...", while a run is unfinished
    userControler *CurrentControler;
    userControler *NewControler;
    QPushButton *cmdUpdate;
    QPushButton *cmdRestore;
    QPushButton *cmdTests;
    QPushButton *cmdQuit;
    QLabel *Image1;

signals:
    // A command has ended and the window waits for the operator again.
    void idle();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void buildControls();
    QWidget *buildConnectionFrame(QWidget *parent);
    QWidget *buildStatusFrame(QWidget *parent);
    QLayout *buildButtons(QWidget *parent);
    void SetTexts();
    void fillPorts();
    void startEngine();
    void ShowStatus(const QString &text, int statusKind = 0);
    void showBoards();
    void showConnectCommand(bool connected);
    // Disables the commands that could start another job, and runs job.
    void startCommand(const Job &job);

    void cmdConnect_Click();
    void ConnectAndIdentify();
    void onJobFinished(const EngineOutcome &outcome);
    void onConnectFinished(const EngineOutcome &outcome);
    // The job is done: the commands come back as the connection state allows.
    void finishCommand();

    void cmdUpdate_Click();
    void cmdRestore_Click();
    void cmdRetry_Click();
    void discardUnfinishedRun();
    void cmdTests_Click();
    void takeTestFiles(const frmBackup &choice);
    void Form_KeyUp();
    void runJob(const Job &job);
    void startRun(const Job &job, std::function<void(bool)> then);

    void CheckUpdateFiles();
    void settle();

    frmMainSetup m_setup;
    Workspace m_workspace; // the settings file, the log, the firmware files and the verdicts
    GuiOperator m_operator;
    std::unique_ptr<Engine> m_engine;
    frmUpdate *m_update = nullptr;

    BoardSet m_current;
    BoardSet m_fresh;
    bool m_connected = false;
    bool m_checkBackup = false;
    bool m_portValid = true;
    bool m_portsAvailable = false;
    QString m_comPort;
    QString m_backupFileName;
    QString m_unfinishedRun; // the connected instrument's unfinished update run
    QString m_statusText;
    int m_statusKind = 0;

    bool m_busy = false;
    bool m_closing = false;
    bool m_closed = false;
    std::function<void(bool)> m_afterRun;
};
