#pragma once

#include "BoardHost.h"
#include "CpuBoard.h"
#include "FaultInjector.h"
#include "InstrumentState.h"
#include "LinePacer.h"
#include "PeripheralBoard.h"
#include "Trace.h"

#include <functional>
#include <memory>
#include <vector>

// What a watcher of the instrument (the auto-operator) learns.
//
// Called on the instrument's thread.
class InstrumentObserver
{
public:
    enum class Handler { CpuApplication, CpuBootloader, Meas, Main, Menu, Fault, Nobody };

    struct Exchange
    {
        QByteArray telegram;
        QByteArray answer; // the answer text without CR LF; empty when none
        Handler handler = Handler::Nobody;
        bool wroteParameter = false;
    };

    virtual ~InstrumentObserver() = default;
    // Bytes from the line reached the instrument.
    virtual void bytesArrived() { }
    // A telegram was handled (the answer is on its way).
    virtual void telegramHandled(const Exchange &) { }
    // The updater opened or closed its port.
    virtual void lineOpened() { }
    virtual void lineClosed() { }
};

// The simulated instrument: three boards behind the CPU Board, which owns the serial line and
// switches it through to a board with "DHR;n" (0 itself, 1 Measuring Module, 2 Main Board, 3 and
// 4 their bootloader sides). Transport-agnostic: bytes from the line go in through receive(),
// bytes to the line come out of the sink, and time comes from a Scheduler, so the same model
// runs in-process on a VirtualClock (SimulatedLine) and in real time in varimo-sim.
//
// Routing: while the selected board runs its application, the CPU Board passes whole telegrams
// and answers; while it runs its bootloader, bytes pass as they come (the CPU Board still sees a
// select telegram). Output of a board that is not switched through is lost.
//
// Front panel: RESET+ZERO switches the instrument off (hard reset); POWER switches it on (or
// off); RANGE+SETUP+POWER switches it on with the CPU Board in its update mode (when on, it acts
// as POWER); the setup menu, while open, answers every telegram "E;03".
//
// Lives on the thread that drives it (the test's thread or varimo-sim's main thread).
class Instrument final : public BoardHost
{
public:
    using Sink = std::function<void(const QByteArray &)>;

    explicit Instrument(Scheduler &scheduler, InstrumentState state = InstrumentState::defaults(),
                        SimTiming timing = {});
    ~Instrument() override;
    Instrument(const Instrument &) = delete;
    Instrument &operator=(const Instrument &) = delete;

    // The line. receive() takes bytes from the updater; the sink gets bytes for the updater when
    // they have crossed the line.
    void receive(const QByteArray &bytes);
    void setSink(Sink sink) { m_sink = std::move(sink); }
    void lineOpened();
    void lineClosed();

    // The serial adapter. While unplugged nothing passes; the listener hears of every change.
    bool plugged() const { return m_plugged; }
    void unplug();
    void plug();
    void setPlugListener(std::function<void(bool plugged)> listener)
    {
        m_plugListener = std::move(listener);
    }

    // The front panel.
    void press(PanelKey key);
    bool poweredOn() const { return m_state.poweredOn; }
    bool menuOpen() const { return m_menuOpen; }

    // Contents. Values are bytes; keys are the query telegrams ("CH", "HVC;2", "DUV;5").
    const InstrumentState &state() const { return m_state; }
    BoardState &board(BoardKind kind) { return m_state.board(kind); }
    QByteArray parameter(BoardKind kind, const QByteArray &key) const;
    void setParameter(BoardKind kind, const QByteArray &key, const QByteArray &value);
    int route() const { return m_state.route; }
    const QByteArray &lastImage(BoardKind kind) const;
    const CpuBoard &cpu() const { return m_cpu; }

    Trace &trace() { return m_trace; }
    // Adds a fault rule, counted from now.
    void addFault(const FaultRule &rule);
    FaultInjector &faults() { return m_faults; }
    const SimTiming &timing() const override { return m_timing; }

    void addObserver(InstrumentObserver *observer);
    void removeObserver(InstrumentObserver *observer);

    // BoardHost
    Scheduler &scheduler() override { return m_scheduler; }
    int serialNumber() const override { return m_state.serialNumber; }
    void answer(BoardKind from, const QByteArray &text) override;
    void send(BoardKind from, const QByteArray &bytes, int delayMs = 0) override;
    void trace(Trace::Entry::Kind kind, const QByteArray &text) override;
    void parameterWritten(BoardKind kind, const QByteArray &key) override;
    void boardStarted(BoardKind kind) override;
    bool refuseBlock(int index) override;
    void blockAcknowledged(int index) override;

private:
    void deliver(const QByteArray &bytes);
    void deliverPiece(const QByteArray &piece);
    void handleTelegram(const QByteArray &telegram);
    void route(const QByteArray &telegram);
    bool isSelect(const QByteArray &telegram, int *board) const;
    PeripheralBoard *routedBoard();
    bool switchedThrough(BoardKind from) const;
    void emitBytes(BoardKind from, const QByteArray &bytes);
    void lineDelivered(const QByteArray &bytes);
    void switchOn(bool updateMode);
    void switchOff();
    void note(const QByteArray &text) { trace(Trace::Entry::Event, text); }
    void noteFaults(const QByteArrayList &rules);

    Scheduler &m_scheduler;
    InstrumentState m_state;
    SimTiming m_timing;
    Trace m_trace;
    FaultInjector m_faults;
    CpuBoard m_cpu;
    PeripheralBoard m_meas;
    PeripheralBoard m_main;
    LinePacer m_in;
    LinePacer m_out;
    Sink m_sink;
    std::function<void(bool)> m_plugListener;
    std::vector<InstrumentObserver *> m_observers;
    SimTimer m_unplugTimer;

    bool m_plugged = true;
    bool m_menuOpen = false;
    QByteArray m_lineBuffer; // a telegram being received
    QByteArray m_selectWatch; // the tail of bytes passed to a bootloader
    InstrumentObserver::Exchange *m_exchange = nullptr; // the telegram being handled
    quint64 m_powerCycle = 0; // answers scheduled before a switch-off are lost
    std::shared_ptr<int> m_life = std::make_shared<int>(0); // guards scheduled sends
};
