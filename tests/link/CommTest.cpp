#include "link/UpdaterError.h"
#include "link/cComm.h"
#include "shell/cLog.h"
#include "support/ScriptedLine.h"
#include "support/ScriptedOperator.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

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
        line.opens = 0;
    }

    QList<QByteArray> logLines()
    {
        QFile f(log.path());
        if (!f.open(QIODevice::ReadOnly))
            return {};
        QList<QByteArray> lines;
        for (const QByteArray &l : f.readAll().split('\n'))
            if (!l.isEmpty())
                lines << l.mid(11).chopped(1); // without "hh:mm:ss : " and the CR
        return lines;
    }

    QTemporaryDir dir;
    VirtualClock clock;
    ScriptedLine line {clock};
    ScriptedOperator op;
    cLog log {&clock};
    cComm comm {line, clock, op};
};

TEST_F(CommTest, SilentInstrumentCostsThreeAttemptsOfTwoReads)
{
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(comm.Transceive("KVT"), QByteArray());
    // 3 x (200 ms pause + two reads that end just past 1000 ms each)
    EXPECT_NEAR(double(clock.elapsedMs() - start), 6600.0, 10.0);
    EXPECT_EQ(line.writes, QList<QByteArray>({"KVT\r\n", "KVT\r\n", "KVT\r\n"}));
    EXPECT_EQ(line.discards, 3);
}

TEST_F(CommTest, AnswerIsTakenTheMomentItsTerminatorArrives)
{
    line.script({{"KVT;Vm2PS;1.02;7\r\n", 537}});
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(comm.Transceive("KVT"), QByteArray("KVT;Vm2PS;1.02;7"));
    EXPECT_EQ(clock.elapsedMs() - start, 537);
}

TEST_F(CommTest, SetupMenuPromptsUntilClosedWithinOneAttempt)
{
    line.script({{"E;03\r\n"}, {"E;03\r\n"}, {"\x06\r\n"}});
    EXPECT_EQ(comm.Transceive("CH;5", 2000, QByteArray("ACK")), QByteArray("ACK"));
    ASSERT_EQ(op.prompts.size(), 2u);
    EXPECT_EQ(op.prompts[0].lines, QStringList {u"Leave VARIMOsentry setup menu and press OK"_s});
    EXPECT_EQ(line.writes.size(), 3);
    EXPECT_EQ(line.discards, 1); // resends after the prompt do not discard
}

TEST_F(CommTest, WrongExpectedAnswerUsesAllAttemptsAndReturnsTheLast)
{
    line.script({{"\x0f\r\n"}, {"\x0f\r\n"}, {"\x0f\r\n"}});
    EXPECT_EQ(comm.Transceive("XUC", 1000, QByteArray("ACK")), QByteArray("NAK"));
    EXPECT_EQ(line.writes.size(), 3);
}

TEST_F(CommTest, EmptyFirstReadIsFollowedByASecondReadWithoutResending)
{
    line.script({{"SER;42\r\n", 1500}});
    EXPECT_EQ(comm.Transceive("SER"), QByteArray("SER;42"));
    EXPECT_EQ(line.writes.size(), 1);
}

struct ClassifyCase
{
    QByteArray wire;
    QByteArray expected;
};

class ReadTClassifies : public CommTest, public ::testing::WithParamInterface<ClassifyCase>
{
};

