#include "Instrument.h"

namespace {

QByteArray withoutLineEnd(const QByteArray &bytes)
{
    return bytes.endsWith("\r\n") ? bytes.chopped(2) : bytes;
}

constexpr int kMaxTelegramBytes = 1024;

} // namespace

Instrument::Instrument(Scheduler &scheduler, InstrumentState state, SimTiming timing)
    : m_scheduler(scheduler)
    , m_state(std::move(state))
    , m_timing(timing)
    , m_cpu(*this, m_state.board(BoardKind::Cpu))
    , m_meas(BoardKind::Meas, *this, m_state.board(BoardKind::Meas))
    , m_main(BoardKind::Main, *this, m_state.board(BoardKind::Main))
    , m_in(scheduler, timing.baud, [this](const QByteArray &bytes) { deliver(bytes); })
    , m_out(scheduler, timing.baud, [this](const QByteArray &bytes) { lineDelivered(bytes); })
    , m_unplugTimer(scheduler)
{
    if (m_state.poweredOn) {
        m_cpu.resume();
        m_meas.resume();
        m_main.resume();
    } else {
        m_cpu.switchedOff();
        m_meas.switchedOff();
        m_main.switchedOff();
    }
}

Instrument::~Instrument() = default;

// ---- the line ----

void Instrument::receive(const QByteArray &bytes)
{
    if (!m_plugged)
        return;
    QByteArrayList acted;
    const QByteArray filtered = m_faults.filter(FaultRule::Direction::In, bytes, &acted);
    noteFaults(acted);
    m_in.send(filtered);
}

void Instrument::deliver(const QByteArray &bytes)
{
    for (InstrumentObserver *o : m_observers)
        o->bytesArrived();
    if (!m_state.poweredOn)
        return;
    // One piece per line end: a telegram may change where the next bytes go.
    qsizetype from = 0;
    while (from < bytes.size()) {
        const qsizetype lf = bytes.indexOf('\n', from);
        const qsizetype end = lf < 0 ? bytes.size() : lf + 1;
        deliverPiece(bytes.mid(from, end - from));
        from = end;
    }
}

void Instrument::deliverPiece(const QByteArray &piece)
{
    if (m_cpu.takesBytes()) {
        m_cpu.bytes(piece);
        return;
    }
    PeripheralBoard *target = routedBoard();
    if (m_cpu.runsApplication() && !m_menuOpen && target && target->inBootloader()) {
        target->bytes(piece);
        // The CPU Board still hears a select telegram in the bytes it passes through.
        m_selectWatch = (m_selectWatch + piece).right(16);
        if (m_selectWatch.endsWith("\r\n")) {
            const QByteArray select = m_selectWatch.chopped(2).right(5);
            m_selectWatch.clear();
            int board = 0;
            if (isSelect(select, &board)) {
                if (!target->bootloaderListening())
                    trace(Trace::Entry::Received, select); // a listening one traced it
                InstrumentObserver::Exchange exchange;
                exchange.telegram = select;
                m_exchange = &exchange;
                route(select);
                m_exchange = nullptr;
            }
        }
        return;
    }
    if (!m_cpu.runsApplication() && !m_cpu.bootloaderReadsTelegrams())
        return; // the CPU Board is starting
    m_lineBuffer += piece;
    if (m_lineBuffer.size() > kMaxTelegramBytes)
        m_lineBuffer = m_lineBuffer.right(kMaxTelegramBytes);
    if (!m_lineBuffer.endsWith("\r\n"))
        return;
    const QByteArray telegram = m_lineBuffer.chopped(2);
    m_lineBuffer.clear();
    handleTelegram(telegram);
}

void Instrument::handleTelegram(const QByteArray &telegram)
{
    trace(Trace::Entry::Received, telegram);
    using Handler = InstrumentObserver::Handler;
    InstrumentObserver::Exchange exchange;
    exchange.telegram = telegram;
    m_exchange = &exchange;

    QByteArray replacement;
    bool unplugAfter = false;
    QByteArrayList acted;
    const FaultInjector::Fate fate =
        m_faults.onTelegram(telegram, &replacement, &unplugAfter, &acted);
    noteFaults(acted);

    if (fate == FaultInjector::Fate::Ignore) {
        exchange.handler = Handler::Fault;
    } else if (fate == FaultInjector::Fate::Replace) {
        exchange.handler = Handler::Fault;
        answer(BoardKind::Cpu, replacement);
    } else if (m_menuOpen) {
        exchange.handler = Handler::Menu;
        answer(BoardKind::Cpu, SimError::kMenuOpen);
    } else if (m_cpu.bootloaderReadsTelegrams()) {
        exchange.handler = Handler::CpuBootloader;
        m_cpu.telegram(telegram);
    } else {
        route(telegram);
    }
    m_exchange = nullptr;

    for (InstrumentObserver *o : m_observers)
        o->telegramHandled(exchange);
    if (unplugAfter) {
        // Pulled once the answer has crossed the line.
        const qint64 lineMs = (m_out.transferTimeUs(exchange.answer.size() + 2) + 999) / 1000;
        const qint64 delay = exchange.answer.isEmpty() ? 0 : m_timing.answerDelayMs + lineMs + 1;
        m_unplugTimer.start(delay, [this] { unplug(); });
    }
}

