#include "link/PortList.h"
#include "link/UpdaterError.h"
#include "link/cComm.h"
#include "shell/cLog.h"
#include "support/Files.h"
#include "support/ScriptedLine.h"
#include "support/ScriptedOperator.h"

#include <QTemporaryDir>
#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <tuple>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

TEST(VirtualClock, SleepRunsDueEventsInTimeOrderAtTheirOwnTime)
{
    VirtualClock clock;
    std::vector<std::pair<int, qint64>> ran;
    const auto note = [&](int id) {
        return [&ran, &clock, id] { ran.push_back({id, clock.elapsedMs()}); };
    };
    clock.schedule(300, note(3));
    clock.schedule(100, note(1));
    clock.schedule(100, note(2));
    clock.cancel(clock.scheduleIn(200, note(5)));
    // Events scheduled by an event run in the same advance.
    clock.schedule(150, [&] { clock.scheduleIn(10, note(4)); });

    clock.sleepMs(500);
    EXPECT_EQ(clock.elapsedMs(), 500);
    const std::vector<std::pair<int, qint64>> expected {{1, 100}, {2, 100}, {4, 160}, {3, 300}};
    EXPECT_EQ(ran, expected);
}

// A read across the wrap cannot tell how long it waited: it fails.
TEST(VirtualClock, TickCountWrapsLikeTheSystemCounterAndAReadAcrossTheWrapFails)
{
    VirtualClock clock(QDateTime(QDate(2026, 1, 1), QTime(23, 59, 59, 500)), 2147483000);
    ScriptedLine line(clock);
    ScriptedOperator op;
    cComm comm(line, clock, op);
    line.open();
    clock.sleepMs(647);
    EXPECT_EQ(clock.tickCount(), 2147483647);
    EXPECT_EQ(clock.now(), QDateTime(QDate(2026, 1, 2), QTime(0, 0, 0, 147)));
    EXPECT_THROW(comm.ReadT(1000, "\r\n"), UpdaterError);
}

class CommTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        log.Init(dir.filePath(u"log.txt"_s));
        log.Setlogging(true);
        comm.Init(&log);
        comm.setComPort(u"COM3"_s);
        line.open(); // most cases talk on an open line without the greeting
    }

    QByteArrayList logLines() // without "hh:mm:ss : " and the CR
    {
        QByteArrayList lines;
        for (const QByteArray &l : contentOf(log.path()).split('\n'))
            if (!l.isEmpty())
                lines << l.mid(11).chopped(1);
        return lines;
    }

    QTemporaryDir dir;
    VirtualClock clock;
    ScriptedLine line {clock};
    ScriptedOperator op;
    cLog log {&clock};
    cComm comm {line, clock, op};
};

TEST_F(CommTest, TransceiveRetriesAndTakesItsTimeAsTheAnswersCome)
{
    // replies, answer expected, answer returned, attempts, time taken
    const std::tuple<std::vector<ScriptedLine::Reply>, std::optional<QByteArray>, QByteArray, int,
                     qint64>
        cases[] = {
            // Silent: 3 x (200 ms wait + two reads that end just past 1000 ms).
            {{}, {}, {}, 3, 6606},
            // Taken the moment its terminator arrives.
            {{{"KVT;Vm2PS;1.02;7\r\n", 537}}, {}, "KVT;Vm2PS;1.02;7", 1, 537},
            // An empty first read is followed by a second one without resending.
            {{{"SER;42\r\n", 1500}}, {}, "SER;42", 1, 1500},
            // A wrong answer uses all attempts; the last one is returned.
            {{{"\x0f\r\n"}, {"\x0f\r\n"}, {"\x0f\r\n"}}, "ACK", "NAK", 3, 600},
        };
    for (const auto &[replies, expected, answer, attempts, ms] : cases) {
        SCOPED_TRACE(answer.data());
        line.writes.clear();
        line.discards = 0;
        for (const ScriptedLine::Reply &r : replies)
            line.script({r});
        const qint64 start = clock.elapsedMs();
        EXPECT_EQ(comm.Transceive("KVT", 1000, expected), answer);
        EXPECT_EQ(clock.elapsedMs() - start, ms);
        EXPECT_EQ(line.writes, QList<QByteArray>(attempts, "KVT\r\n"));
        EXPECT_EQ(line.discards, attempts);
    }
}

TEST_F(CommTest, ReadTClassifiesTheAnswerAndEndsAtOnceWhenTheLineIsGone)
{
    // CR LF pairs go, also those that meet once an inner pair is gone; a lone CR or LF stays.
    // The byte 0x0F is a NAK here, the ASCII NAK 0x15 is not.
    const std::pair<QByteArray, QByteArray> cases[] = {
        {"12.34\r\n", "12.34"},      {"12\r34\r\n", "12\r34"}, {"a\nb\r\n", "a\nb"},
        {"a\r\r\n\nb\r\n", "ab"},    {"\x0f\x06\r\n", "ACK"},  {"\x06\x0f\r\n", "ACK"},
        {"x\x0fy\r\n", "NAK"},       {"\x15\r\n", "\x15"},     {"E;13\r\n", "E;13"},
        {"\xb0\xff\r\n", "\xb0\xff"}};
    for (const auto &[wire, expected] : cases) {
        line.deliverAt(clock.elapsedMs() + 3, wire);
        EXPECT_EQ(comm.ReadT(1000, "\r\n"), expected) << wire.toHex().data();
    }
    // An unplugged line ends the read at once.
    line.unplugged = true;
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(comm.ReadT(1000, "\r\n"), QByteArray());
    EXPECT_EQ(clock.elapsedMs(), start);
    EXPECT_FALSE(comm.IsOpen());
}

