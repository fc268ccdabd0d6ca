#include "QtSerialLine.h"

#include <QSerialPort>
#include <QStringList>
#include <algorithm>

using namespace Qt::StringLiterals;

bool LineSettings::parse(const QString &text, LineSettings *out)
{
    const QStringList parts = text.split(u',');
    if (parts.size() != 4)
        return false;
    LineSettings s;
    bool ok = false;
    s.baud = parts[0].trimmed().toInt(&ok);
    if (!ok || s.baud <= 0)
        return false;
    const QString parity = parts[1].trimmed().toUpper();
    if (parity.size() != 1 || !u"NEOMS"_s.contains(parity))
        return false;
    s.parity = char(parity.at(0).unicode());
    s.dataBits = parts[2].trimmed().toInt(&ok);
    if (!ok || s.dataBits < 5 || s.dataBits > 8)
        return false;
    s.stopBits = parts[3].trimmed().toInt(&ok);
    if (!ok || (s.stopBits != 1 && s.stopBits != 2))
        return false;
    *out = s;
    return true;
}

QtSerialLine::QtSerialLine() = default;
QtSerialLine::~QtSerialLine() = default;

bool QtSerialLine::setPortName(const QString &name)
{
    if (name.trimmed().isEmpty())
        return false;
    m_portName = name.trimmed();
    return true;
}

bool QtSerialLine::setSettings(const QString &settings)
{
    return LineSettings::parse(settings, &m_settings);
}

static QSerialPort::Parity toQtParity(char p)
{
    static constexpr std::pair<char, QSerialPort::Parity> kParities[] = {
        {'E', QSerialPort::EvenParity},
        {'O', QSerialPort::OddParity},
        {'M', QSerialPort::MarkParity},
        {'S', QSerialPort::SpaceParity}};
    const auto it = std::ranges::find(kParities, p, &std::pair<char, QSerialPort::Parity>::first);
    return it != std::end(kParities) ? it->second : QSerialPort::NoParity;
}

bool QtSerialLine::open()
{
    m_error.clear();
    if (isOpen())
        return true;
    m_gone = false;
    m_port = std::make_unique<QSerialPort>();
    m_port->setPortName(m_portName);
    const bool opened = m_port->open(QIODevice::ReadWrite) &&
        m_port->setBaudRate(m_settings.baud) && m_port->setParity(toQtParity(m_settings.parity)) &&
        m_port->setDataBits(QSerialPort::DataBits(m_settings.dataBits)) &&
        m_port->setStopBits(m_settings.stopBits == 2 ? QSerialPort::TwoStop
                                                     : QSerialPort::OneStop) &&
        m_port->setFlowControl(QSerialPort::NoFlowControl);
    if (!opened) {
        noteError();
        m_port.reset(); // closes the port
        return false;
    }
    return true;
}

void QtSerialLine::close()
{
    m_port.reset(); // closes the port
}

bool QtSerialLine::isOpen() const
{
    // A vanished device (unplugged adapter, closed pseudo-terminal) reports a resource error and
    // counts as closed from then on.
    return m_port && m_port->isOpen() && !m_gone;
}

void QtSerialLine::discardInput()
{
    if (!isOpen())
        return;
    m_port->readAll(); // what Qt has already taken from the device
    m_port->clear(QSerialPort::Input);
}

bool QtSerialLine::write(const QByteArray &bytes)
{
    if (!isOpen()) {
        m_error = u"port %1 is not open"_s.arg(m_portName);
        return false;
    }
    if (m_port->write(bytes) != bytes.size()) {
        noteError();
        return false;
    }
    // Without an event loop the bytes only sit in Qt's buffer until waitForBytesWritten pushes
    // them to the device.
    while (m_port->bytesToWrite() > 0) {
        if (!m_port->waitForBytesWritten(kWriteTimeoutMs)) {
            noteError();
            return false;
        }
    }
    return true;
}

QByteArray QtSerialLine::readAll()
{
    if (!m_port || !m_port->isOpen())
        return {};
    // Without an event loop QSerialPort takes bytes from the device only inside its waits: a
    // wait of no time hands over what arrived while nobody waited (a "C" during a sleep).
    while (!m_gone && m_port->waitForReadyRead(0)) { }
    if (m_port->error() == QSerialPort::TimeoutError)
        m_port->clearError();
    else if (m_port->error() != QSerialPort::NoError)
        noteError();
    return m_port->readAll();
}

bool QtSerialLine::waitForData(int timeoutMs)
{
    if (!isOpen())
        return false;
    if (m_port->bytesAvailable() > 0)
        return true;
    if (timeoutMs <= 0)
        return false;
    const bool ready = m_port->waitForReadyRead(timeoutMs);
    if (!ready && m_port->error() != QSerialPort::NoError &&
        m_port->error() != QSerialPort::TimeoutError)
        noteError();
    return ready || m_port->bytesAvailable() > 0;
}

void QtSerialLine::noteError()
{
    // The device has gone (an unplugged adapter, a closed pseudo-terminal): from now on the line
    // is closed, so nobody waits on it in vain.
    static constexpr QSerialPort::SerialPortError kGone[] = {
        QSerialPort::ResourceError,       QSerialPort::ReadError,       QSerialPort::WriteError,
        QSerialPort::DeviceNotFoundError, QSerialPort::PermissionError, QSerialPort::UnknownError};
    if (m_port && std::ranges::find(kGone, m_port->error()) != std::end(kGone))
        m_gone = true;
    m_error = u"%1: %2"_s.arg(m_portName, m_port ? m_port->errorString() : u"no port"_s);
}
