#include "Engine.h"

#include "link/Clock.h"
#include "link/Operator.h"
#include "link/QtSerialLine.h"
#include "link/UpdaterError.h"
#include "link/cComm.h"
#include "shell/cLog.h"

#include <QDir>
#include <QThread>

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

EngineWorker::EngineWorker(EngineLinkFactory factory, Operator &windows, const EngineFiles &files)
    : m_factory(std::move(factory))
    , m_windows(windows)
    , m_files(files)
{
}

EngineWorker::~EngineWorker() = default;

void EngineWorker::setUp()
{
    m_link = m_factory(m_windows);
    Operator &op = m_link.op ? *m_link.op : m_windows;
    m_comm = std::make_unique<cComm>(*m_link.line, *m_link.clock, op);
    m_comm->Init(m_files.log);
    m_run = std::make_unique<UpdateRun>(*m_link.clock, op);
    m_run->Init(m_files.ini, m_files.log, m_files.dataDir);
    m_connection =
        std::make_unique<Connection>(*m_comm, *m_files.ini, *m_files.log, *m_run, m_files.dataDir);

    connect(m_run.get(), &UpdateRun::statusTextChanged, this, &EngineWorker::statusTextChanged);
    connect(m_run.get(), &UpdateRun::currentActionChanged, this,
            &EngineWorker::currentActionChanged);
    connect(m_run.get(), &UpdateRun::transferProgressChanged, this,
            &EngineWorker::transferProgressChanged);
    connect(m_run.get(), &UpdateRun::succeeded, this, &EngineWorker::runSucceeded);
}

void EngineWorker::tearDown()
{
    // The port and the line belong to this thread: close and destroy them here.
    if (m_comm)
        m_comm->ClosePort();
    m_connection.reset();
    m_run.reset();
    m_comm.reset();
    m_link = EngineLink();
}

ConnectOutcome EngineWorker::connectJob(const QString &portText)
{
    ConnectOutcome outcome;
    try {
        outcome.result = m_connection->ConnectAndIdentify(portText);
    } catch (const UpdaterError &e) {
        outcome.result.connected = false;
        outcome.result.error = e.message();
        m_files.log->UpdateLog(e.message());
    }
    for (const qint32 kind : {cControler::eCPU, cControler::eMeas, cControler::eMain})
        outcome.current[kind] = m_run->current(kind);
    outcome.portValid = m_comm->IsValidPort();
    outcome.comPort = m_comm->ComPort();
    return outcome;
}

void EngineWorker::disconnectJob()
{
    // Errors while releasing the instrument are of no interest: it may be gone.
    try {
        m_connection->Disconnect();
    } catch (const UpdaterError &e) {
        m_comm->ClosePort();
    }
}

void EngineWorker::connectTo(const QString &portText)
{
    if (m_connection)
        emit connectFinished(connectJob(portText));
    emit jobDone();
}

void EngineWorker::disconnectFrom()
{
    if (m_connection) {
        disconnectJob();
        emit disconnectFinished(m_comm->IsValidPort());
    }
    emit jobDone();
}

void EngineWorker::reconnect(const QString &portText)
{
    if (m_connection) {
        disconnectJob();
        emit connectFinished(connectJob(portText));
    }
    emit jobDone();
}

void EngineWorker::runUpdate(const UpdateJob &job)
{
    bool result = false;
    if (m_run) {
        for (const qint32 kind : {cControler::eCPU, cControler::eMeas, cControler::eMain}) {
            m_run->current(kind) = job.current[kind];
            cControler fresh = job.fresh[kind];
            // The firmware files may live elsewhere than the backups.
            if (!fresh.BinFileName().isEmpty())
                fresh.setBinFileName(QDir(m_files.firmwareDir).filePath(fresh.BinFileName()));
            m_run->fresh(kind) = fresh;
        }
        if (!job.backupFileName.isEmpty())
            m_run->setBackupFileName(job.backupFileName);
        m_run->bCheckBackup = job.checkBackup;
        m_run->SetModeAndInitCom(m_comm.get(), job.mode, job.board);
        try {
            result = m_run->run();
        } catch (const std::exception &e) {
            // UpdateRun ends its own errors; anything else still ends the run, saying why.
            emit currentActionChanged(QString::fromLocal8Bit(e.what()), true);
            m_files.log->UpdateLog(u"ERROR: "_s + QString::fromLocal8Bit(e.what()));
        }
    }
    emit runFinished(result);
    emit jobDone();
}

// ---------------------------------------------------------------------------------------------
// Engine: GUI thread

Engine::Engine(EngineLinkFactory factory, Operator &windows, const EngineFiles &files,
               QObject *parent)
    : QObject(parent)
    , m_thread(new QThread(this))
    , m_worker(new EngineWorker(std::move(factory), windows, files))
{
    qRegisterMetaType<ConnectOutcome>();
    qRegisterMetaType<UpdateJob>();
    qRegisterMetaType<TransferProgress>();
    m_thread->setObjectName(u"engine"_s);
    m_worker->moveToThread(m_thread);

    connect(m_worker, &EngineWorker::connectFinished, this, &Engine::connectFinished);
    connect(m_worker, &EngineWorker::disconnectFinished, this, &Engine::disconnectFinished);
    connect(m_worker, &EngineWorker::statusTextChanged, this, &Engine::statusTextChanged);
    connect(m_worker, &EngineWorker::currentActionChanged, this, &Engine::currentActionChanged);
    connect(m_worker, &EngineWorker::transferProgressChanged, this,
            &Engine::transferProgressChanged);
    connect(m_worker, &EngineWorker::runSucceeded, this, &Engine::runSucceeded);
    connect(m_worker, &EngineWorker::runFinished, this, &Engine::runFinished);
    connect(m_worker, &EngineWorker::jobDone, this, [this] {
        if (--m_pending == 0)
            emit idle();
    });
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
    QMetaObject::invokeMethod(m_worker, &EngineWorker::setUp, Qt::QueuedConnection);
}

void Engine::stop()
{
    if (!m_thread->isRunning())
        return;
    // Waits for the running job; the line is closed and destroyed on its own thread.
    QMetaObject::invokeMethod(m_worker, &EngineWorker::tearDown, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
}

bool Engine::isRunning() const
{
    return m_thread->isRunning();
}

template<typename Slot, typename... Args>
void Engine::post(Slot slot, Args... args)
{
    ++m_pending;
    EngineWorker *worker = m_worker;
    QMetaObject::invokeMethod(
        m_worker, [worker, slot, args...] { (worker->*slot)(args...); }, Qt::QueuedConnection);
}

void Engine::connectTo(const QString &portText)
{
    post(&EngineWorker::connectTo, portText);
}

void Engine::disconnectFrom()
{
    post(&EngineWorker::disconnectFrom);
}

void Engine::reconnect(const QString &portText)
{
    post(&EngineWorker::reconnect, portText);
}

void Engine::runUpdate(const UpdateJob &job)
{
    post(&EngineWorker::runUpdate, job);
}
