#include "link/QtSerialLine.h"

#include "link/Clock.h"
#include "link/cComm.h"
#include "support/Pty.h"
#include "support/ScriptedOperator.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

QByteArray allByteValues()
{
    QByteArray b(256, '\0');
    for (int i = 0; i < 256; ++i)
        b[i] = char(i);
    return b;
}

class QtSerialLineTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(pty.isValid());
        ASSERT_TRUE(line.setPortName(pty.slavePath()));
        ASSERT_TRUE(line.setSettings(u"57600,N,8,1"_s));
        ASSERT_TRUE(line.open()) << line.errorString().toStdString();
    }

    QByteArray readFromLine(int n, int timeoutMs)
    {
        QByteArray got;
        QElapsedTimer t;
        t.start();
        while (got.size() < n && t.elapsed() < timeoutMs) {
            line.waitForData(int(timeoutMs - t.elapsed()));
            got += line.readAll();
        }
        return got;
    }

    PtyPair pty;
    QtSerialLine line;
};

TEST_F(QtSerialLineTest, MovesEveryByteValueBothWaysUnchanged)
{
    const QByteArray bytes = allByteValues();
    ASSERT_TRUE(line.write(bytes));
    EXPECT_EQ(pty.read(256, 2000), bytes);

    ASSERT_TRUE(pty.write(bytes));
    EXPECT_EQ(readFromLine(256, 2000), bytes);
}

TEST_F(QtSerialLineTest, WaitReturnsAsSoonAsDataArrives)
{
    std::thread sender([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        pty.write("KVT;x\r\n");
    });
    QElapsedTimer t;
    t.start();
    EXPECT_TRUE(line.waitForData(5000));
    const qint64 waited = t.elapsed();
    sender.join();
    // Woken by the data, not by the 5 s deadline.
    EXPECT_LT(waited, 2500);
    EXPECT_TRUE(readFromLine(7, 1000).startsWith("KVT;x"));
}

TEST_F(QtSerialLineTest, ProbeFindsTheCThatCameDuringItsSleep)
{
    // A board's bootloader probe: the telegram goes out, the "C" arrives while the updater
    // sleeps, and the one read after the sleep (which does not wait) finds it.
    SystemClock clock;
    ScriptedOperator op;
    cComm comm(line, clock, op);
    std::thread board([this] {
        if (pty.read(7, 2000) == "DHR;4\r\n")
            pty.write("C");
    });
    comm.WriteTelegram("DHR;4", "\r\n");
    clock.sleepMs(500);
    board.join();
    EXPECT_EQ(comm.ReadT(1000, {}), QByteArray("C"));
}

TEST_F(QtSerialLineTest, WaitWithNothingComingEndsAtTheDeadline)
{
    EXPECT_FALSE(line.waitForData(50));
    EXPECT_TRUE(line.readAll().isEmpty());
}

TEST_F(QtSerialLineTest, DiscardDropsReceivedBytesButNotOurOwnWrite)
{
    pty.write("stale\r\n");
    ASSERT_TRUE(line.waitForData(1000));
    line.discardInput();
    ASSERT_TRUE(line.write("DHR;0\r\n"));
    line.discardInput();
    EXPECT_EQ(pty.read(7, 1000), QByteArray("DHR;0\r\n"));
    EXPECT_FALSE(line.waitForData(50));
}

TEST_F(QtSerialLineTest, UnpluggedCableClosesTheLineAtOnce)
{
    pty.closeMaster();
    QElapsedTimer t;
    t.start();
    EXPECT_FALSE(line.waitForData(3000));
    EXPECT_LT(t.elapsed(), 1500); // not the whole wait, and no spinning until it ends
    EXPECT_FALSE(line.isOpen());
    EXPECT_FALSE(line.write("KVT\r\n"));
    EXPECT_FALSE(line.errorString().isEmpty());
}

TEST_F(QtSerialLineTest, ClosedLineReportsClosed)
{
    line.close();
    EXPECT_FALSE(line.isOpen());
    EXPECT_FALSE(line.write("X"));
    EXPECT_FALSE(line.waitForData(10));
}

TEST(QtSerialLineSettings, ParsesTheSettingsText)
{
    LineSettings s;
    ASSERT_TRUE(LineSettings::parse(u"57600,N,8,1"_s, &s));
    EXPECT_EQ(s.baud, 57600);
    EXPECT_EQ(s.parity, 'N');
    EXPECT_EQ(s.dataBits, 8);
    EXPECT_EQ(s.stopBits, 1);
    for (const QString &bad : {u""_s, u"57600,N,8"_s, u"fast,N,8,1"_s, u"57600,X,8,1"_s,
                               u"57600,N,9,1"_s, u"57600,N,8,3"_s})
        EXPECT_FALSE(LineSettings::parse(bad, &s)) << bad.toStdString();
}

TEST(QtSerialLineOpen, MissingDeviceFailsWithAReason)
{
    QtSerialLine line;
    line.setPortName(u"/dev/does-not-exist"_s);
    EXPECT_FALSE(line.open());
    EXPECT_FALSE(line.isOpen());
    EXPECT_TRUE(line.errorString().contains(u"/dev/does-not-exist"_s));
}

} // namespace
