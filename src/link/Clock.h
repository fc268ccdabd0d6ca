#pragma once

#include <QDateTime>
#include <QtGlobal>
#include <functional>
#include <map>

// Time as the protocol sees it: a millisecond tick counter, a blocking sleep and the local
// date-time. The product uses SystemClock; tests use VirtualClock, whose sleeps advance time at
// once so that a wait of seconds costs microseconds.
//
// A Clock is used by the thread that owns the transceiver (the engine thread).
class Clock
{
public:
    virtual ~Clock() = default;

    // Milliseconds since an arbitrary origin, as a signed 32-bit counter that wraps like the
    // operating system's tick count: after 2147483647 comes -2147483648.
    virtual qint32 tickCount() const = 0;
    // Blocks the caller for ms milliseconds (nothing for ms <= 0).
    virtual void sleepMs(int ms) = 0;
    // The local date and time.
    virtual QDateTime now() const = 0;
};

class SystemClock final : public Clock
{
public:
    qint32 tickCount() const override;
    void sleepMs(int ms) override;
    QDateTime now() const override;
};

// Deterministic time for tests and the in-process simulated instrument. Time moves only when
// someone sleeps or advances it; events scheduled by the simulated instrument run in time order as
// time passes them. Single-threaded: every call comes from the thread that drives the test.
class VirtualClock final : public Clock
{
public:
    using Callback = std::function<void()>;

    explicit VirtualClock(const QDateTime &start = QDateTime(QDate(2026, 11, 23), QTime(9, 0)),
                          qint32 tickOrigin = 1000);

    qint32 tickCount() const override;
    void sleepMs(int ms) override;
    QDateTime now() const override;

    // Virtual milliseconds since construction; never wraps.
    qint64 elapsedMs() const { return m_elapsedMs; }

    // Runs cb when virtual time reaches atMs (elapsedMs scale); an event in the past runs on the
    // next advance. Events at the same time run in the order they were scheduled. Returns an id.
    quint64 schedule(qint64 atMs, Callback cb);
    quint64 scheduleIn(qint64 delayMs, Callback cb)
    {
        return schedule(m_elapsedMs + delayMs, std::move(cb));
    }
    void cancel(quint64 id);
    // The time of the earliest pending event, or -1 when none is pending.
    qint64 nextEventMs() const;

    // Moves time forward to atMs, running every event due on the way (each at its own time).
    void advanceTo(qint64 atMs);
    // Runs the earliest event if it is due no later than limitMs (moving time to it); returns
    // whether one ran.
    bool runNextEventUntil(qint64 limitMs);

private:
    struct Key
    {
        qint64 atMs;
        quint64 id;
        bool operator<(const Key &o) const { return atMs != o.atMs ? atMs < o.atMs : id < o.id; }
    };

    QDateTime m_start;
    qint32 m_tickOrigin;
    qint64 m_elapsedMs = 0;
    quint64 m_nextId = 1;
    std::map<Key, Callback> m_events;
};
