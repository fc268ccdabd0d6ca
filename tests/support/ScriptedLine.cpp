#include "ScriptedLine.h"

using namespace Qt::StringLiterals;

void ScriptedLine::deliverAt(qint64 atMs, const QByteArray &bytes)
{
    m_clock.schedule(atMs, [this, bytes] {
        if (isOpen())
            m_received += bytes;
    });
}

bool ScriptedLine::setPortName(const QString &name)
{
    m_portName = name;
    return !name.isEmpty();
}

bool ScriptedLine::setSettings(const QString &s)
{
    settings = s;
    return true;
}

bool ScriptedLine::open()
{
    if (openFails || unplugged) {
        m_error = m_portName + u": no such device"_s;
        return false;
    }
    m_open = true;
    return true;
}

bool ScriptedLine::write(const QByteArray &bytes)
{
    if (!isOpen())
        return false;
    writes << bytes;
    Reply reply;
    if (!m_replies.empty()) {
        reply = m_replies.front();
        m_replies.pop_front();
    } else if (m_responder) {
        reply = m_responder(bytes);
    }
    if (!reply.bytes.isEmpty())
        deliverAt(m_clock.elapsedMs() + reply.delayMs, reply.bytes);
    return true;
}

bool ScriptedLine::waitForData(int timeoutMs)
{
    const qint64 deadline = m_clock.elapsedMs() + qMax(timeoutMs, 0);
    while (m_received.isEmpty() && isOpen() && m_clock.runNextEventUntil(deadline)) { }
    if (m_received.isEmpty())
        m_clock.advanceTo(deadline);
    return !m_received.isEmpty();
}
