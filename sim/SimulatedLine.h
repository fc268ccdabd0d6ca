#pragma once

#include "link/SerialLine.h"

class Instrument;
class VirtualClock;

// The serial line to an in-process Instrument on a VirtualClock: write() hands the bytes to the
// instrument, readAll() returns what the instrument has sent, and waitForData() lets virtual time
// run, event by event, until bytes are there or the deadline has passed.
//
// open() fails while the adapter is unplugged or the instrument is switched off; isOpen() turns
// false when the adapter is pulled.
//
// Used by the one thread that drives the VirtualClock.
class SimulatedLine final : public SerialLine
{
public:
    SimulatedLine(Instrument &instrument, VirtualClock &clock);
    ~SimulatedLine() override;

    bool setPortName(const QString &name) override;
    QString portName() const override { return m_portName; }
    bool setSettings(const QString &settings) override;

    bool open() override;
    void close() override;
    bool isOpen() const override;

    void discardInput() override { m_received.clear(); }
    bool write(const QByteArray &bytes) override;
    QByteArray readAll() override;
    bool waitForData(int timeoutMs) override;

    QString errorString() const override { return m_error; }

    int openCount() const { return m_openCount; }

private:
    Instrument &m_instrument;
    VirtualClock &m_clock;
    QString m_portName;
    QString m_error;
    QByteArray m_received;
    bool m_open = false;
    int m_openCount = 0;
};
