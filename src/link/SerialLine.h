#pragma once

#include <QByteArray>
#include <QString>

// The serial line as the transceiver needs it. Bytes are characters 0-255 one to one; nothing is
// encoded or decoded on the way.
//
// Implementations: QtSerialLine (a real port through QSerialPort) and the simulated instrument's
// line (in-process, on a VirtualClock). A line is used by one thread only, the one that opened it
// (the engine thread in the product).
class SerialLine
{
public:
    virtual ~SerialLine() = default;

    // Chooses the port: a device path such as /dev/ttyUSB0 or a name such as COM3. Takes effect
    // at the next open. Returns false when the name cannot name a port.
    virtual bool setPortName(const QString &name) = 0;
    virtual QString portName() const = 0;

    // Line parameters from a settings text such as "57600,N,8,1" (baud, parity N/E/O/M/S, data
    // bits, stop bits); no handshake. Returns false for a text that does not parse.
    virtual bool setSettings(const QString &settings) = 0;

    virtual bool open() = 0;
    virtual void close() = 0;
    // False once the port is closed or has gone away (an unplugged adapter).
    virtual bool isOpen() const = 0;

    // Throws away what has been received and not yet read. Bytes of our own that are still on
    // their way out are never thrown away (write() has already pushed them out).
    virtual void discardInput() = 0;
    // Sends all bytes; returns when they have left the program (or false on failure).
    virtual bool write(const QByteArray &bytes) = 0;
    // Every byte the device holds at this moment, also those that arrived while nobody waited,
    // without waiting for more; empty when nothing has arrived.
    virtual QByteArray readAll() = 0;
    // Waits until received bytes are available or timeoutMs has passed; returns whether bytes are
    // available. Returns at once when bytes are already waiting. Sleeps on the line, never spins.
    virtual bool waitForData(int timeoutMs) = 0;

    // The last error in words, for the log and the operator ("" when none).
    virtual QString errorString() const = 0;
};

// The line settings of a settings text such as "57600,N,8,1".
struct LineSettings
{
    qint32 baud = 57600;
    char parity = 'N';
    int dataBits = 8;
    int stopBits = 1;

    static bool parse(const QString &text, LineSettings *out);
};
