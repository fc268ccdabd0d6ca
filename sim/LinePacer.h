#pragma once

#include "Scheduler.h"

#include <QByteArray>
#include <functional>
#include <vector>

// One direction of the serial line at a given baud rate (8N1: ten bits a byte). Bytes handed in
// come out at the far end no sooner than the line could have carried them: a chunk is delivered
// when its last byte has been sent, after any bytes still on their way. Baud 0 delivers at once
// (on the next turn of the scheduler, keeping order).
//
// Lives on the instrument's thread.
class LinePacer
{
public:
    using Sink = std::function<void(const QByteArray &)>;

    LinePacer(Scheduler &scheduler, int baud, Sink sink);
    ~LinePacer();
    LinePacer(const LinePacer &) = delete;
    LinePacer &operator=(const LinePacer &) = delete;

    void send(const QByteArray &bytes);
    // Bytes still on the line are lost (the line was cut).
    void clear();

    void setBaud(int baud) { m_baud = baud; }
    int baud() const { return m_baud; }
    // How long n bytes take on the line, in microseconds.
    qint64 transferTimeUs(qint64 n) const;

private:
    Scheduler &m_scheduler;
    int m_baud;
    Sink m_sink;
    qint64 m_lineFreeUs = 0; // when the line has sent everything handed in so far
    std::vector<quint64> m_pending; // scheduled deliveries
};
