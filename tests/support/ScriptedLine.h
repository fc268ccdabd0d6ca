#pragma once

#include "link/Clock.h"
#include "link/SerialLine.h"

#include <QList>
#include <deque>
#include <functional>
#include <utility>

// A serial line for tests of the transceiver alone: each write takes the next scripted reply,
// which arrives after a delay of virtual time. A reply may be empty (silence). Everything
// written is recorded.
class ScriptedLine : public SerialLine
{
public:
    struct Reply
    {
        QByteArray bytes; // empty: the instrument stays silent
        int delayMs = 5;
    };

    explicit ScriptedLine(VirtualClock &clock)
        : m_clock(clock)
    {
    }

    // Replies to the next writes, in order; once used up, the line is silent.
    void script(std::initializer_list<Reply> replies)
    {
        m_replies.insert(m_replies.end(), replies);
    }
    // Or a reply computed from what was written (used when no scripted reply is left).
    void setResponder(std::function<Reply(const QByteArray &)> responder)
    {
        m_responder = std::move(responder);
    }
    // Bytes that arrive at a given virtual time, unasked.
    void deliverAt(qint64 atMs, const QByteArray &bytes);

    bool setPortName(const QString &name) override;
    QString portName() const override { return m_portName; }
    bool setSettings(const QString &settings) override;
    bool open() override;
    void close() override { m_open = false; }
    bool isOpen() const override { return m_open && !unplugged; }
    void discardInput() override
    {
        m_received.clear();
        ++discards;
    }
    bool write(const QByteArray &bytes) override;
    QByteArray readAll() override { return std::exchange(m_received, {}); }
    bool waitForData(int timeoutMs) override;
    QString errorString() const override { return m_error; }

    QList<QByteArray> writes;
    QString settings;
    bool openFails = false;
    bool unplugged = false;
    int discards = 0;

private:
    VirtualClock &m_clock;
    QString m_portName;
    QString m_error;
    bool m_open = false;
    QByteArray m_received;
    std::deque<Reply> m_replies;
    std::function<Reply(const QByteArray &)> m_responder;
};