TEST_F(CommTest, FirmwarePacketsAreLoggedShortOtherTelegramsInFull)
{
    const QByteArray packet = QByteArray("\x01\x01\xfe\x4d") + QByteArray(127, 'x') + "\x12\x34";
    comm.WriteTelegram(packet, {});
    comm.WriteTelegram(QByteArray(132, 'a'), "\r\n");
    comm.WriteTelegram(QByteArray(134, 'b'), {});
    EXPECT_EQ(logLines(),
              (QByteArrayList {"Telegram sent : 133 Bytes  1 1 254 77 ...  18 52",
                               "Telegram sent : " + QByteArray(132, 'a'),
                               "Telegram sent : " + QByteArray(134, 'b')}));
}

// Within one attempt the setup menu is prompted away and a packet is sent again after each NAK.
TEST_F(CommTest, SetupMenuAndNakAreAnsweredWithinOneAttempt)
{
    line.script({{"E;03\r\n"}, {"E;03\r\n"}, {"\x06\r\n"}});
    EXPECT_EQ(comm.Transceive("CH;5", 2000, QByteArray("ACK")), QByteArray("ACK"));
    ASSERT_EQ(op.prompts.size(), 2u);
    EXPECT_EQ(op.prompts[0].lines, QStringList {u"Leave VARIMOsentry setup menu and press OK"_s});
    EXPECT_EQ(line.writes.size(), 3);
    EXPECT_EQ(line.discards, 1); // resends after the prompt do not discard

    line.writes.clear();
    line.script({{QByteArray("\x15")}, {QByteArray("\x15")}, {QByteArray("\x06")}});
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(comm.TransceiveX(QByteArray(133, 'p'), 2000), QByteArray("ACK"));
    EXPECT_EQ(line.writes.size(), 3);
    // Two full 1000 ms reads for the NAKs; each send waits 2000 ms before its read.
    EXPECT_GE(clock.elapsedMs() - start, 3 * 2000 + 2 * 1000);
    EXPECT_EQ(line.discards, 1); // none for packets
}

// The greeting, an open port opened again, and the opened and closed lines in the log: CommOverPty.
TEST_F(CommTest, OpenPortFailsWithAReason)
{
    line.close();
    line.openFails = true;
    EXPECT_FALSE(comm.OpenPort());
    EXPECT_EQ(comm.lastError(), line.errorString()); // the reason the line gave
    line.openFails = false; // and a silent instrument
    EXPECT_FALSE(comm.OpenPort());
    EXPECT_FALSE(line.isOpen());
    EXPECT_EQ(comm.lastError(), u"COM3: no answer from VARIMOsentry"_s);
    EXPECT_EQ(line.settings, u"57600,N,8,1"_s);
    for (const QByteArray &l : logLines())
        EXPECT_FALSE(l.contains("opened"));
}

TEST_F(CommTest, PortNamesThatNameNoPortAreInvalid)
{
    const std::tuple<const char *, const char *, bool> cases[] = {
        // given, kept, valid
        {"COM7", "COM7", true},
        {" COM12 ", "COM12", true},
        {"nonsense", "COM12", false},
        {"COM0", "COM12", false},
        {"COM255", "COM255", true},
        {"COM256", "COM255", false},
        {"COM70000", "COM255", false},
#ifndef Q_OS_WIN
        {"/dev/ttyUSB0", "/dev/ttyUSB0", true}, // a device path names the port directly
#endif
    };
    for (const auto &[given, kept, valid] : cases) {
        comm.setComPort(QString::fromLatin1(given));
        EXPECT_EQ(comm.ComPort(), QString::fromLatin1(kept)) << given;
        EXPECT_EQ(comm.IsValidPort(), valid) << given;
    }
#ifndef Q_OS_WIN
    comm.setComPort(u" COM12 "_s);
    EXPECT_EQ(line.portName(), u"/dev/ttyS11"_s);
#endif
}

// Device lists with "|" for the NUL that ends each name; device paths as a person sorts them.
TEST(PortList, ListsComPortsInNumericOrder)
{
    const std::pair<QByteArray, QString> cases[] = {
        {"NUL|COM10|PhysicalDrive0|COM3|COM1|", u"COM1 COM3 COM10"_s}, // numeric order
        {"COM1|COM2|", u"COM2"_s}, // the first entry has no NUL before it and is not found
        {"X|COM300|COM255|", u"COM255"_s},
        {"X|COM1A|XCOM2|COM04|LPT1|", u""_s}, // names that only start like a port
        // A list longer than the system buffer yields nothing.
        {"X|COM1|" + QByteArray(100000, 'x'), u""_s},
    };
    for (const auto &[list, expected] : cases)
        EXPECT_EQ(modHelper::ParseDosDeviceList(QByteArray(list).replace('|', '\0')).join(u' '),
                  expected)
            << list.left(40).data();
    QStringList ports = u"/dev/ttyUSB0 /dev/ttyS10 /dev/ttyS2 /dev/ttyACM0 /dev/ttyS0 "
                        u"/dev/ttyUSB10 /dev/ttyUSB9"_s.split(u' ');
    std::sort(ports.begin(), ports.end(), modHelper::naturalLess);
    EXPECT_EQ(ports.join(u' '),
              u"/dev/ttyACM0 /dev/ttyS0 /dev/ttyS2 /dev/ttyS10 /dev/ttyUSB0 "
              u"/dev/ttyUSB9 /dev/ttyUSB10"_s);
}

} // namespace
