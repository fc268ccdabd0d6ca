#pragma once

#include "Instrument.h"
#include "Scheduler.h"
#include "SimulatedLine.h"

// An in-process instrument ready for a test: the model on virtual time and the serial line to it.
//
//   VirtualClock clock;
//   SimulatedInstrument sim(clock);
//   comm.setLine(&sim.line());            // the code under test talks to sim.line()
//   sim.instrument().press(PanelKey::ResetZero);
//
// Lives on the test's thread; the clock must outlive it.
class SimulatedInstrument
{
public:
    explicit SimulatedInstrument(VirtualClock &clock,
                                 InstrumentState state = InstrumentState::defaults(),
                                 SimTiming timing = {})
        : m_scheduler(clock)
        , m_instrument(m_scheduler, std::move(state), timing)
        , m_line(m_instrument, clock)
    {
    }

    Instrument &instrument() { return m_instrument; }
    SimulatedLine &line() { return m_line; }
    Scheduler &scheduler() { return m_scheduler; }

private:
    VirtualScheduler m_scheduler;
    Instrument m_instrument;
    SimulatedLine m_line;
};
