#include "boards/cControler.h"
#include "link/Clock.h"
#include "link/QtSerialLine.h"
#include "link/cComm.h"
#include "shell/cLog.h"
#include "support/ScriptedOperator.h"
#include "support/SimProcess.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

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
    ASSERT_EQ(comm.ComPort(), sim.port);
    ASSERT_TRUE(comm.OpenPort()) << comm.lastError().toStdString();

    cControler cpu, meas, main;
    ASSERT_TRUE(cpu.InitFromDevice(&comm, BoardKind::Cpu));
    ASSERT_TRUE(meas.InitFromDevice(&comm, BoardKind::Meas));
    ASSERT_TRUE(main.InitFromDevice(&comm, BoardKind::Main));
    EXPECT_EQ(cpu.Firmware(), u"2.00"_s);
    EXPECT_EQ(cpu.SerialNumber(), u"00042"_s);
    EXPECT_EQ(meas.Firmware(), u"1.20"_s);
    EXPECT_EQ(main.Firmware(), u"1.02"_s);
    EXPECT_EQ(comm.Transceive("DHR;0"), QByteArray("DHR;0"));
    EXPECT_EQ(comm.Transceive("SER"), QByteArray("SER;42"));
    comm.ClosePort();

    QFile f(log.path());
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    QByteArrayList entries;
    for (const QByteArray &l : f.readAll().split('\n'))
        if (l.size() > 11)
            entries << l.mid(11).chopped(1);
    const QByteArray port = sim.port.toLatin1();
    const QByteArrayList expected {"Telegram sent : KVT",
                                   "    Received  : KVT;VARIMOsentry;2.00;15",
                                   "Telegram sent : DHR;0",
                                   "    Received  : DHR;0",
                                   "Telegram sent : KEY;0",
                                   "    Received  : KEY;0",
                                   port + " opened: 57600 Baud, No parity, 8 data bits, 1 stop bit",
                                   "Telegram sent : DHR;0",
                                   "    Received  : DHR;0",
                                   "Telegram sent : KVT",
                                   "    Received  : KVT;VARIMOsentry;2.00;15",
                                   "Telegram sent : SER",
                                   "    Received  : SER;42",
                                   "Telegram sent : DHR;1",
                                   "    Received  : DHR;1",
                                   "Telegram sent : KVT",
                                   "    Received  : KVT;Vm2MM;1.20;3",
                                   "Telegram sent : DHR;2",
                                   "    Received  : DHR;2",
                                   "Telegram sent : KVT",
                                   "    Received  : KVT;Vm2PS;1.02;7",
                                   "Telegram sent : DHR;0",
                                   "    Received  : DHR;0",
                                   "Telegram sent : SER",
                                   "    Received  : SER;42",
                                   port + " closed"};
    EXPECT_EQ(entries, expected);
}

} // namespace
