#include "ParameterCatalog.h"
#include "SimDriver.h"
#include "link/cCRC.h"

#include <QSet>
#include <gtest/gtest.h>

namespace {

struct Case
{
    const char *select;
    const char *telegram;
    const char *answer;
};

// One fresh instrument per row: select a board, send one telegram, compare the answer.
const Case kCases[] = {
    {"DHR;0", "KVT", "KVT;VARIMOsentry;2.00;15"},
    {"DHR;1", "KVT", "KVT;Vm2MM;1.20;3"},
    {"DHR;2", "KVT", "KVT;Vm2PS;1.02;7"},
    {"DHR;3", "KVT", "KVT;Vm2MM;1.20;3"},
    {"DHR;4", "KVT", "KVT;Vm2PS;1.02;7"},
    {"DHR;0", "SER", "SER;42"},
    {"DHR;0", "KEY;0", "KEY;0"},
    {"DHR;0", "KEY;1", "KEY;1"},
    {"DHR;2", "DHR;0", "DHR;0"},
    {"DHR;0", "KEY;2", "E;11"},
    {"DHR;0", "DHR;5", "E;11"},
    {"DHR;0", "HELLO", "E;10"},
    {"DHR;2", "HELLO", "E;10"},
    {"DHR;0", "F", "E;10"},
    {"DHR;1", "BOT;$", "E;10"}, // only through the bootloader side
    {"DHR;0", "DPV;28", "E;11"},
    {"DHR;0", "DUV;57", "E;11"},
    {"DHR;0", "DUV;05", "E;11"},
    {"DHR;0", "SER;7", "E;20"},
    {"DHR;2", "SER;7", "E;20"},
    {"DHR;1", "HW;x", "E;20"},
    {"DHR;2", "CH;1", "E;21"}, // no CEW;1 before it
    {"DHR;1", "CEW;2", "E;11"},
    {"DHR;0", "DUV;1;x", "E;21"}, // not unlocked
    {"DHR;0", "USR", "E;21"},
    {"DHR;0", "XUX;QJR4TW;1", "E;22"},
};

TEST(SimTelegrams, AnswerEachTelegramFamily)
{
    for (const Case &c : kCases) {
        SCOPED_TRACE(std::string(c.select) + " " + c.telegram);
        SimDriver sim;
        ASSERT_EQ(sim.ask(c.select), QByteArray(c.select));
        EXPECT_EQ(sim.ask(c.telegram), QByteArray(c.answer));
    }
}

TEST(SimTelegrams, EveryCatalogueQueryIsEchoedWithItsValue)
{
    SimDriver sim;
    const std::pair<const char *, BoardKind> boards[] = {{"DHR;2", BoardKind::Main},
                                                         {"DHR;1", BoardKind::Meas}};
    for (const auto &[select, kind] : boards) {
        ASSERT_EQ(sim.ask(select), QByteArray(select));
        const QByteArrayList keys = ParameterCatalog::keys(kind);
        EXPECT_EQ(QSet<QByteArray>(keys.begin(), keys.end()).size(), keys.size());
        for (const QByteArray &key : keys)
            EXPECT_EQ(sim.ask(key), key + ';' + sim.instrument().parameter(kind, key))
                << key.data();
    }
    EXPECT_EQ(ParameterCatalog::mainQueries().size(), 8);
    EXPECT_EQ(ParameterCatalog::measProtectedQueries().size(), 26);
    EXPECT_EQ(ParameterCatalog::measUserQueries().size(), 17);
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Meas, "SER"), "42");
}

TEST(SimTelegrams, IndexedValuesCarryTheCrcOfEverythingBeforeIt)
{
    SimDriver sim;
    int awkward = 0;
    for (const char *prefix : {"DPV;", "DUV;"}) {
        const int count = QByteArray(prefix) == "DPV;" ? 28 : 57;
        for (int i = 0; i < count; ++i) {
            const QByteArray telegram = prefix + QByteArray::number(i);
            const QByteArray answer = sim.ask(telegram);
            // The reader cuts the digits of the last field and checks the CRC over the rest.
            const QByteArray digits = answer.mid(answer.lastIndexOf(';') + 1);
            const QByteArray rest = answer.chopped(digits.size());
            EXPECT_EQ(cCRC::crc16FromString(rest), digits.toInt()) << answer.data();
            const QByteArray value = sim.instrument().parameter(BoardKind::Cpu, telegram);
            EXPECT_EQ(rest, telegram + ';' + value + ';');
            if (value.isEmpty() || value.contains(';') || value.contains('\xB0') ||
                value.contains('&') || value.contains('<'))
                ++awkward;
        }
    }
    EXPECT_GE(awkward, 5) << "the default values should exercise ';', 0xB0, '&', '<' and empty";
}

