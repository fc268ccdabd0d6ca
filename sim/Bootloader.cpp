#include "Bootloader.h"

#include "FirmwareImage.h"

#include <QCryptographicHash>

Bootloader::Bootloader(BoardKind kind, BoardHost &host, BoardState &state)
    : m_kind(kind)
    , m_host(host)
    , m_state(state)
    , m_requestTimer(host.scheduler())
    , m_gapTimer(host.scheduler())
    , m_idleTimer(host.scheduler())
    , m_restartTimer(host.scheduler())
{
}

void Bootloader::startRequesting(int firstDelayMs)
{
    stop();
    m_receiver.reset();
    m_state.mode = BoardMode::Requesting;
    m_requestTimer.start(firstDelayMs, [this] { request(); });
}

void Bootloader::stop()
{
    m_requestTimer.stop();
    m_gapTimer.stop();
    m_idleTimer.stop();
    m_restartTimer.stop();
}

void Bootloader::request()
{
    m_host.send(m_kind, QByteArrayLiteral("C"));
    m_requestTimer.start(m_host.timing().requestIntervalMs, [this] { request(); });
}

void Bootloader::receive(const QByteArray &bytes)
{
    if (m_state.mode != BoardMode::Requesting && m_state.mode != BoardMode::Receiving)
        return;
    const auto events =
        m_receiver.feed(bytes, [this](int index) { return m_host.refuseBlock(index); });
    if (m_state.mode == BoardMode::Requesting && m_receiver.started()) {
        m_state.mode = BoardMode::Receiving;
        m_requestTimer.stop();
        if (m_state.imageValid) {
            m_state.imageValid = false;
            m_host.trace(Trace::Entry::Event,
                         boardLabel(m_kind) + ": transfer started, image erased");
        }
    }
    const bool receiving = m_state.mode == BoardMode::Receiving;
    for (const XmodemReceiver::Event &event : events) {
        handle(event);
        if (receiving && m_state.mode != BoardMode::Receiving)
            return; // finished or failed: the rest is not for this transfer
    }
    if (m_state.mode != BoardMode::Receiving)
        return;
    m_idleTimer.start(m_host.timing().receiveIdleTimeoutMs,
                      [this] { fail(QByteArrayLiteral("transfer broke off")); });
    if (m_receiver.hasPartialBlock()) {
        m_gapTimer.start(m_host.timing().blockGapTimeoutMs, [this] {
            m_receiver.dropPartialBlock();
            m_host.trace(Trace::Entry::Block, QByteArrayLiteral("partial block dropped"));
            m_host.send(m_kind, QByteArray(1, XmodemReceiver::kNak));
        });
    } else {
        m_gapTimer.stop();
    }
}

void Bootloader::handle(const XmodemReceiver::Event &event)
{
    using Event = XmodemReceiver::Event;
    const int delay = m_host.timing().answerDelayMs;
    const QByteArray ack(1, XmodemReceiver::kAck);
    const QByteArray nak(1, XmodemReceiver::kNak);
    switch (event.type) {
    case Event::Block:
        m_host.trace(Trace::Entry::Block, "block " + QByteArray::number(event.index));
        m_host.send(m_kind, ack, delay);
        m_host.blockAcknowledged(event.index);
        break;
    case Event::Repeat:
        m_host.trace(Trace::Entry::Block, "repeat " + QByteArray::number(event.index));
        m_host.send(m_kind, ack, delay);
        break;
    case Event::Refused:
        m_host.trace(Trace::Entry::Block,
                     "refused " + QByteArray::number(event.index) + ": " + event.text);
        m_host.send(m_kind, nak, delay);
        break;
    case Event::EndOfTransmission:
        m_host.trace(Trace::Entry::Block, QByteArrayLiteral("EOT"));
        m_host.send(m_kind, ack, delay);
        // An EOT before any block (a repeated one, or noise) ends nothing.
        if (m_receiver.blocksKept() > 0)
            finish();
        break;
    case Event::Cancelled:
        m_host.trace(Trace::Entry::Block, QByteArrayLiteral("CAN"));
        if (m_state.mode == BoardMode::Receiving)
            fail(QByteArrayLiteral("transfer cancelled by the sender"));
        break;
    case Event::Text:
        // A telegram the bootloader does not read.
        m_host.trace(Trace::Entry::Received, event.text);
        break;
    }
}

void Bootloader::finish()
{
    m_gapTimer.stop();
    m_idleTimer.stop();
    m_lastImage = m_receiver.data();
    m_receiver.reset();
    const QByteArray sha =
        QCryptographicHash::hash(m_lastImage, QCryptographicHash::Sha256).toHex();
    FirmwareImage::Header header;
    QString why;
    if (!FirmwareImage::parse(m_lastImage, m_kind, &header, &why)) {
        fail("image of " + QByteArray::number(m_lastImage.size()) + " bytes (sha256 " + sha +
             ") refused: " + why.toLatin1());
        return;
    }
    if (!header.name.isEmpty())
        m_state.name = header.name;
    m_state.firmware = header.firmware;
    m_state.build = header.build;
    m_state.imageValid = true;
    InstrumentState::resetToFactory(m_kind, m_state);
    m_state.mode = BoardMode::Restarting;
    m_host.trace(Trace::Entry::Event,
                 boardLabel(m_kind) + ": image of " + QByteArray::number(m_lastImage.size()) +
                     " bytes flashed (sha256 " + sha + "), firmware " + header.firmware +
                     " build " + header.build + ", parameters reset to factory values");
    m_restartTimer.start(m_host.timing().restartDelayMs, [this] {
        m_state.mode = BoardMode::Application;
        m_host.boardStarted(m_kind);
    });
}

void Bootloader::fail(const QByteArray &why)
{
    stop();
    m_receiver.reset();
    m_state.imageValid = false;
    m_host.trace(Trace::Entry::Event, boardLabel(m_kind) + ": " + why + "; no image");
    if (m_kind == BoardKind::Cpu)
        m_state.mode = BoardMode::Waiting;
    else
        startRequesting(m_host.timing().firstRequestDelayMs);
}
