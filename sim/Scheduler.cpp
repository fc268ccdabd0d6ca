#include "Scheduler.h"

#include "link/Clock.h"

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
    const quint64 id = m_nextId++;
    m_events.emplace(Key {nowMs() + qMax<qint64>(delayMs, 0), id}, std::move(cb));
    arm();
    return id;
}

void TimerScheduler::cancel(quint64 id)
{
    for (auto it = m_events.begin(); it != m_events.end(); ++it) {
        if (it->first.id == id) {
            m_events.erase(it);
            break;
        }
    }
    arm();
}

void TimerScheduler::runDue()
{
    while (!m_events.empty() && m_events.begin()->first.atMs <= nowMs()) {
        auto node = m_events.extract(m_events.begin());
        node.mapped()();
    }
    arm();
}

void TimerScheduler::arm()
{
    if (m_events.empty()) {
        m_timer.stop();
        return;
    }
    const qint64 wait = qMax<qint64>(m_events.begin()->first.atMs - nowMs(), 0);
    m_timer.start(int(qMin<qint64>(wait, 24 * 3600 * 1000)));
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