TEST(SimWrites, WriteEnableCoversExactlyTheNextWrite)
{
    SimDriver sim;
    sim.ask("DHR;2");
    EXPECT_EQ(sim.ask("CEW;1"), "CEW;1");
    EXPECT_EQ(sim.ask("CH"), "CH;12.5"); // a query does not use up the enable
    EXPECT_EQ(sim.ask("CH;5;a\xB0"), "CH;5;a\xB0");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Main, "CH"), "5;a\xB0");
    EXPECT_EQ(sim.ask("CH;6"), "E;21");
    sim.ask("CEW;1");
    EXPECT_EQ(sim.ask("SER;1"), "E;20");
    EXPECT_EQ(sim.ask("CN;9"), "E;21"); // the refused write used up the enable

    // CEO 1 opens the board: no CEW;1 needed; it stores first and does not listen meanwhile.
    sim.ask("CEW;1");
    EXPECT_EQ(sim.ask("CEO;1"), "CEO;1");
    EXPECT_EQ(sim.ask("CN;9", sim.instrument().timing().storeBusyMs / 2), "");
    sim.readFor(sim.instrument().timing().storeBusyMs);
    EXPECT_EQ(sim.ask("CN;9"), "CN;9");
    EXPECT_EQ(sim.ask("CEO;0"), "CEO;0");
    EXPECT_EQ(sim.ask("CN;8"), "E;21");
}

TEST(SimWrites, CpuBoardWritesOnlyAfterTheUnlock)
{
    const QByteArray right = cCRC::appendCrcToString("XUX;QJR4TW;");
    struct Unlock
    {
        QByteArrayList telegrams;
        QByteArray lastAnswer;
    };
    const Unlock refused[] = {
        {{right}, "E;22"}, // no XUC first
        {{"XUC", cCRC::appendCrcToString("XUX;QJR4TX;")}, "E;22"},
        {{"XUC", "XUX;QJR4TW;" + QByteArray::number(cCRC::crc16FromString("XUX;QJR4TW;") ^ 1)},
         "E;22"},
        {{"XUC", "XUX;QJR4TW;0" + right.mid(11)}, "E;22"}, // a leading zero is another text
    };
    for (const Unlock &u : refused) {
        SimDriver sim;
        QByteArray last;
        for (const QByteArray &t : u.telegrams)
            last = sim.ask(t);
        EXPECT_EQ(last, u.lastAnswer) << u.telegrams.join(' ').data();
        EXPECT_EQ(sim.ask("DUV;3;x"), "E;21");
    }

    SimDriver sim;
    EXPECT_EQ(sim.ask("XUC"), "XUC");
    EXPECT_EQ(sim.ask(right), "XUX");
    EXPECT_EQ(sim.ask("DUV;3;a;b\xB0<&"), "DUV;3;a;b\xB0<&");
    EXPECT_EQ(sim.ask("DPV;27;"), "DPV;27;");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Cpu, "DUV;3"), "a;b\xB0<&");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Cpu, "DPV;27"), "");
    EXPECT_EQ(sim.ask("USR"), "USR");
    EXPECT_EQ(sim.ask("DUV;3;c"), "E;21"); // stored and locked again
}

TEST(SimPanel, OpenSetupMenuAnswersEveryTelegramE03UntilClosed)
{
    SimDriver sim;
    sim.ask("DHR;2");
    sim.instrument().press(PanelKey::MenuOpen);
    for (const char *t : {"KVT", "DHR;0", "CH", "anything"})
        EXPECT_EQ(sim.ask(t), "E;03") << t;
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
    // 5 bytes in, 26 bytes out at 57600 baud (0.17 ms a byte), plus the answer delay.
    EXPECT_GE(sim.now() - sent, 20 + 5);
    EXPECT_LE(sim.now() - sent, 20 + 8);
}

} // namespace
