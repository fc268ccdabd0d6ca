#pragma once

#include "Scheduler.h"
#include "SimTypes.h"
#include "Trace.h"

#include <QByteArray>

// The instrument as one of its boards sees it: time, the line (through the CPU Board's routing)
// and the trace.
//
// Implemented by Instrument; called on the instrument's thread.
class BoardHost
{
public:
    virtual ~BoardHost() = default;

    virtual Scheduler &scheduler() = 0;
    virtual const SimTiming &timing() const = 0;
    virtual int serialNumber() const = 0;

    // An answer to the telegram being handled: the text and CR LF, after the answer delay.
    virtual void answer(BoardKind from, const QByteArray &text) = 0;
    // Bytes the board sends by itself after delayMs (a request "C", ACK, NAK, an announcement
    // with its CR LF). They reach the line only while the board is switched through.
    virtual void send(BoardKind from, const QByteArray &bytes, int delayMs = 0) = 0;
    virtual void trace(Trace::Entry::Kind kind, const QByteArray &text) = 0;

    // A parameter was written (the answer is the echo).
    virtual void parameterWritten(BoardKind kind, const QByteArray &key) = 0;
    // The board has started (after switching on or after a flash).
    virtual void boardStarted(BoardKind kind) = 0;

    // Fault injection at block level.
    virtual bool refuseBlock(int index) = 0;
    virtual void blockAcknowledged(int index) = 0;
};
