#pragma once

#include "SerialLine.h"

#include <memory>

class QSerialPort;

// A real serial port through QSerialPort, used without an event loop: reads and writes block on
// the port with waitForReadyRead/waitForBytesWritten. The QSerialPort is created by open() on the
// calling thread, which must be the only thread that uses this line.
class QtSerialLine final : public SerialLine
{
public:
    QtSerialLine();
    ~QtSerialLine() override;

    bool setPortName(const QString &name) override;
    QString portName() const override { return m_portName; }
    bool setSettings(const QString &settings) override;

    bool open() override;
    void close() override;
    bool isOpen() const override;

    void discardInput() override;
    bool write(const QByteArray &bytes) override;
    QByteArray readAll() override;
    bool waitForData(int timeoutMs) override;

    QString errorString() const override { return m_error; }

    // How long write() waits for the bytes to leave before giving up.
    static constexpr int kWriteTimeoutMs = 5000;

private:
    void noteError();

    QString m_portName;
    LineSettings m_settings;
    std::unique_ptr<QSerialPort> m_port;
    QString m_error;
    bool m_gone = false;
};
