#include "link/QtSerialLine.h"

#include "boards/cControler.h"
#include "link/Clock.h"
#include "link/cComm.h"
#include "shell/cLog.h"
#include "support/Files.h"
#include "support/Pty.h"
#include "support/ScriptedOperator.h"
#include "support/SimProcess.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

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

    PtyPair pty;
    QtSerialLine line;
};

// Discarding drops what came in, not what we wrote; bytes from the device wake a waiting line.
TEST_F(QtSerialLineTest, MovesEveryByteValueBothWaysAndDiscardsOnlyWhatCameIn)
{
    QByteArray bytes(256, '\0');
    for (int i = 0; i < 256; ++i)
        bytes[i] = char(i);
    pty.write("stale\r\n");
    ASSERT_TRUE(line.waitForData(1000));
    line.discardInput();
    ASSERT_TRUE(line.write(bytes));
    line.discardInput();
    EXPECT_EQ(pty.read(256, 2000), bytes);

    std::thread sender([&] {
        std::this_thread::sleep_for(100ms);
        pty.write(bytes);
    });
    EXPECT_TRUE(line.waitForData(5000));
    sender.join();
    QByteArray got;
    while (got.size() < 256 && line.waitForData(2000))
        got += line.readAll();
    EXPECT_EQ(got, bytes);

    // A read that does not wait still gets what came while nobody waited (a bootloader's "C"
    // during the sleep after its probe).
    pty.write("C");
    for (int i = 0; i < 100 && got != "C"; ++i, std::this_thread::sleep_for(20ms))
        got = line.readAll();
    EXPECT_EQ(got, QByteArray("C"));
}

TEST_F(QtSerialLineTest, UnpluggedCableClosesTheLineAtOnceAndAMissingDeviceDoesNotOpen)
{
    // The hang-up ends the wait as an error, not as a timeout: the line is closed by it.
    pty.closeMaster();
    EXPECT_FALSE(line.waitForData(3000));
    EXPECT_FALSE(line.isOpen());
    EXPECT_FALSE(line.write("KVT\r\n"));
    EXPECT_FALSE(line.errorString().isEmpty());

    line.setPortName(u"/dev/does-not-exist"_s);
    EXPECT_FALSE(line.open());
    EXPECT_TRUE(line.errorString().contains(u"/dev/does-not-exist"_s));
}

// The real serial code against varimo-sim on a pseudo-terminal, at 57600 baud: the connect
// sequence reads the three boards and the serial number, and the log shows every exchange.
TEST(CommOverPty, ConnectSequenceReadsTheInstrument)
{
    SimProcess sim;
    ASSERT_TRUE(sim.start({u"--answer-delay"_s, u"2"_s}));

    QTemporaryDir dir;
    SystemClock clock;
    cLog log(&clock);
    log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
    log.Setlogging(true);
    ScriptedOperator op;
    QtSerialLine line;
    cComm comm(line, clock, op);
    comm.Init(&log);
    comm.setComPort(sim.port);
    ASSERT_TRUE(comm.OpenPort()) << comm.lastError().toStdString();
    ASSERT_TRUE(comm.OpenPort()); // already open: nothing sent, nothing logged

    for (BoardKind kind : {BoardKind::Cpu, BoardKind::Meas, BoardKind::Main})
        ASSERT_TRUE(cControler().InitFromDevice(&comm, kind)) << int(kind);
    comm.ClosePort();
    comm.ClosePort(); // logged once

    QByteArrayList entries;
    for (const QByteArray &l : contentOf(log.path()).split('\n'))
        if (l.size() > 11)
            entries << l.mid(11).chopped(1);
    // The greeting, the opened line, then per board its select and identity (and serial number);
    // "telegram=answer", the telegram alone for its echo, or a line of the port after its name.
    QByteArrayList expected;
    for (const QByteArray &step :
         QByteArray("KVT=KVT;VARIMOsentry;2.00;15|DHR;0|KEY;0| opened: 57600 Baud, No parity, 8 "
                    "data bits, 1 stop bit|DHR;0|KVT=KVT;VARIMOsentry;2.00;15|SER=SER;42|DHR;1|"
                    "KVT=KVT;Vm2MM;1.20;3|DHR;2|KVT=KVT;Vm2PS;1.02;7| closed")
             .split('|'))
        expected << (step.startsWith(' ')
                         ? QByteArrayList {sim.port.toLatin1() + step}
                         : QByteArrayList {"Telegram sent : " + step.split('=').first(),
                                           "    Received  : " + step.split('=').last()});
    EXPECT_EQ(entries, expected);
}

} // namespace
