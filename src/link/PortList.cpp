#include "PortList.h"

#include <QRegularExpression>
#include <QSerialPortInfo>
#include <algorithm>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

using namespace Qt::StringLiterals;

namespace modHelper {

namespace {
constexpr int kDeviceListBufferChars = 100000;
} // namespace

QStringList ParseDosDeviceList(const QByteArray &deviceList)
{
    QStringList ports;
    if (deviceList.size() > kDeviceListBufferChars)
        return ports;
    const QByteArray text = deviceList + '\0';
    for (int n = 1; n <= kHighestComPort; ++n) {
        const QByteArray needle = QByteArray(1, '\0') + "COM" + QByteArray::number(n) + '\0';
        if (text.contains(needle))
            ports << u"COM%1"_s.arg(n);
    }
    return ports;
}

bool naturalLess(const QString &a, const QString &b)
{
    // Split into runs of digits and non-digits; digit runs compare as numbers of any length.
    static const QRegularExpression chunk(u"(\\d+)|(\\D+)"_s);
    const auto withoutLeadingZeros = [](QString digits) {
        while (digits.size() > 1 && digits.front() == u'0')
            digits.remove(0, 1);
        return digits;
    };
    auto ia = chunk.globalMatch(a);
    auto ib = chunk.globalMatch(b);
    while (ia.hasNext() && ib.hasNext()) {
        const auto ma = ia.next();
        const auto mb = ib.next();
        if (ma.capturedLength(1) > 0 && mb.capturedLength(1) > 0) {
            const QString na = withoutLeadingZeros(ma.captured(1));
            const QString nb = withoutLeadingZeros(mb.captured(1));
            if (na.size() != nb.size())
                return na.size() < nb.size();
            if (na != nb)
                return na < nb;
        } else if (ma.captured(0) != mb.captured(0)) {
            return ma.captured(0) < mb.captured(0);
        }
    }
    return !ia.hasNext() && ib.hasNext();
}

QStringList EnumerateSerialPorts()
{
#ifdef Q_OS_WIN
    QByteArray buffer(kDeviceListBufferChars, '\0');
    const DWORD n = QueryDosDeviceA(nullptr, buffer.data(), DWORD(buffer.size()));
    if (n == 0)
        return {};
    return ParseDosDeviceList(buffer.left(int(n)));
#else
    QStringList ports;
    for (const QSerialPortInfo &info : QSerialPortInfo::availablePorts())
        ports << info.systemLocation();
    ports.removeDuplicates();
    std::sort(ports.begin(), ports.end(), naturalLess);
    return ports;
#endif
}

QString devicePathForPort(const QString &portName)
{
    QString name = portName.trimmed();
    if (name.isEmpty())
        return {};
#ifdef Q_OS_WIN
    return name;
#else
    static const QRegularExpression com(u"^COM(\\d+)$"_s);
    const auto m = com.match(name);
    if (m.hasMatch()) {
        const int n = m.captured(1).toInt();
        if (n < 1)
            return {};
        return u"/dev/ttyS%1"_s.arg(n - 1);
    }
    return name;
#endif
}

} // namespace modHelper
