#pragma once

#include "BoardHost.h"
#include "InstrumentState.h"
#include "XmodemReceiver.h"

// The part of a board that takes a new image: asks with "C" about once a second until the first
// block, receives XMODEM-CRC blocks, and at the end checks the image. A good image is flashed:
// the board takes its version, resets its parameters to factory values and restarts into it. A
// bad image (wrong size, not an image of this board) or a transfer that broke off leaves the
// board without an image: the Main Board and the Measuring Module ask with "C" again, the CPU
// Board waits ("E;1" to everything but "F").
//
// Lives on the instrument's thread, inside its board.
class Bootloader
{
public:
    Bootloader(BoardKind kind, BoardHost &host, BoardState &state);

    // Mode Requesting; the first "C" after firstDelayMs.
    void startRequesting(int firstDelayMs);
    // Stops every timer (switched off, or the board leaves its bootloader).
    void stop();
    // Bytes while requesting or receiving.
    void receive(const QByteArray &bytes);

    // The last image received completely (good or bad), for tests.
    const QByteArray &lastImage() const { return m_lastImage; }

private:
    void request();
    void handle(const XmodemReceiver::Event &event);
    void finish();
    void fail(const QByteArray &why);

    BoardKind m_kind;
    BoardHost &m_host;
    BoardState &m_state;
    XmodemReceiver m_receiver;
    SimTimer m_requestTimer;
    SimTimer m_gapTimer;
    SimTimer m_idleTimer;
    SimTimer m_restartTimer;
    QByteArray m_lastImage;
};
