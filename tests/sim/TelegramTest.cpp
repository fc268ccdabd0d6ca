#include "ParameterCatalog.h"
#include "SimDriver.h"
#include "link/cCRC.h"

#include <QSet>
#include <gtest/gtest.h>

namespace {

// One fresh instrument per row. BOT;$ is taken only through a bootloader side, CH;1 only after
// CEW;1, DUV;1 only after the unlock.
TEST(SimTelegrams, AnswerEachTelegramFamily)
{
    const char *cases[] = {"DHR;0 SER=SER;42",   "DHR;0 KEY;0",       "DHR;0 KEY;1",
                           "DHR;2 DHR;0",        "DHR;0 KEY;2=E;11",  "DHR;0 DHR;5=E;11",
                           "DHR;0 HELLO=E;10",   "DHR;2 HELLO=E;10",  "DHR;0 F=E;10",
                           "DHR;1 BOT;$=E;10",   "DHR;0 DPV;28=E;11", "DHR;0 DUV;57=E;11",
                           "DHR;0 DUV;05=E;11",  "DHR;0 SER;7=E;20",  "DHR;2 SER;7=E;20",
                           "DHR;1 HW;x=E;20",    "DHR;2 CH;1=E;21",   "DHR;1 CEW;2=E;11",
                           "DHR;0 DUV;1;x=E;21", "DHR;0 USR=E;21",    "DHR;0 XUX;QJR4TW;1=E;22"};
    for (const char *c : cases)
        EXPECT_EQ(SimDriver().talk(c), "") << c;
    // The identity behind each select, the bootloader sides included.
    EXPECT_EQ(SimDriver().talk("DHR;0 KVT=KVT;VARIMOsentry;2.00;15 DHR;1 KVT=KVT;Vm2MM;1.20;3 "
                               "DHR;2 KVT=KVT;Vm2PS;1.02;7 DHR;3 KVT=KVT;Vm2MM;1.20;3 "
                               "DHR;4 KVT=KVT;Vm2PS;1.02;7"),
              "");
}

// The catalogue's size is the updater's (the backup tests read every parameter from it).
TEST(SimTelegrams, EveryCatalogueQueryIsEchoedWithItsValue)
{
    SimDriver sim;
    for (const BoardKind kind : {BoardKind::Main, BoardKind::Meas}) {
        const QByteArray select = "DHR;" + QByteArray::number(boardIndex(kind));
        ASSERT_EQ(sim.ask(select), select);
        const QByteArrayList keys = ParameterCatalog::keys(kind);
        EXPECT_EQ(QSet<QByteArray>(keys.begin(), keys.end()).size(), keys.size());
        for (const QByteArray &key : keys)
            EXPECT_EQ(sim.ask(key), key + ';' + sim.instrument().parameter(kind, key))
                << key.data();
    }
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Meas, "SER"), "42");
}

TEST(SimTelegrams, IndexedValuesCarryTheCrcOfEverythingBeforeIt)
{
    SimDriver sim;
    int awkward = 0;
    for (const QByteArray &telegram : ParameterCatalog::keys(BoardKind::Cpu)) {
        const QByteArray answer = sim.ask(telegram);
        // The reader cuts the digits of the last field and checks the CRC over the rest.
        const QByteArray digits = answer.mid(answer.lastIndexOf(';') + 1);
        const QByteArray rest = answer.chopped(digits.size());
        EXPECT_EQ(cCRC::crc16FromString(rest), digits.toInt()) << answer.data();
        const QByteArray value = sim.instrument().parameter(BoardKind::Cpu, telegram);
        EXPECT_EQ(rest, telegram + ';' + value + ';');
        awkward += value.isEmpty() || value.contains(';') || value.contains('\xB0') ||
            value.contains('&') || value.contains('<');
    }
    EXPECT_GE(awkward, 5) << "the default values should exercise ';', 0xB0, '&', '<' and empty";
}

