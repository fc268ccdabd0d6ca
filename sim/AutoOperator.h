#pragma once

#include "Instrument.h"

#include <QList>

// Presses the keys a waiting updater asks for, inferring from the line what it waits for:
//
// 1. Setup menu: a telegram answered "E;03" -> after the delay, close the menu.
// 2. Main Board restart: "DHR;0" echoed by the CPU Board application, the telegram before it
//    having written a Main Board parameter (or only "DHR;0"/"KEY;0" since such a write), and the
//    line silent for the delay -> RESET+ZERO, then POWER. The wait ends when "KEY;0" is echoed.
// 3. CPU update mode: "DHR;0" echoed by the CPU Board application in any other case, and the line
//    silent for the delay -> RESET+ZERO, then RANGE+SETUP+POWER.
// 4. After a failed pass: the updater closed its port without "KEY;1" as its last telegram (not
//    a Disconnect) and kept it closed for the delay -> RESET+ZERO, then POWER.
//
// Any byte from the line cancels a pending 2 or 3; opening the port cancels 4. The second key
// follows the first after SimTiming::keyGapMs.
//
// Lives on the instrument's thread.
class AutoOperator final : public InstrumentObserver
{
public:
    static constexpr int kDefaultDelayMs = 700;

    AutoOperator(Instrument &instrument, int delayMs = kDefaultDelayMs);
    ~AutoOperator() override;
    AutoOperator(const AutoOperator &) = delete;
    AutoOperator &operator=(const AutoOperator &) = delete;

    void bytesArrived() override;
    void telegramHandled(const Exchange &exchange) override;
    void lineOpened() override;
    void lineClosed() override;

private:
    void press(const QList<PanelKey> &keys, const QByteArray &why);

    Instrument &m_instrument;
    int m_delayMs;
    SimTimer m_silenceTimer;
    SimTimer m_closedTimer;
    SimTimer m_menuTimer;
    SimTimer m_keyTimer;
    bool m_mainRestartDue = false;
    QByteArray m_lastTelegram;
};
