#include "cComm.h"

#include "Clock.h"
#include "LogSink.h"
#include "Operator.h"
#include "PortList.h"
#include "SerialLine.h"
#include "UpdaterError.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace {
constexpr char kAck = 0x06;
// The instrument's negative acknowledge as the transceiver recognises it: the byte 15 (0x0F),
// not the ASCII NAK 0x15, which passes through as text. Kept exactly so.
constexpr char kNak = 0x0F;
constexpr char kLineSettings[] = "57600,N,8,1";
constexpr char kSetupMenuOpenAnswer[] = "E;03";
constexpr char kSetupMenuPrompt[] = "Leave VARIMOsentry setup menu and press OK";
} // namespace

cComm::cComm(SerialLine &line, Clock &clock, Operator &op)
    : m_line(line)
    , m_clock(clock)
    , m_operator(op)
{
}

void cComm::setComPort(const QString &portName)
{
    // A name that names no port leaves the flag false: nothing is opened and nothing saved.
    m_portValid = false;

    // "COMn" names a port by number; on Linux a device path names it directly.
    QString text = portName;
    bool isNumber = false;
    const int number = text.remove(u"COM"_s).trimmed().toShort(&isNumber);
    if (isNumber && (number < 1 || number > modHelper::kHighestComPort))
        return;
#ifdef Q_OS_WIN
    if (!isNumber)
        return;
#else
    if (!isNumber && !portName.trimmed().startsWith(u'/'))
        return;
#endif
    const QString name = isNumber ? u"COM%1"_s.arg(number) : portName.trimmed();
    if (!m_line.setPortName(modHelper::devicePathForPort(name)))
        return;
    m_portName = name;
    m_portValid = true;
}

void cComm::Init(LogSink *log)
{
    m_log = log;
    m_portValid = true;
    if (IsOpen())
        ClosePort();
}

bool cComm::IsOpen()
{
    if (!m_line.isOpen())
        m_open = false;
    return m_open;
}

bool cComm::OpenPort(Greeting greeting)
{
    m_open = false;
    m_lastError.clear();
    if (!m_line.isOpen()) {
        if (!m_line.setSettings(QString::fromLatin1(kLineSettings)) || !m_line.open()) {
            m_lastError = m_line.errorString();
            return false;
        }
        if (greeting == Greeting::Greet) {
            if (Transceive("KVT").isEmpty()) {
                m_lastError = u"%1: no answer from VARIMOsentry"_s.arg(portLabel());
                m_line.close();
                return false;
            }
            Transceive("DHR;0");
            Transceive("KEY;0");
        }
        logEntry(portLabel() + u" opened: 57600 Baud, No parity, 8 data bits, 1 stop bit"_s);
    }
    m_open = true;
    return true;
}

void cComm::ClosePort()
{
    if (!m_line.isOpen())
        return;
    m_line.close();
    logEntry(portLabel() + u" closed"_s);
    m_open = false;
    m_portValid = true;
}

void cComm::WriteTelegram(const QByteArray &telegram, const QByteArray &terminator)
{
    m_line.write(telegram + terminator);

    // A firmware packet is logged by its first four and last two bytes.
    QString logText = QString::fromLatin1(telegram);
    if (telegram.size() == kFirmwarePacketSize) {
        const auto value = [&](int position) {
            return u" "_s + QString::number(quint8(telegram.at(position - 1)));
        };
        logText = u"133 Bytes "_s + value(1) + value(2) + value(3) + value(4) + u" ... "_s +
            value(132) + value(133);
    }
    logEntry(u"Telegram sent : "_s + logText);
}

QByteArray cComm::ReadT(qint32 timeoutMs, const QByteArray &readUntil)
{
    const qint32 start = m_clock.tickCount();
    QByteArray buffer;
    for (;;) {
        buffer += m_line.readAll();
        qint32 elapsed = 0;
        if (__builtin_sub_overflow(m_clock.tickCount(), start, &elapsed))
            throw UpdaterError(
                u"Reading from %1: the millisecond counter overflowed"_s.arg(portLabel()));
        if (elapsed > timeoutMs || buffer.contains(readUntil))
            break;
        // A line that has gone away will bring nothing more.
        if (!m_line.isOpen())
            break;
        m_line.waitForData(timeoutMs - elapsed + 1);
    }

    buffer = ClassifyAnswer(std::move(buffer));
    logEntry(u"    Received  : "_s + QString::fromLatin1(buffer));
    return buffer;
}

QByteArray cComm::ClassifyAnswer(QByteArray received)
{
    // One pass that also removes the pairs that meet once an inner pair is gone ("\r\r\n\n"
    // leaves nothing), so no CR LF is left in an answer.
    char *bytes = received.data();
    qsizetype kept = 0;
    for (qsizetype i = 0; i < received.size(); ++i) {
        bytes[kept++] = bytes[i];
        if (kept >= 2 && bytes[kept - 2] == '\r' && bytes[kept - 1] == '\n')
            kept -= 2;
    }
    received.truncate(kept);
    if (received.contains(kAck))
        return QByteArrayLiteral("ACK");
    if (received.contains(kNak))
        return QByteArrayLiteral("NAK");
    return received;
}

QByteArray cComm::Transceive(const QByteArray &telegram, qint32 timeout,
                             const std::optional<QByteArray> &answer)
{
    QByteArray received;
    const auto sendAndRead = [&] {
        WriteTelegram(telegram, kCrLf);
        m_clock.sleepMs(kWaitAfterTelegramMs);
        received = ReadT(timeout, kCrLf);
    };

    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        m_line.discardInput();
        sendAndRead();
        // The instrument's setup menu is open: ask the operator to close it, as often as needed.
        while (received == kSetupMenuOpenAnswer) {
            m_operator.messageBox(QString::fromLatin1(kSetupMenuPrompt));
            sendAndRead();
        }
        if (received.isEmpty())
            received = ReadT(timeout, kCrLf);
        if (answer ? received == *answer : !received.isEmpty())
            break;
    }
    return received;
}

QByteArray cComm::TransceiveX(const QByteArray &telegram, qint32 waitBeforeReadMs)
{
    QByteArray received;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        WriteTelegram(telegram, {});
        m_clock.sleepMs(waitBeforeReadMs);
        received = ReadT(kPacketAnswerTimeoutMs, QByteArray(1, kAck));
        if (received == "ACK")
            break;
    }
    return received;
}

void cComm::logEntry(const QString &text)
{
    if (m_log)
        m_log->UpdateLog(text);
}

QString cComm::portLabel() const
{
    return m_portName.isEmpty() ? u"<no port>"_s : m_portName;
}
