#pragma once

#include "SimulatedInstrument.h"
#include "link/Clock.h"

#include <QByteArrayList>

// Talks to an in-process instrument the way a terminal would: telegrams out, bytes back, on
// virtual time.
struct SimDriver
{
    explicit SimDriver(InstrumentState state = InstrumentState::defaults(), SimTiming timing = {})
        : sim(clock, std::move(state), timing)
    {
        sim.line().setPortName(QStringLiteral("sim"));
        sim.line().open();
    }

    Instrument &instrument() { return sim.instrument(); }
    SimulatedLine &line() { return sim.line(); }
    qint64 now() const { return clock.elapsedMs(); }

    void write(const QByteArray &bytes) { line().write(bytes); }
    // Everything that arrives within ms.
    QByteArray readFor(int ms) { return readUntil({}, ms); }
    // What arrives until `end` has come or timeoutMs has passed.
    QByteArray readUntil(const QByteArray &end, int timeoutMs);
    // Sends the telegram with CR LF and returns the answer without it (or what came by the time
    // out).
    QByteArray ask(const QByteArray &telegram, int timeoutMs = 1000);

    // Runs a script of steps separated by blanks and returns the steps that went otherwise (""
    // when all went as written): "telegram" expects its echo, "telegram=answer" that answer,
    // "telegram=" silence; "@ms" waits; "!key" presses a panel key ("!plug", "!unplug" the
    // adapter); "close" closes the line, "open" opens it, "open=" must fail to.
    QByteArray talk(const QByteArray &script, int timeoutMs = 1000);

    // The keys pressed so far, from the trace.
    QByteArrayList keys();

    VirtualClock clock;
    SimulatedInstrument sim;
};

// An XMODEM-CRC block as the updater sends it.
QByteArray xmodemBlock(quint8 number, const QByteArray &data128);
// Sends the blocks and the EOT (waiting up to 1 s for each ACK or NAK); returns the answers, one
// byte each (0 for none).
QByteArray sendBlocks(SimDriver &driver, const QByteArrayList &blocks);
// The image's blocks, numbered from firstBlock.
QByteArrayList xmodemBlocks(const QByteArray &image, int firstBlock = 1);
