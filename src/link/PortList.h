#pragma once

#include <QByteArray>
#include <QStringList>

namespace modHelper {

// The highest port number a "COMn" name may carry.
inline constexpr int kHighestComPort = 255;

// The COM ports named in a device-name list as the operating system returns it (names each ended
// by NUL): "COM1" ... "COM255" in numeric order. A name counts only with a NUL before it, so the
// very first entry of the list is never found; this is how the instrument's tools have always
// listed ports and is kept so. A list longer than the system's 100,000-character buffer yields no
// ports, as the system call would fail.
QStringList ParseDosDeviceList(const QByteArray &deviceList);

// Natural order for device paths: "/dev/ttyS2" before "/dev/ttyS10", numbers compared as numbers.
bool naturalLess(const QString &a, const QString &b);

// The serial ports of this computer: COM names in numeric order on Windows; device paths such as
// /dev/ttyS0 and /dev/ttyUSB0 on Linux, in natural order (ttyS* before ttyUSB*).
QStringList EnumerateSerialPorts();

// The device to open for a port name: on Linux "COMn" means /dev/ttyS(n-1) and a path stays as it
// is; on Windows the name is used as it is. Empty when the name cannot name a port.
QString devicePathForPort(const QString &portName);

} // namespace modHelper
