#pragma once

#include "boards/cControler.h"
#include "gui/ThreadHandover.h"
#include "link/Clock.h"
#include "link/Operator.h"
#include "link/SerialLine.h"
#include "update/Connection.h"
#include "update/Job.h"
#include "update/Session.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>

class QThread;

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

// A job for the engine thread with copies of the windows' six descriptors, which the session
// takes over before the job runs.
struct EngineJob
{
    Job job;
    BoardSet current;
    BoardSet fresh;
};

// How a job ended, with copies of what the windows take over from the session afterwards.
struct EngineOutcome
{
    Job job;
    JobResult result;
    Connection::Result connection; // the last Connect's
    BoardSet current; // the session's boards after the job: for a Connect, as read
    bool portValid = true;
    QString comPort;
};

// The windows' handle on the engine: owns the engine thread and does the serial work there. The
// line, the clock and the session are created (through the factory), used and destroyed on the
// engine thread only, by functions posted to it. One job runs at a time; jobs queue in the order
// they were asked for. Outcomes and reports arrive on the GUI thread as copies, by the signals.
// The thread starts with the engine; the destructor lets the running job end, then quits the
// thread and waits for it.
class Engine : public QObject
{
    Q_OBJECT

public:
    Engine(EngineLinkFactory factory, Operator &windows, const SessionFiles &files,
           QObject *parent = nullptr);
    ~Engine() override;

    // Jobs asked for whose outcome has not arrived yet.
    int pendingJobs() const { return m_pending; }

    void run(EngineJob job);

signals:
    void jobFinished(const EngineOutcome &outcome);
    void statusTextChanged(const QString &text);
    void currentActionChanged(const QString &text, bool isError);
    void transferProgressChanged(const TransferProgress &progress);
    void jobEvent(const JobEvent &event);
    void succeeded();

private:
    // Engine thread.
    void setUp(const EngineLinkFactory &factory, Operator &windows, const SessionFiles &files);
    EngineOutcome runJob(EngineJob job);

    QThread *m_thread;
    // Where work for the engine thread is posted (lives on it), and where its results arrive (lives
    // on the GUI thread).
    std::unique_ptr<handover::Inbox> m_engineSide;
    handover::Inbox *m_inbox;
    // Touched on the engine thread only.
    EngineLink m_link;
    std::unique_ptr<Session> m_session;
    int m_pending = 0;
};
