#include "LinePacer.h"

#include <memory>

LinePacer::LinePacer(Scheduler &scheduler, int baud, Sink sink)
    : m_scheduler(scheduler)
    , m_baud(baud)
    , m_sink(std::move(sink))
{
}

LinePacer::~LinePacer()
{
    clear();
}

qint64 LinePacer::transferTimeUs(qint64 n) const
{
    return m_baud > 0 ? n * 10 * 1000000 / m_baud : 0;
}

void LinePacer::send(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return;
    const qint64 nowUs = m_scheduler.nowMs() * 1000;
    m_lineFreeUs = qMax(m_lineFreeUs, nowUs) + transferTimeUs(bytes.size());
    // The scheduler counts whole milliseconds: round to the nearest, so the emulated line is not
    // slower than the real one by half a millisecond on every piece.
    const qint64 delayMs = (m_lineFreeUs - nowUs + 500) / 1000;
    auto idSlot = std::make_shared<quint64>(0);
    const quint64 id = m_scheduler.scheduleIn(delayMs, [this, bytes, idSlot] {
        std::erase(m_pending, *idSlot);
        m_sink(bytes);
    });
    *idSlot = id;
    m_pending.push_back(id);
}

void LinePacer::clear()
{
    for (quint64 id : m_pending)
        m_scheduler.cancel(id);
    m_pending.clear();
    m_lineFreeUs = 0;
}
