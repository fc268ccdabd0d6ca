#include "Engine.h"

#include "link/QtSerialLine.h"

#include <QThread>
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

Engine::Engine(EngineLinkFactory factory, Operator &windows, const SessionFiles &files,
               QObject *parent)
    : QObject(parent)
    , m_thread(new QThread(this))
    , m_engineSide(std::make_unique<handover::Inbox>(nullptr))
    , m_inbox(new handover::Inbox(this))
{
    m_thread->setObjectName(u"engine"_s);
    m_engineSide->moveToThread(m_thread);
    m_thread->start();
    m_engineSide->post(
        [this, factory = std::move(factory), &windows, files] { setUp(factory, windows, files); });
}

void Engine::setUp(const EngineLinkFactory &factory, Operator &windows, const SessionFiles &files)
{
    m_link = factory(windows);
    Operator &op = m_link.op ? *m_link.op : windows;
    m_session = std::make_unique<Session>(*m_link.line, *m_link.clock, op, files);

    // Each report is copied on the engine thread and handed to the GUI thread, which passes it on
    // to the windows.
    const auto relay = [this](auto signal, auto slot) {
        connect(
            &m_session->reports(), signal, m_engineSide.get(),
            [this, slot](auto... args) {
                m_inbox->post([this, slot, args...] { std::invoke(slot, this, args...); });
            },
            Qt::DirectConnection);
    };
    relay(&UpdateRun::statusTextChanged, &Engine::statusTextChanged);
    relay(&UpdateRun::currentActionChanged, &Engine::currentActionChanged);
    relay(&UpdateRun::transferProgressChanged, &Engine::transferProgressChanged);
    relay(&UpdateRun::succeeded, &Engine::succeeded);
    relay(&UpdateRun::jobEvent, &Engine::jobEvent);
}

Engine::~Engine()
{
    // Waits for the running job; the line is closed and destroyed on its own thread.
    std::promise<void> tornDown;
    m_engineSide->post([this, &tornDown] {
        // The port and the line belong to this thread: the session closes the port as it goes.
        m_session.reset();
        m_link = EngineLink();
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
    m_engineSide->post([this, job = std::move(job)]() mutable {
        // The outcome moves into the call: no copy of it is released here after it went back.
        m_inbox->post([this, outcome = runJob(std::move(job))] {
            --m_pending;
            emit jobFinished(outcome);
        });
    });
}

EngineOutcome Engine::runJob(EngineJob job)
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
    return outcome;
}
