#include "Clock.h"

#include <QThread>
#include <chrono>

qint32 SystemClock::tickCount() const
{
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count();
    return qint32(quint32(quint64(ms)));
}

void SystemClock::sleepMs(int ms)
{
    if (ms > 0)
        QThread::msleep(ulong(ms));
}

QDateTime SystemClock::now() const
{
    return QDateTime::currentDateTime();
}

VirtualClock::VirtualClock(const QDateTime &start, qint32 tickOrigin)
    : m_start(start)
    , m_tickOrigin(tickOrigin)
{
}

qint32 VirtualClock::tickCount() const
{
    return qint32(quint32(quint64(qint64(m_tickOrigin) + m_elapsedMs)));
}

void VirtualClock::sleepMs(int ms)
{
    if (ms > 0)
        advanceTo(m_elapsedMs + ms);
}

QDateTime VirtualClock::now() const
{
    return m_start.addMSecs(m_elapsedMs);
}

quint64 VirtualClock::schedule(qint64 atMs, Callback cb)
{
    const quint64 id = m_nextId++;
    m_events.emplace(Key {qMax(atMs, m_elapsedMs), id}, std::move(cb));
    return id;
}

void VirtualClock::cancel(quint64 id)
{
    std::erase_if(m_events, [id](const auto &event) { return event.first.id == id; });
}

qint64 VirtualClock::nextEventMs() const
{
    return m_events.empty() ? -1 : m_events.begin()->first.atMs;
}

bool VirtualClock::runNextEventUntil(qint64 limitMs)
{
    if (m_events.empty() || m_events.begin()->first.atMs > limitMs)
        return false;
    auto node = m_events.extract(m_events.begin());
    m_elapsedMs = qMax(m_elapsedMs, node.key().atMs);
    node.mapped()();
    return true;
}

void VirtualClock::advanceTo(qint64 atMs)
{
    while (runNextEventUntil(atMs)) { }
    m_elapsedMs = qMax(m_elapsedMs, atMs);
}
