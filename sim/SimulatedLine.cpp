#include "SimulatedLine.h"

#include "Instrument.h"
#include "link/Clock.h"

using namespace Qt::StringLiterals;

SimulatedLine::SimulatedLine(Instrument &instrument, VirtualClock &clock)
    : m_instrument(instrument)
    , m_clock(clock)
{
    m_instrument.setSink([this](const QByteArray &bytes) {
        if (m_open)
            m_received += bytes;
    });
}

SimulatedLine::~SimulatedLine()
{
    m_instrument.setSink({});
}

bool SimulatedLine::setPortName(const QString &name)
{
    if (name.trimmed().isEmpty())
        return false;
    m_portName = name.trimmed();
    return true;
}

bool SimulatedLine::setSettings(const QString &settings)
{
    LineSettings parsed;
    return LineSettings::parse(settings, &parsed);
}

bool SimulatedLine::open()
{
    m_error.clear();
    if (isOpen())
        return true;
    if (!m_instrument.plugged()) {
        m_error = u"%1: no such device (adapter unplugged)"_s.arg(m_portName);
        return false;
    }
    if (!m_instrument.poweredOn()) {
        m_error = u"%1: no such device (instrument switched off)"_s.arg(m_portName);
        return false;
    }
    m_open = true;
    ++m_openCount;
    m_received.clear();
    m_instrument.lineOpened();
    return true;
}

void SimulatedLine::close()
{
    if (!m_open)
        return;
    m_open = false;
    m_received.clear();
    m_instrument.lineClosed();
}

bool SimulatedLine::isOpen() const
{
    return m_open && m_instrument.plugged();
}

bool SimulatedLine::write(const QByteArray &bytes)
{
    if (!isOpen()) {
        m_error = u"%1 is not open"_s.arg(m_portName);
        return false;
    }
    m_instrument.receive(bytes);
    return true;
}

QByteArray SimulatedLine::readAll()
{
    return std::exchange(m_received, {});
}

bool SimulatedLine::waitForData(int timeoutMs)
{
    if (!m_received.isEmpty())
        return true;
    if (!isOpen() || timeoutMs <= 0)
        return false;
    const qint64 deadline = m_clock.elapsedMs() + timeoutMs;
    while (m_received.isEmpty() && isOpen()) {
        if (!m_clock.runNextEventUntil(deadline)) {
            m_clock.advanceTo(deadline);
            break;
        }
    }
    return !m_received.isEmpty();
}