TEST_P(ReadTClassifies, Answers)
{
    line.deliverAt(clock.elapsedMs() + 3, GetParam().wire);
    EXPECT_EQ(comm.ReadT(1000, "\r\n"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ReadTClassifies,
    ::testing::Values(ClassifyCase {"12.34\r\n", "12.34"},
                      ClassifyCase {"12\r34\r\n", "12\r34"}, // a lone CR stays
                      ClassifyCase {"a\nb\r\n", "a\nb"}, // a lone LF stays
                      ClassifyCase {QByteArray("\x0f\x06\r\n"), "ACK"},
                      ClassifyCase {QByteArray("\x06\x0f\r\n"), "ACK"},
                      ClassifyCase {QByteArray("x\x0fy\r\n"), "NAK"},
                      ClassifyCase {QByteArray("\x15\r\n"), QByteArray("\x15")}, // not a NAK here
                      ClassifyCase {"E;13\r\n", "E;13"},
                      ClassifyCase {QByteArray("\xb0\xff\r\n"), QByteArray("\xb0\xff")}),
    [](const auto &info) { return "case" + std::to_string(info.index); });

TEST_F(CommTest, ReadWithEmptyTerminatorPollsOnce)
{
    line.deliverAt(clock.elapsedMs() + 50, "CCC");
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(comm.ReadT(1000, {}), QByteArray());
    EXPECT_EQ(clock.elapsedMs(), start);
}

TEST_F(CommTest, TickCounterOverflowDuringAReadIsAnError)
{
    VirtualClock wrapping(QDateTime(QDate(2026, 1, 1), QTime(8, 0)), 2147483000);
    ScriptedLine wline(wrapping);
    cComm wcomm(wline, wrapping, op);
    wline.open();
    EXPECT_THROW(wcomm.ReadT(1000, "\r\n"), UpdaterError);
}

TEST_F(CommTest, FirmwarePacketsAreLoggedShortOtherTelegramsInFull)
{
    QByteArray packet(133, 'x');
    packet[0] = 1;
    packet[1] = 1;
    packet[2] = char(254);
    packet[3] = 77;
    packet[131] = 18;
    packet[132] = 52;
    comm.WriteTelegram(packet, {});
    comm.WriteTelegram(QByteArray(132, 'a'), "\r\n");
    comm.WriteTelegram(QByteArray(134, 'b'), {});
    const auto lines = logLines();
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines[0], QByteArray("Telegram sent : 133 Bytes  1 1 254 77 ...  18 52"));
    EXPECT_EQ(lines[1], "Telegram sent : " + QByteArray(132, 'a'));
    EXPECT_EQ(lines[2], "Telegram sent : " + QByteArray(134, 'b'));
    EXPECT_EQ(line.writes[1], QByteArray(132, 'a') + "\r\n");
}

TEST_F(CommTest, TransceiveXWaitsOnlyForTheAckByte)
{
    line.script({{QByteArray("\x15")}, {QByteArray("\x15")}, {QByteArray("\x06")}});
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(comm.TransceiveX(QByteArray(133, 'p'), 2000), QByteArray("ACK"));
    EXPECT_EQ(line.writes.size(), 3);
    // Two full 1000 ms reads for the NAKs; each send waits 2000 ms before its read.
    EXPECT_GE(clock.elapsedMs() - start, 3 * 2000 + 2 * 1000);
    EXPECT_EQ(line.discards, 0);
}

TEST_F(CommTest, OpenPortGreetsTheInstrumentAndLogsTheLine)
{
    line.close();
    line.script({{"KVT;VARIMOsentry;2.00;15\r\n"}, {"DHR;0\r\n"}, {"KEY;0\r\n"}});
    ASSERT_TRUE(comm.OpenPort());
    EXPECT_TRUE(comm.IsOpen());
    EXPECT_EQ(line.settings, u"57600,N,8,1"_s);
    EXPECT_EQ(line.writes, QList<QByteArray>({"KVT\r\n", "DHR;0\r\n", "KEY;0\r\n"}));
    EXPECT_EQ(logLines().last(),
              QByteArray("COM3 opened: 57600 Baud, No parity, 8 data bits, 1 stop bit"));

    // Already open: true at once, nothing sent.
    ASSERT_TRUE(comm.OpenPort());
    EXPECT_EQ(line.writes.size(), 3);

    comm.ClosePort();
    EXPECT_FALSE(comm.IsOpen());
    EXPECT_EQ(logLines().last(), QByteArray("COM3 closed"));
    const auto count = logLines().size();
    comm.ClosePort(); // closed: no second line
    EXPECT_EQ(logLines().size(), count);
}

TEST_F(CommTest, OpenPortWithASilentInstrumentClosesAndWritesNoOpenedLine)
{
    line.close();
    EXPECT_FALSE(comm.OpenPort());
    EXPECT_FALSE(line.isOpen());
    EXPECT_FALSE(comm.lastError().isEmpty());
    for (const QByteArray &l : logLines())
        EXPECT_FALSE(l.contains("opened"));
}

TEST_F(CommTest, OpenPortReportsAPortThatDoesNotOpen)
{
    line.close();
    line.openFails = true;
    EXPECT_FALSE(comm.OpenPort());
    EXPECT_TRUE(line.writes.isEmpty());
    EXPECT_TRUE(comm.lastError().contains(u"COM3"_s) || comm.lastError().contains(u"ttyS2"_s));
}

TEST_F(CommTest, PortNamesThatNameNoPortAreInvalid)
{
    const struct
    {
        QString given;
        QString kept;
        bool valid;
    } cases[] = {
        {u"COM7"_s, u"COM7"_s, true},
        {u" COM12 "_s, u"COM12"_s, true},
        {u"nonsense"_s, u"COM12"_s, false},
        {u"COM0"_s, u"COM12"_s, false},
        {u"COM300"_s, u"COM12"_s, false},
        {u"COM70000"_s, u"COM12"_s, false},
#ifndef Q_OS_WIN
        {u"/dev/ttyUSB0"_s, u"/dev/ttyUSB0"_s, true},
#endif
    };
    for (const auto &c : cases) {
        comm.setComPort(c.given);
        EXPECT_EQ(comm.ComPort(), c.kept) << c.given.toStdString();
        EXPECT_EQ(comm.IsValidPort(), c.valid) << c.given.toStdString();
    }
#ifndef Q_OS_WIN
    comm.setComPort(u"COM7"_s);
    EXPECT_EQ(line.portName(), u"/dev/ttyS6"_s);
#endif
}

TEST_F(CommTest, ReadEndsAtOnceWhenTheLineIsGone)
{
    line.unplugged = true;
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(comm.ReadT(1000, "\r\n"), QByteArray());
    EXPECT_EQ(clock.elapsedMs(), start);
    EXPECT_FALSE(comm.IsOpen());
}

} // namespace
