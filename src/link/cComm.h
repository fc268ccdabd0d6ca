#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

class Clock;
class Operator;
class SerialLine;
class LogSink;

// The telegram transceiver: every exchange with the instrument passes through it. It opens and
// closes the port, sends telegrams (text + CR LF) and firmware packets (raw), collects answers
// until their terminator or a time-out, classifies acknowledge characters, retries, asks the
// operator to leave the instrument's setup menu when it answers "E;03", and logs every telegram
// and every answer.
//
// Link problems are not errors here: silence is an empty answer and the caller judges the text.
// The one error that reaches the caller is the tick counter overflowing during a read
// (UpdaterError).
//
// Lives on the engine thread; the line, the clock and the operator are used from there only.
class cComm
{
public:
    // The line end of a telegram and of an answer.
    static constexpr char kCrLf[] = "\r\n";
    static constexpr int kDefaultTimeoutMs = 1000;
    static constexpr int kWaitAfterTelegramMs = 200;
    static constexpr int kAttempts = 3;
    static constexpr int kPacketAnswerTimeoutMs = 1000;
    static constexpr int kFirmwarePacketSize = 133;

    cComm(SerialLine &line, Clock &clock, Operator &op);

    // The port-valid flag: false after an assignment of a name that names no port.
    bool IsValidPort() const { return m_portValid; }
    // The port name last assigned successfully ("COM3", or a device path on Linux).
    QString ComPort() const { return m_portName; }
    // Chooses the port. "COMn" (n in 1..255) or, on Linux, a device path. A name that names no
    // port leaves the previous name in place and the flag false, until the next assignment,
    // Init or ClosePort.
    void setComPort(const QString &portName);

    // Binds the log, closes the port if it is open.
    void Init(LogSink *log);

    // Collects one answer: reads until readUntil has arrived or more than timeoutMs have
    // passed; removes CR LF pairs; an answer holding the byte 6 becomes "ACK", else one holding
    // the byte 15 becomes "NAK" (0x15 is not recognised and stays in the text). Logs the answer.
    QByteArray ReadT(qint32 timeoutMs, const QByteArray &readUntil);
    // What ReadT makes of the bytes it collected: CR LF pairs removed (also those that only meet
    // once an inner pair is gone), then "ACK" for an answer holding the byte 6, "NAK" for one
    // holding the byte 15 (and no 6), else the text itself.
    static QByteArray ClassifyAnswer(QByteArray received);
    // Sends the telegram followed by the terminator in one write and logs it.
    void WriteTelegram(const QByteArray &telegram, const QByteArray &terminator);
    // One request and its answer with up to three attempts (see the class comment).
    QByteArray Transceive(const QByteArray &telegram, qint32 timeout = kDefaultTimeoutMs,
                          const std::optional<QByteArray> &answer = std::nullopt);
    // One firmware packet: up to three sends, each read until the ACK byte or 1000 ms.
    QByteArray TransceiveX(const QByteArray &telegram, qint32 waitBeforeReadMs);

    bool IsOpen();

    enum class Greeting {
        Greet, // "KVT", "DHR;0", "KEY;0"; silence means no instrument
        Silent, // nothing sent: a board waiting in its bootloader answers only with "C"
    };
    // Opens the port and greets the instrument; false when the port does not open or the
    // instrument stays silent. An open port returns true at once.
    bool OpenPort(Greeting greeting = Greeting::Greet);
    void ClosePort();

    // Why the last OpenPort failed, in words ("" after a success).
    QString lastError() const { return m_lastError; }

    SerialLine &line() { return m_line; }
    Clock &clock() { return m_clock; }
    Operator &op() { return m_operator; }
    LogSink *log() const { return m_log; }

private:
    void logEntry(const QString &text);
    QString portLabel() const;

    SerialLine &m_line;
    Clock &m_clock;
    Operator &m_operator;
    LogSink *m_log = nullptr;
    QString m_portName;
    bool m_open = false;
    bool m_portValid = true;
    QString m_lastError;
};
