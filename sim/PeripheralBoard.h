#pragma once

#include "Bootloader.h"

// The Main Board or the Measuring Module: answers identity and parameter telegrams, takes writes
// when write-enabled, and jumps to its bootloader on "BOT;$" when addressed through its bootloader
// side ("DHR;4" / "DHR;3").
//
// Writing: "CEO" is the board's configuration lock. With CEO 0 (locked, the factory value) a
// write is taken only right after "CEW;1", which enables exactly the next write; with CEO 1 (open)
// writes need no "CEW;1". Writing "CEO" itself follows the same rule. After "CEO;1" the board
// stores its configuration and does not listen for SimTiming::storeBusyMs.
//
// Lives on the instrument's thread, owned by the Instrument.
class PeripheralBoard
{
public:
    PeripheralBoard(BoardKind kind, BoardHost &host, BoardState &state);

    BoardKind kind() const { return m_kind; }
    // Bytes go to the bootloader as they come (no telegrams).
    bool inBootloader() const;
    // The bootloader reads those bytes (it is not idle).
    bool bootloaderListening() const
    {
        return m_state.mode == BoardMode::Requesting || m_state.mode == BoardMode::Receiving;
    }

    void switchedOn();
    void switchedOff();
    // Picks up the mode a loaded state left the board in (the instrument is on).
    void resume();

    // A telegram through the board's application side (bootSide false) or bootloader side.
    void telegram(const QByteArray &telegram, bool bootSide);
    void bytes(const QByteArray &bytes);
    // The CPU Board switched the line to the bootloader side.
    void bootSideSelected();

    const QByteArray &lastImage() const { return m_bootloader.lastImage(); }

private:
    void answer(const QByteArray &text) { m_host.answer(m_kind, text); }
    void parameter(const QByteArray &telegram);
    void jump();

    BoardKind m_kind;
    BoardHost &m_host;
    BoardState &m_state;
    Bootloader m_bootloader;
    SimTimer m_startTimer;
    SimTimer m_jumpTimer;
    bool m_writeEnabled = false;
    qint64 m_busyUntilMs = -1;
};
