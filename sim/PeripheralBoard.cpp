#include "PeripheralBoard.h"

#include "ParameterCatalog.h"

PeripheralBoard::PeripheralBoard(BoardKind kind, BoardHost &host, BoardState &state)
    : m_kind(kind)
    , m_host(host)
    , m_state(state)
    , m_bootloader(kind, host, state)
    , m_startTimer(host.scheduler())
    , m_jumpTimer(host.scheduler())
{
}

bool PeripheralBoard::inBootloader() const
{
    return m_state.mode == BoardMode::Idle || m_state.mode == BoardMode::Requesting ||
        m_state.mode == BoardMode::Receiving;
}

void PeripheralBoard::switchedOn()
{
    switchedOff();
    m_state.mode = BoardMode::Restarting;
    m_startTimer.start(m_host.timing().bootTimeMs, [this] {
        m_state.mode = m_state.imageValid ? BoardMode::Application : BoardMode::Idle;
        m_host.boardStarted(m_kind);
    });
}

void PeripheralBoard::switchedOff()
{
    m_bootloader.stop();
    m_startTimer.stop();
    m_jumpTimer.stop();
    m_writeEnabled = false;
    m_busyUntilMs = -1;
    m_state.mode = m_state.imageValid ? BoardMode::Application : BoardMode::Idle;
}

void PeripheralBoard::resume()
{
    m_state.mode = InstrumentState::settledMode(m_kind, m_state.mode);
    if (m_state.mode == BoardMode::Requesting)
        m_bootloader.startRequesting(m_host.timing().firstRequestDelayMs);
}

void PeripheralBoard::bytes(const QByteArray &bytes)
{
    // An idle bootloader does not listen until its bootloader side is selected.
    if (bootloaderListening())
        m_bootloader.receive(bytes);
}

void PeripheralBoard::bootSideSelected()
{
    if (m_state.mode != BoardMode::Idle)
        return;
    m_host.trace(Trace::Entry::Event, boardLabel(m_kind) + ": bootloader starts asking");
    m_bootloader.startRequesting(m_host.timing().firstRequestDelayMs);
}

void PeripheralBoard::telegram(const QByteArray &telegram, bool bootSide)
{
    if (m_state.mode != BoardMode::Application)
        return;
    if (m_host.scheduler().nowMs() < m_busyUntilMs) {
        m_host.trace(Trace::Entry::Event, boardLabel(m_kind) + ": storing, telegram not heard");
        return;
    }
    if (telegram == "KVT") {
        answer("KVT;" + m_state.name + ';' + m_state.firmware + ';' + m_state.build);
    } else if (telegram == "BOT;$") {
        if (!bootSide) {
            answer(SimError::kUnknownTelegram);
            return;
        }
        answer(telegram);
        const SimTiming &t = m_host.timing();
        m_jumpTimer.start(t.answerDelayMs + t.jumpDelayMs, [this] { jump(); });
    } else if (telegram == "CEW;1" || telegram == "CEW;0") {
        m_writeEnabled = telegram == "CEW;1";
        answer(telegram);
    } else {
        parameter(telegram);
    }
}

void PeripheralBoard::parameter(const QByteArray &telegram)
{
    // The longest parameter key that is the whole telegram (a query) or is followed by ";" (a
    // write of the rest, which may itself hold ";").
    QByteArray key;
    for (const QByteArray &candidate : ParameterCatalog::keys(m_kind)) {
        if (candidate.size() > key.size() &&
            (telegram == candidate || telegram.startsWith(candidate + ';')))
            key = candidate;
    }
    if (key.isEmpty()) {
        answer(telegram.startsWith("CEW;") ? SimError::kBadArgument : SimError::kUnknownTelegram);
        return;
    }
    if (telegram == key) {
        const QByteArray value =
            key == "SER" ? QByteArray::number(m_host.serialNumber()) : m_state.values.value(key);
        answer(key + ';' + value);
        return;
    }
    const QByteArray value = telegram.mid(key.size() + 1);
    const bool enabled = m_writeEnabled || m_state.values.value("CEO") == "1";
    m_writeEnabled = false;
    if (ParameterCatalog::isReadOnly(key)) {
        answer(SimError::kReadOnly);
    } else if (!enabled) {
        answer(SimError::kWriteLocked);
    } else if (key == "CEO" && value != "0" && value != "1") {
        answer(SimError::kBadArgument);
    } else {
        m_state.values.insert(key, value);
        m_host.parameterWritten(m_kind, key);
        answer(telegram);
        if (key == "CEO" && value == "1") {
            const SimTiming &t = m_host.timing();
            m_busyUntilMs = m_host.scheduler().nowMs() + t.answerDelayMs + t.storeBusyMs;
        }
    }
}

void PeripheralBoard::jump()
{
    m_host.trace(Trace::Entry::Event, boardLabel(m_kind) + ": jumps to its bootloader");
    m_host.send(m_kind,
                m_kind == BoardKind::Main ? QByteArrayLiteral("BLSP;1\r\n")
                                          : QByteArrayLiteral("BLMM;1\r\n"));
    m_bootloader.startRequesting(m_host.timing().firstRequestDelayMs);
}
