#include "link/PortList.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray deviceList(std::initializer_list<const char *> names)
{
    QByteArray list;
    for (const char *n : names)
        list += QByteArray(n) + '\0';
    return list;
}

struct DeviceListCase
{
    const char *what;
    QByteArray list;
    QStringList expected;
};

class DosDeviceList : public ::testing::TestWithParam<DeviceListCase>
{
};

TEST_P(DosDeviceList, ListsComPortsInNumericOrder)
{
    EXPECT_EQ(modHelper::ParseDosDeviceList(GetParam().list), GetParam().expected)
        << GetParam().what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DosDeviceList,
    ::testing::Values(
        DeviceListCase {"numeric, not alphabetical",
                        deviceList({"NUL", "COM10", "PhysicalDrive0", "COM3", "COM1"}),
                        {u"COM1"_s, u"COM3"_s, u"COM10"_s}},
        DeviceListCase {"the first entry has no NUL before it and is not found",
                        deviceList({"COM1", "COM2"}),
                        {u"COM2"_s}},
        DeviceListCase {
            "above 255 never listed", deviceList({"X", "COM300", "COM255"}), {u"COM255"_s}},
        DeviceListCase {
            "names that only start like a port", deviceList({"X", "COM1A", "XCOM2", "COM04"}), {}},
        DeviceListCase {"no serial device", deviceList({"X", "LPT1"}), {}},
        DeviceListCase {"a list longer than the system buffer yields nothing",
                        deviceList({"X", "COM1"}) + QByteArray(100000, 'x'),
                        {}}),
    [](const auto &info) { return "case" + std::to_string(info.index); });

TEST(NaturalOrder, SortsDevicePathsAsAPersonWould)
{
    QStringList ports {u"/dev/ttyUSB0"_s, u"/dev/ttyS10"_s,   u"/dev/ttyS2"_s,  u"/dev/ttyACM0"_s,
                       u"/dev/ttyS0"_s,   u"/dev/ttyUSB10"_s, u"/dev/ttyUSB9"_s};
    std::sort(ports.begin(), ports.end(), modHelper::naturalLess);
    const QStringList expected {u"/dev/ttyACM0"_s, u"/dev/ttyS0"_s,   u"/dev/ttyS2"_s,
                                u"/dev/ttyS10"_s,  u"/dev/ttyUSB0"_s, u"/dev/ttyUSB9"_s,
                                u"/dev/ttyUSB10"_s};
    EXPECT_EQ(ports, expected);
}

TEST(PortNames, ComNamesMapToLinuxDevices)
{
#ifndef Q_OS_WIN
    EXPECT_EQ(modHelper::devicePathForPort(u"COM1"_s), u"/dev/ttyS0"_s);
    EXPECT_EQ(modHelper::devicePathForPort(u" COM12 "_s), u"/dev/ttyS11"_s);
    EXPECT_EQ(modHelper::devicePathForPort(u"COM0"_s), QString());
    EXPECT_EQ(modHelper::devicePathForPort(u"/dev/ttyUSB0"_s), u"/dev/ttyUSB0"_s);
#endif
    EXPECT_EQ(modHelper::devicePathForPort(u"  "_s), QString());
}

} // namespace