TEST(SimWrites, WriteEnableCoversExactlyTheNextWrite)
{
    SimDriver sim;
    // A query does not use up the enable; a refused write does.
    EXPECT_EQ(sim.talk("DHR;2 CEW;1 CH=CH;12.5 CH;5;a\xB0 CH;6=E;21 CEW;1 SER;1=E;20 CN;9=E;21"),
              "");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Main, "CH"), "5;a\xB0");
    // CEO 1 opens the board: no CEW;1 needed; it stores first and does not listen meanwhile.
    EXPECT_EQ(sim.talk("CEW;1 CEO;1"), "");
    EXPECT_EQ(sim.talk("CN;9=", sim.instrument().timing().storeBusyMs / 2), "");
    sim.readFor(sim.instrument().timing().storeBusyMs);
    EXPECT_EQ(sim.talk("CN;9 CEO;0 CN;8=E;21"), "");
}

TEST(SimWrites, CpuBoardWritesOnlyAfterTheUnlock)
{
    const QByteArray right = cCRC::appendCrcToString("XUX;QJR4TW;");
    const QByteArray refused[] = {
        right + "=E;22", // no XUC first
        "XUC " + cCRC::appendCrcToString("XUX;QJR4TX;") + "=E;22",
        "XUC XUX;QJR4TW;" + QByteArray::number(cCRC::crc16FromString("XUX;QJR4TW;") ^ 1) + "=E;22",
        "XUC XUX;QJR4TW;0" + right.mid(11) + "=E;22", // a leading zero is another text
    };
    for (const QByteArray &script : refused)
        EXPECT_EQ(SimDriver().talk(script + " DUV;3;x=E;21"), "");

    SimDriver sim;
    EXPECT_EQ(sim.talk("XUC " + right + "=XUX DUV;3;a;b\xB0<& DPV;27; USR DUV;3;c=E;21"), "");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Cpu, "DUV;3"), "a;b\xB0<&");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Cpu, "DPV;27"), "");
}

TEST(SimPanel, OpenSetupMenuAnswersEveryTelegramE03UntilClosed)
{
    SimDriver sim;
    sim.ask("DHR;2");
    sim.instrument().press(PanelKey::MenuOpen);
    EXPECT_EQ(sim.talk("KVT=E;03 DHR;0=E;03 CH=E;03 anything=E;03"), "");
    sim.instrument().press(PanelKey::MenuClose);
    EXPECT_EQ(sim.ask("KVT"), "KVT;Vm2PS;1.02;7"); // still the Main Board: DHR;0 was not taken
}

TEST(SimPanel, ResetSwitchesOffAndPowerStartsAfterTheBootTime)
{
    SimDriver sim;
    const SimTiming timing = sim.instrument().timing();
    sim.ask("DHR;2");
    sim.instrument().press(PanelKey::ResetZero);
    EXPECT_EQ(sim.ask("KVT"), "");
    sim.line().close();
    EXPECT_FALSE(sim.line().open());

    sim.instrument().press(PanelKey::Power);
    const qint64 on = sim.now();
    ASSERT_TRUE(sim.line().open());
    EXPECT_EQ(sim.ask("KVT", timing.bootTimeMs / 2), "");
    sim.readFor(int(on + timing.bootTimeMs - sim.now()));
    EXPECT_EQ(sim.ask("KVT"), "KVT;VARIMOsentry;2.00;15"); // the routing starts at the CPU Board
}

TEST(SimLine, AnswersComeAfterTheAnswerDelayAndTheLineTime)
{
    SimTiming timing;
    timing.answerDelayMs = 20;
    SimDriver sim(InstrumentState::defaults(), timing);
    const qint64 sent = sim.now();
    ASSERT_EQ(sim.ask("KVT"), "KVT;VARIMOsentry;2.00;15");
    // The answer delay, then 5 bytes in and 26 out at 57600 baud, 10 bits a byte (5.4 ms), in
    // whole milliseconds.
    EXPECT_EQ(sim.now() - sent, 20 + 6);
}

} // namespace
