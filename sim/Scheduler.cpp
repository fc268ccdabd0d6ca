#include "Scheduler.h"

#include <algorithm>

qint64 VirtualScheduler::nowMs() const
{
    return m_clock.elapsedMs();
}

quint64 VirtualScheduler::scheduleIn(qint64 delayMs, Callback cb)
{
    return m_clock.scheduleIn(qMax<qint64>(delayMs, 0), std::move(cb));
}

void VirtualScheduler::cancel(quint64 id)
{
    m_clock.cancel(id);
}

TimerScheduler::TimerScheduler(QObject *parent)
    : QObject(parent)
{
    m_elapsed.start();
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &TimerScheduler::runDue);
}

quint64 TimerScheduler::scheduleIn(qint64 delayMs, Callback cb)
{
    const quint64 id = m_queue.schedule(nowMs() + qMax<qint64>(delayMs, 0), std::move(cb));
    arm();
    return id;
}

void TimerScheduler::cancel(quint64 id)
{
    m_queue.cancel(id);
    arm();
}

void TimerScheduler::runDue()
{
    m_queue.advanceTo(nowMs());
    arm();
}

void TimerScheduler::arm()
{
    const qint64 next = m_queue.nextEventMs();
    if (next < 0) {
        m_timer.stop();
        return;
    }
    constexpr qint64 kLongestWaitMs = 24 * 3600 * 1000;
    m_timer.start(int(std::clamp<qint64>(next - nowMs(), 0, kLongestWaitMs)));
}

void SimTimer::start(qint64 delayMs, Scheduler::Callback cb)
{
    stop();
    m_id = m_scheduler.scheduleIn(delayMs, [this, cb = std::move(cb)] {
        m_id = 0;
        cb();
    });
}

void SimTimer::stop()
{
    if (m_id != 0) {
        m_scheduler.cancel(m_id);
        m_id = 0;
    }
}
