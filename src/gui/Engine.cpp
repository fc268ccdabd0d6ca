#include "Engine.h"

#include "gui/ThreadHandover.h"
#include "link/QtSerialLine.h"

#include <QThread>
#include <functional>
#include <future>
#include <utility>

using namespace Qt::StringLiterals;

EngineLink productLink(Operator &)
{
    EngineLink link;
    link.clock = std::make_unique<SystemClock>();
    link.line = std::make_unique<QtSerialLine>();
    return link;
}

// ---------------------------------------------------------------------------------------------
// EngineWorker: engine thread

EngineWorker::EngineWorker(EngineLinkFactory factory, Operator &windows, const SessionFiles &files)
    : m_factory(std::move(factory))
    , m_windows(windows)
    , m_files(files)
    , m_inbox(new handover::Inbox(this))
{
}

EngineWorker::~EngineWorker() = default;

void EngineWorker::setUp()
{
    m_link = m_factory(m_windows);
    Operator &op = m_link.op ? *m_link.op : m_windows;
    m_session = std::make_unique<Session>(*m_link.line, *m_link.clock, op, m_files);
    connect(m_session.get(), &Session::statusTextChanged, this, &EngineWorker::statusTextChanged);
    connect(m_session.get(), &Session::currentActionChanged, this,
            &EngineWorker::currentActionChanged);
    connect(m_session.get(), &Session::transferProgressChanged, this,
            &EngineWorker::transferProgressChanged);
    connect(m_session.get(), &Session::jobEvent, this, &EngineWorker::jobEvent);
    connect(m_session.get(), &Session::succeeded, this, &EngineWorker::succeeded);
}

void EngineWorker::tearDown()
{
    // The port and the line belong to this thread: the session closes the port as it goes.
    m_session.reset();
    m_link = EngineLink();
}

void EngineWorker::run(EngineJob job)
{
    // Nothing handed over may be released on this thread after the outcome went back: the job is
    // taken apart, and the session's previous boards (swapped out by the moves) die right here.
    m_session->current() = std::exchange(job.current, {});
    m_session->fresh() = std::exchange(job.fresh, {});
    EngineOutcome outcome;
    outcome.job = std::move(job.job);
    outcome.result = m_session->run(outcome.job);
    outcome.connection = m_session->connection();
    outcome.current = m_session->current();
    outcome.portValid = m_session->portValid();
    outcome.comPort = m_session->comPort();
    emit jobFinished(outcome);
}

// ---------------------------------------------------------------------------------------------
// Engine: GUI thread

Engine::Engine(EngineLinkFactory factory, Operator &windows, const SessionFiles &files,
               QObject *parent)
    : QObject(parent)
    , m_thread(new QThread(this))
    , m_worker(new EngineWorker(std::move(factory), windows, files))
    , m_inbox(new handover::Inbox(this))
{
    m_thread->setObjectName(u"engine"_s);
    m_worker->moveToThread(m_thread);

    // Each report is copied on the engine thread and handed to this thread's inbox, which passes
    // it on to the windows.
    const auto relay = [this](auto signal, auto slot) {
        connect(
            m_worker, signal, m_worker,
            [this, slot](auto... args) {
                m_inbox->post([this, slot, args...] { std::invoke(slot, this, args...); });
            },
            Qt::DirectConnection);
    };
    relay(&EngineWorker::statusTextChanged, &Engine::statusTextChanged);
    relay(&EngineWorker::currentActionChanged, &Engine::currentActionChanged);
    relay(&EngineWorker::transferProgressChanged, &Engine::transferProgressChanged);
    relay(&EngineWorker::succeeded, &Engine::succeeded);
    relay(&EngineWorker::jobEvent, &Engine::jobEvent);
    relay(&EngineWorker::jobFinished, &Engine::finish);
}

void Engine::finish(const EngineOutcome &outcome)
{
    --m_pending;
    emit jobFinished(outcome);
}

Engine::~Engine()
{
    stop();
    delete m_worker;
}

void Engine::start()
{
    if (m_thread->isRunning())
        return;
    m_thread->start();
    m_worker->inbox()->post([worker = m_worker] { worker->setUp(); });
}

void Engine::stop()
{
    if (!m_thread->isRunning())
        return;
    // Waits for the running job; the line is closed and destroyed on its own thread.
    std::promise<void> tornDown;
    m_worker->inbox()->post([worker = m_worker, &tornDown] {
        worker->tearDown();
        tornDown.set_value();
    });
    tornDown.get_future().wait();
    m_thread->quit();
    m_thread->wait();
    handover::received();
}

void Engine::run(EngineJob job)
{
    ++m_pending;
    m_worker->inbox()->post(
        [worker = m_worker, job = std::move(job)]() mutable { worker->run(std::move(job)); });
}