void Instrument::route(const QByteArray &telegram)
{
    using Handler = InstrumentObserver::Handler;
    int board = 0;
    if (isSelect(telegram, &board)) {
        m_exchange->handler = Handler::CpuApplication;
        m_state.route = board;
        m_selectWatch.clear();
        answer(BoardKind::Cpu, telegram);
        if (board >= 3)
            routedBoard()->bootSideSelected();
        return;
    }
    if (telegram.startsWith("DHR;")) {
        m_exchange->handler = Handler::CpuApplication;
        answer(BoardKind::Cpu, SimError::kBadArgument);
        return;
    }
    PeripheralBoard *target = routedBoard();
    if (!target) {
        m_exchange->handler = Handler::CpuApplication;
        m_cpu.telegram(telegram);
        return;
    }
    m_exchange->handler = target->kind() == BoardKind::Main ? Handler::Main : Handler::Meas;
    target->telegram(telegram, m_state.route >= 3);
}

bool Instrument::isSelect(const QByteArray &telegram, int *board) const
{
    if (telegram.size() != 5 || !telegram.startsWith("DHR;") || telegram.at(4) < '0' ||
        telegram.at(4) > '4')
        return false;
    *board = telegram.at(4) - '0';
    return true;
}

PeripheralBoard *Instrument::routedBoard()
{
    switch (m_state.route) {
    case 1:
    case 3:
        return &m_meas;
    case 2:
    case 4:
        return &m_main;
    default:
        return nullptr;
    }
}

bool Instrument::switchedThrough(BoardKind from) const
{
    if (!m_state.poweredOn)
        return false;
    if (from == BoardKind::Cpu)
        return true;
    if (!m_cpu.runsApplication() || m_menuOpen)
        return false;
    const int r = m_state.route;
    return from == BoardKind::Meas ? (r == 1 || r == 3) : (r == 2 || r == 4);
}

void Instrument::answer(BoardKind from, const QByteArray &text)
{
    if (m_exchange && m_exchange->answer.isEmpty())
        m_exchange->answer = text;
    send(from, text + "\r\n", m_timing.answerDelayMs);
}

void Instrument::send(BoardKind from, const QByteArray &bytes, int delayMs)
{
    if (delayMs <= 0) {
        emitBytes(from, bytes);
        return;
    }
    // Lost if the instrument is switched off meanwhile; harmless if it is gone.
    const quint64 cycle = m_powerCycle;
    std::weak_ptr<int> life = m_life;
    m_scheduler.scheduleIn(delayMs, [this, life, cycle, from, bytes] {
        if (!life.expired() && cycle == m_powerCycle)
            emitBytes(from, bytes);
    });
}

void Instrument::emitBytes(BoardKind from, const QByteArray &bytes)
{
    if (!switchedThrough(from) || m_faults.silentAt(m_scheduler.nowMs()))
        return;
    trace(Trace::Entry::Sent, withoutLineEnd(bytes));
    QByteArrayList acted;
    const QByteArray filtered = m_faults.filter(FaultRule::Direction::Out, bytes, &acted);
    noteFaults(acted);
    m_out.send(filtered);
}

void Instrument::lineDelivered(const QByteArray &bytes)
{
    if (m_plugged && m_sink)
        m_sink(bytes);
}

void Instrument::lineOpened()
{
    note(QByteArrayLiteral("line opened"));
    for (InstrumentObserver *o : m_observers)
        o->lineOpened();
}

void Instrument::lineClosed()
{
    note(QByteArrayLiteral("line closed"));
    for (InstrumentObserver *o : m_observers)
        o->lineClosed();
}

