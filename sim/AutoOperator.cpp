#include "AutoOperator.h"

AutoOperator::AutoOperator(Instrument &instrument, int delayMs)
    : m_instrument(instrument)
    , m_delayMs(delayMs)
    , m_silenceTimer(instrument.scheduler())
    , m_closedTimer(instrument.scheduler())
    , m_menuTimer(instrument.scheduler())
    , m_keyTimer(instrument.scheduler())
{
    m_instrument.addObserver(this);
}

AutoOperator::~AutoOperator()
{
    m_instrument.removeObserver(this);
}

void AutoOperator::bytesArrived()
{
    m_silenceTimer.stop();
}

void AutoOperator::telegramHandled(const Exchange &exchange)
{
    const QByteArray &telegram = exchange.telegram;
    m_lastTelegram = telegram;

    if (exchange.answer == SimError::kMenuOpen && !m_menuTimer.isActive()) {
        m_menuTimer.start(m_delayMs, [this] {
            m_instrument.trace().add(m_instrument.scheduler().nowMs(), Trace::Entry::Event,
                                     QByteArrayLiteral("auto-operator: leave the setup menu"));
            m_instrument.press(PanelKey::MenuClose);
        });
    }

    if (exchange.handler == Handler::Main && exchange.wroteParameter)
        m_mainRestartDue = true;
    else if (telegram == "KEY;0" && exchange.answer == "KEY;0")
        m_mainRestartDue = false;
    else if (telegram != "DHR;0" && telegram != "KEY;0" && exchange.handler != Handler::Main)
        m_mainRestartDue = false;

    if (telegram == "DHR;0" && exchange.answer == "DHR;0" &&
        exchange.handler == Handler::CpuApplication) {
        const bool restart = m_mainRestartDue;
        m_silenceTimer.start(m_delayMs, [this, restart] {
            if (restart)
                press({PanelKey::ResetZero, PanelKey::Power}, "restart after the Main Board");
            else
                press({PanelKey::ResetZero, PanelKey::UpdateMode}, "CPU Board update mode");
        });
    }
}

void AutoOperator::lineOpened()
{
    m_closedTimer.stop();
}

void AutoOperator::lineClosed()
{
    if (m_lastTelegram == "KEY;1")
        return;
    m_closedTimer.start(m_delayMs, [this] {
        press({PanelKey::ResetZero, PanelKey::Power}, "reset and restart after a failure");
    });
}

void AutoOperator::press(const QList<PanelKey> &keys, const QByteArray &why)
{
    if (keys.isEmpty())
        return;
    if (!why.isEmpty())
        m_instrument.trace().add(m_instrument.scheduler().nowMs(), Trace::Entry::Event,
                                 "auto-operator: " + why);
    m_instrument.press(keys.first());
    const QList<PanelKey> rest = keys.mid(1);
    if (!rest.isEmpty())
        m_keyTimer.start(m_instrument.timing().keyGapMs, [this, rest] { press(rest, {}); });
}
