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
    QByteArray readUntil(const QByteArray &end, int timeoutMs)
    {
        const qint64 deadline = now() + timeoutMs;
        QByteArray got;
        while (now() < deadline && (end.isEmpty() || !got.contains(end))) {
            if (!line().isOpen())
                clock.advanceTo(deadline); // a closed line does not wait
            line().waitForData(int(deadline - now()));
            got += line().readAll();
        }
        return got;
    }

    // Sends the telegram with CR LF and returns the answer without it (or what came by the time
    // out).
    QByteArray ask(const QByteArray &telegram, int timeoutMs = 1000)
    {
        line().discardInput();
        write(telegram + "\r\n");
        const QByteArray got = readUntil(QByteArrayLiteral("\r\n"), timeoutMs);
        return got.endsWith("\r\n") ? got.chopped(2) : got;
    }

    // Asks the telegrams of a script "telegram[=answer] ..." in turn; without "=answer" the echo
    // is expected, with "=" alone silence. Returns the exchanges that went otherwise ("" when all
    // went as written).
    QByteArray talk(const QByteArray &script, int timeoutMs = 1000);

    // The keys pressed so far, from the trace.
    QByteArrayList keys()
    {
        QByteArrayList out;
        for (const Trace::Entry &e : instrument().trace().entries()) {
            if (e.kind == Trace::Entry::Event && e.text.startsWith("key "))
                out << e.text.mid(4);
        }
        return out;
    }

    VirtualClock clock;
    SimulatedInstrument sim;
};

// An XMODEM-CRC block as the updater sends it.
QByteArray xmodemBlock(quint8 number, const QByteArray &data128);
// Sends image block by block, numbered from firstBlock (waiting up to 1 s for each ACK or NAK),
// and the EOT; returns the answers, one byte each (0 for none).
QByteArray sendImage(SimDriver &driver, const QByteArray &image, int firstBlock = 1);
