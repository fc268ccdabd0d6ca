#include "CpuBoard.h"

#include "ParameterCatalog.h"
#include "link/cCRC.h"

CpuBoard::CpuBoard(BoardHost &host, BoardState &state)
    : m_host(host)
    , m_state(state)
    , m_bootloader(BoardKind::Cpu, host, state)
    , m_startTimer(host.scheduler())
    , m_announceTimer(host.scheduler())
{
}

QByteArray CpuBoard::unlockTelegram(const QByteArray &code)
{
    return cCRC::appendCrcToString("XUX;" + code + ';');
}

bool CpuBoard::takesBytes() const
{
    return m_state.mode == BoardMode::Requesting || m_state.mode == BoardMode::Receiving;
}

bool CpuBoard::bootloaderReadsTelegrams() const
{
    return m_state.mode == BoardMode::UpdateMode || m_state.mode == BoardMode::Waiting;
}

void CpuBoard::switchedOn(bool updateMode)
{
    switchedOff();
    if (updateMode) {
        m_state.mode = BoardMode::UpdateMode;
        m_host.trace(Trace::Entry::Event, QByteArrayLiteral("CPU Board: update mode"));
        announceSoon();
        return;
    }
    m_state.mode = BoardMode::Restarting;
    m_startTimer.start(m_host.timing().bootTimeMs, [this] {
        m_state.mode = m_state.imageValid ? BoardMode::Application : BoardMode::Waiting;
        m_host.boardStarted(BoardKind::Cpu);
    });
}

void CpuBoard::switchedOff()
{
    m_bootloader.stop();
    m_startTimer.stop();
    m_announceTimer.stop();
    m_keyLock = QByteArrayLiteral("1");
    m_unlockAsked = m_unlocked = false;
    m_state.mode = m_state.imageValid ? BoardMode::Application : BoardMode::Waiting;
}

void CpuBoard::resume()
{
    m_state.mode = InstrumentState::settledMode(BoardKind::Cpu, m_state.mode);
    if (m_state.mode == BoardMode::UpdateMode)
        announceSoon();
    else if (m_state.mode == BoardMode::Requesting)
        m_bootloader.startRequesting(m_host.timing().firstRequestDelayMs);
}

void CpuBoard::bytes(const QByteArray &bytes)
{
    m_bootloader.receive(bytes);
}

void CpuBoard::announceSoon()
{
    m_announceTimer.start(m_host.timing().answerDelayMs + m_host.timing().announceDelayMs,
                          [this] { m_host.send(BoardKind::Cpu, kBootloaderIdentity + "\r\n"); });
}

void CpuBoard::startRequesting()
{
    m_announceTimer.stop();
    m_bootloader.startRequesting(m_host.timing().firstRequestDelayMs);
}

void CpuBoard::telegram(const QByteArray &telegram)
{
    switch (m_state.mode) {
    case BoardMode::Application:
        application(telegram);
        break;
    case BoardMode::UpdateMode:
        if (telegram == "DHR;0") {
            answer(telegram);
            announceSoon();
        } else if (telegram == "KVT") {
            answer(kBootloaderIdentity);
        } else if (telegram == "F") {
            startRequesting();
        } else {
            answer(SimError::kBootloaderWaiting);
        }
        break;
    case BoardMode::Waiting:
        if (telegram == "F")
            startRequesting();
        else
            answer(SimError::kBootloaderWaiting);
        break;
    default:
        break;
    }
}

void CpuBoard::application(const QByteArray &telegram)
{
    if (telegram == "KVT") {
        answer("KVT;" + m_state.name + ';' + m_state.firmware + ';' + m_state.build);
    } else if (telegram == "SER") {
        answer("SER;" + QByteArray::number(m_host.serialNumber()));
    } else if (telegram.startsWith("SER;")) {
        answer(SimError::kReadOnly);
    } else if (telegram == "KEY;0" || telegram == "KEY;1") {
        m_keyLock = telegram.mid(4);
        answer(telegram);
    } else if (telegram.startsWith("KEY;")) {
        answer(SimError::kBadArgument);
    } else if (telegram == "XUC") {
        m_unlockAsked = true;
        answer(telegram);
    } else if (telegram.startsWith("XUX;")) {
        const bool right = m_unlockAsked && telegram == unlockTelegram();
        m_unlockAsked = false;
        m_unlocked = m_unlocked || right;
        answer(right ? QByteArrayLiteral("XUX") : SimError::kAccessDenied);
    } else if (telegram == "USR") {
        if (!m_unlocked) {
            answer(SimError::kWriteLocked);
            return;
        }
        // The values are stored; the board locks again.
        m_unlocked = false;
        m_host.trace(Trace::Entry::Event, QByteArrayLiteral("CPU Board: values stored, locked"));
        answer(telegram);
    } else if (telegram.startsWith("DPV;") || telegram.startsWith("DUV;")) {
        indexedValue(telegram);
    } else {
        answer(SimError::kUnknownTelegram);
    }
}

void CpuBoard::indexedValue(const QByteArray &telegram)
{
    // "DPV;i" reads, "DPV;i;value" writes (the value may hold ";").
    const qsizetype valueAt = telegram.indexOf(';', 4);
    const QByteArray index = telegram.mid(4, valueAt < 0 ? -1 : valueAt - 4);
    bool ok = false;
    const int i = index.toInt(&ok);
    const QByteArray key = telegram.left(4) + index;
    if (!ok || QByteArray::number(i) != index || !ParameterCatalog::contains(BoardKind::Cpu, key)) {
        answer(SimError::kBadArgument);
        return;
    }
    if (valueAt < 0) {
        const QByteArray body = key + ';' + m_state.values.value(key) + ';';
        answer(cCRC::appendCrcToString(body));
        return;
    }
    if (!m_unlocked) {
        answer(SimError::kWriteLocked);
        return;
    }
    m_state.values.insert(key, telegram.mid(valueAt + 1));
    m_host.parameterWritten(BoardKind::Cpu, key);
    answer(telegram);
}
