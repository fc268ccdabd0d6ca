#pragma once

#include "boards/cControler.h"
#include "link/Clock.h"
#include "link/Operator.h"
#include "link/SerialLine.h"
#include "shell/Connection.h"
#include "update/UpdateRun.h"

#include <QObject>
#include <QString>
#include <array>
#include <functional>
#include <memory>

class QThread;
class cComm;
class cINI;
class cLog;

// The three boards of one side, indexed by board kind (cControler::eCPU, eMeas, eMain).
using BoardSet = std::array<cControler, 3>;

// What the engine talks through: the serial line and the clock, created on the engine thread.
// The product uses a real port and the system clock; tests use a simulated instrument on a
// virtual clock. op, when set, stands between the engine and the windows' operator (a test
// presses the simulated instrument's keys there before the dialog is answered); keep holds what
// the line needs alive, such as the instrument model. Everything here is destroyed on the engine
// thread.
struct EngineLink
{
    std::unique_ptr<Clock> clock;
    std::unique_ptr<SerialLine> line;
    std::unique_ptr<Operator> op;
    std::shared_ptr<void> keep;
};

// Called once on the engine thread with the windows' operator.
using EngineLinkFactory = std::function<EngineLink(Operator &windows)>;

// QtSerialLine and SystemClock.
EngineLink productLink(Operator &windows);

// Where the engine finds its files. The settings and the log are shared with the windows (both
// are safe to use from two threads).
struct EngineFiles
{
    cINI *ini = nullptr;
    cLog *log = nullptr;
    QString dataDir; // backups
    QString firmwareDir; // firmware image files
};

// The result of a connect job: what Connection found, and copies of the boards as read.
struct ConnectOutcome
{
    Connection::Result result;
    BoardSet current;
    bool portValid = true; // the transceiver's IsValidPort after the job
    QString comPort; // the transceiver's ComPort, saved by the window when connected
};

// One update operation with everything it needs, as copies.
struct UpdateJob
{
    qint16 mode = UpdateRun::eModeUnset;
    qint16 board = 0;
    BoardSet current;
    BoardSet fresh;
    QString backupFileName;
    bool checkBackup = false;
};

Q_DECLARE_METATYPE(ConnectOutcome)
Q_DECLARE_METATYPE(UpdateJob)

// The object that does the serial work. It lives on the engine thread: it creates the line and the
// clock there (through the factory) and owns the transceiver, the update run and the connection.
// One job runs at a time; jobs queue in the order they were asked for. Results leave by signals
// carrying copies.
class EngineWorker : public QObject
{
    Q_OBJECT

public:
    EngineWorker(EngineLinkFactory factory, Operator &windows, const EngineFiles &files);
    ~EngineWorker() override;

public slots:
    void setUp();
    void tearDown();
    void connectTo(const QString &portText);
    void disconnectFrom();
    void reconnect(const QString &portText);
    void runUpdate(const UpdateJob &job);

signals:
    void connectFinished(const ConnectOutcome &outcome);
    void disconnectFinished(bool portValid);
    void statusTextChanged(const QString &text);
    void currentActionChanged(const QString &text, bool isError);
    void transferProgressChanged(const TransferProgress &progress);
    void runSucceeded();
    void runFinished(bool result);
    void jobDone();

private:
    ConnectOutcome connectJob(const QString &portText);
    void disconnectJob();

    EngineLinkFactory m_factory;
    Operator &m_windows;
    EngineFiles m_files;
    EngineLink m_link;
    std::unique_ptr<cComm> m_comm;
    std::unique_ptr<UpdateRun> m_run;
    std::unique_ptr<Connection> m_connection;
};

// The windows' handle on the engine: owns the engine thread and its worker, hands jobs over and
// passes results on. Lives on the GUI thread; its signals arrive there. The windows never touch
// the worker's objects. Shutdown (stop, or the destructor) lets the running job end, then quits
// the thread and waits for it.
class Engine : public QObject
{
    Q_OBJECT

public:
    Engine(EngineLinkFactory factory, Operator &windows, const EngineFiles &files,
           QObject *parent = nullptr);
    ~Engine() override;

    void start();
    void stop();
    bool isRunning() const;
    // Jobs asked for and not yet done.
    int pendingJobs() const { return m_pending; }

    void connectTo(const QString &portText);
    void disconnectFrom();
    // Disconnect, then connect again (Reload all while connected).
    void reconnect(const QString &portText);
    void runUpdate(const UpdateJob &job);

signals:
    void connectFinished(const ConnectOutcome &outcome);
    void disconnectFinished(bool portValid);
    void statusTextChanged(const QString &text);
    void currentActionChanged(const QString &text, bool isError);
    void transferProgressChanged(const TransferProgress &progress);
    void runSucceeded();
    void runFinished(bool result);
    void idle();

private:
    template<typename Slot, typename... Args>
    void post(Slot slot, Args... args);

    QThread *m_thread;
    EngineWorker *m_worker;
    int m_pending = 0;
};