void Instrument::unplug()
{
    if (!m_plugged)
        return;
    m_plugged = false;
    m_unplugTimer.stop();
    m_in.clear();
    m_out.clear();
    m_lineBuffer.clear();
    note(QByteArrayLiteral("adapter unplugged"));
    if (m_plugListener)
        m_plugListener(false);
}

void Instrument::plug()
{
    if (m_plugged)
        return;
    m_plugged = true;
    note(QByteArrayLiteral("adapter plugged in"));
    if (m_plugListener)
        m_plugListener(true);
}

// ---- front panel ----

void Instrument::press(PanelKey key)
{
    note("key " + keyName(key));
    switch (key) {
    case PanelKey::ResetZero:
        if (m_state.poweredOn)
            switchOff();
        break;
    case PanelKey::Power:
    case PanelKey::UpdateMode:
        if (m_state.poweredOn)
            switchOff();
        else
            switchOn(key == PanelKey::UpdateMode);
        break;
    case PanelKey::MenuOpen:
        if (m_state.poweredOn && m_cpu.runsApplication())
            m_menuOpen = true;
        break;
    case PanelKey::MenuClose:
        m_menuOpen = false;
        break;
    }
}

void Instrument::switchOff()
{
    m_state.poweredOn = false;
    ++m_powerCycle;
    m_menuOpen = false;
    m_state.route = 0;
    m_lineBuffer.clear();
    m_selectWatch.clear();
    m_cpu.switchedOff();
    m_meas.switchedOff();
    m_main.switchedOff();
    note(QByteArrayLiteral("switched off"));
}

void Instrument::switchOn(bool updateMode)
{
    m_state.poweredOn = true;
    ++m_powerCycle;
    m_state.route = 0;
    note(QByteArrayLiteral("switched on"));
    m_cpu.switchedOn(updateMode);
    m_meas.switchedOn();
    m_main.switchedOn();
}

void Instrument::boardStarted(BoardKind kind)
{
    note(boardLabel(kind) + " running: " + modeName(m_state.board(kind).mode) + ", firmware " +
         m_state.board(kind).firmware);
    if (kind == BoardKind::Cpu) {
        // The CPU Board's routing starts at itself.
        m_state.route = 0;
        m_lineBuffer.clear();
        m_selectWatch.clear();
    }
}

// ---- contents ----

QByteArray Instrument::parameter(BoardKind kind, const QByteArray &key) const
{
    if (key == "SER")
        return QByteArray::number(m_state.serialNumber);
    return m_state.board(kind).values.value(key);
}

void Instrument::setParameter(BoardKind kind, const QByteArray &key, const QByteArray &value)
{
    if (key == "SER")
        m_state.serialNumber = value.toInt();
    else
        m_state.board(kind).values.insert(key, value);
}

const QByteArray &Instrument::lastImage(BoardKind kind) const
{
    switch (kind) {
    case BoardKind::Meas:
        return m_meas.lastImage();
    case BoardKind::Main:
        return m_main.lastImage();
    default:
        return m_cpu.lastImage();
    }
}

void Instrument::addFault(const FaultRule &rule)
{
    m_faults.add(rule, m_scheduler.nowMs());
    note("fault rule added: " + rule.toText());
}

void Instrument::addObserver(InstrumentObserver *observer)
{
    m_observers.push_back(observer);
}

void Instrument::removeObserver(InstrumentObserver *observer)
{
    std::erase(m_observers, observer);
}

// ---- BoardHost ----

void Instrument::noteFaults(const QByteArrayList &rules)
{
    for (const QByteArray &rule : rules)
        note("fault: " + rule);
}

void Instrument::trace(Trace::Entry::Kind kind, const QByteArray &text)
{
    m_trace.add(m_scheduler.nowMs(), kind, text);
}

void Instrument::parameterWritten(BoardKind, const QByteArray &)
{
    if (m_exchange)
        m_exchange->wroteParameter = true;
}

bool Instrument::refuseBlock(int index)
{
    QByteArrayList acted;
    const bool refuse = m_faults.refuseBlock(index, &acted);
    noteFaults(acted);
    return refuse;
}

void Instrument::blockAcknowledged(int index)
{
    QByteArrayList acted;
    if (!m_faults.unplugAfterBlock(index, &acted))
        return;
    noteFaults(acted);
    const qint64 lineMs = (m_out.transferTimeUs(1) + 999) / 1000;
    m_unplugTimer.start(m_timing.answerDelayMs + lineMs + 1, [this] { unplug(); });
}
