#pragma once

#include "link/Clock.h"

#include <QElapsedTimer>

// Real time for short waits and a jump for long ones: sleeps of 50 ms or more pass at once and
// move the clock on by their length. For tests over real lines (pseudo-terminals) where the
// protocol's long pauses (2 s before the first packet, 20 s for a restart) would only make the
// test slow; reads still wait on the line in real time.
class FastClock : public Clock
{
public:
    static constexpr int kSkipFromMs = 50;

    FastClock() { m_timer.start(); }

    qint32 tickCount() const override { return qint32(m_timer.elapsed() + m_skippedMs); }
    void sleepMs(int ms) override
    {
        if (ms >= kSkipFromMs)
            m_skippedMs += ms;
        else if (ms > 0)
            m_real.sleepMs(ms);
    }
    QDateTime now() const override { return m_start.addMSecs(m_timer.elapsed() + m_skippedMs); }
    qint64 skippedMs() const { return m_skippedMs; }

private:
    QElapsedTimer m_timer;
    SystemClock m_real;
    QDateTime m_start = QDateTime::currentDateTime();
    qint64 m_skippedMs = 0;
};
