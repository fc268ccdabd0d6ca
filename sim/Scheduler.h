#pragma once

#include "link/Clock.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <functional>

// When the instrument model acts: "run this in n milliseconds". The same model runs on virtual
// time in-process (VirtualScheduler) and on real time in varimo-sim (TimerScheduler).
//
// A scheduler and everything scheduled on it live on one thread: the thread that drives the
// instrument (the test's thread, or varimo-sim's main thread).
class Scheduler
{
public:
    using Callback = std::function<void()>;

    virtual ~Scheduler() = default;

    // Milliseconds since the scheduler started.
    virtual qint64 nowMs() const = 0;
    // Runs cb after delayMs (0: as soon as control returns to the scheduler). Events due at the
    // same time run in the order they were scheduled. Returns an id for cancel().
    virtual quint64 scheduleIn(qint64 delayMs, Callback cb) = 0;
    virtual void cancel(quint64 id) = 0;
};

// Virtual time: events run when the clock is advanced past them (by a sleep of the code under
// test, or by SimulatedLine waiting for data).
class VirtualScheduler final : public Scheduler
{
public:
    explicit VirtualScheduler(VirtualClock &clock)
        : m_clock(clock)
    {
    }

    qint64 nowMs() const override;
    quint64 scheduleIn(qint64 delayMs, Callback cb) override;
    void cancel(quint64 id) override;

    VirtualClock &clock() { return m_clock; }

private:
    VirtualClock &m_clock;
};

// Real time on the Qt event loop of the thread it was created on. The events wait in a
// VirtualClock that a timer moves along with real time, so they run strictly in time and
// scheduling order.
class TimerScheduler final : public QObject, public Scheduler
{
    Q_OBJECT
public:
    explicit TimerScheduler(QObject *parent = nullptr);

    qint64 nowMs() const override { return m_elapsed.elapsed(); }
    quint64 scheduleIn(qint64 delayMs, Callback cb) override;
    void cancel(quint64 id) override;

private:
    void runDue();
    void arm();

    QElapsedTimer m_elapsed;
    QTimer m_timer;
    VirtualClock m_queue;
};

// A restartable one-shot timer on a scheduler, cancelled when it is destroyed.
class SimTimer
{
public:
    explicit SimTimer(Scheduler &scheduler)
        : m_scheduler(scheduler)
    {
    }
    ~SimTimer() { stop(); }
    SimTimer(const SimTimer &) = delete;
    SimTimer &operator=(const SimTimer &) = delete;

    void start(qint64 delayMs, Scheduler::Callback cb);
    void stop();
    bool isActive() const { return m_id != 0; }

private:
    Scheduler &m_scheduler;
    quint64 m_id = 0;
};
