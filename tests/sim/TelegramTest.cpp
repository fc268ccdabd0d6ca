#include "AutoOperator.h"
#include "SimDriver.h"
#include "link/cCRC.h"

#include <gtest/gtest.h>

namespace {

InstrumentState withMode(BoardKind kind, BoardMode mode, int route = 0)
{
    InstrumentState state = InstrumentState::defaults();
    state.board(kind).mode = mode;
    state.route = route;
    return state;
}

// One fresh instrument per row, talked to with a script (see SimDriver::talk).
TEST(SimTelegrams, EveryRowGoesAsWritten)
{
    const QByteArray unlock = cCRC::appendCrcToString("XUX;QJR4TW;");
    const QByteArray badCrc = QByteArray::number(cCRC::crc16FromString("XUX;QJR4TW;") ^ 1);
    const InstrumentState plain = InstrumentState::defaults();
    InstrumentState waiting = withMode(BoardKind::Cpu, BoardMode::Waiting);
    waiting.board(BoardKind::Cpu).imageValid = false;
    const std::pair<InstrumentState, QByteArray> rows[] = {
        // Routing and the families of telegrams; BOT;$ only through a bootloader side.
        {plain, "DHR;0 SER=SER;42 KEY;0 KEY;1 DHR;2 DHR;0 KEY;2=E;11 DHR;5=E;11 HELLO=E;10 F=E;10"},
        {plain, "DHR;2 HELLO=E;10 SER;7=E;20 CH;1=E;21 DHR;1 BOT;$=E;10 HW;x=E;20 CEW;2=E;11"},
        {plain, "DHR;0 DPV;28=E;11 DUV;57=E;11 DUV;05=E;11 SER;7=E;20 DUV;1;x=E;21 USR=E;21"},
        {plain, "DHR;0 XUX;QJR4TW;1=E;22"},
        // The identity behind each select, the bootloader sides included.
        {plain,
         "DHR;0 KVT=KVT;VARIMOsentry;2.00;15 DHR;1 KVT=KVT;Vm2MM;1.20;3 DHR;2 KVT=KVT;Vm2PS;1.02;7 "
         "DHR;3 KVT=KVT;Vm2MM;1.20;3 DHR;4 KVT=KVT;Vm2PS;1.02;7"},
        // The write enable covers exactly the next write: a query does not use it up, a refused
        // write does. CEO;1 opens the board, which stores first and does not listen meanwhile.
        {plain,
         "DHR;2 CEW;1 CH=CH;12.5 CH;5;a\xB0 CH;6=E;21 CEW;1 SER;1=E;20 CN;9=E;21 CH=CH;5;a\xB0 "
         "CEW;1 CEO;1 CN;9= CN;9 CEO;0 CN;8=E;21"},
        // The CPU Board writes only after its unlock, with the exact text of the access code.
        {plain, unlock + "=E;22 DUV;3;x=E;21"},
        {plain, "XUC " + cCRC::appendCrcToString("XUX;QJR4TX;") + "=E;22 DUV;3;x=E;21"},
        {plain, "XUC XUX;QJR4TW;" + badCrc + "=E;22 DUV;3;x=E;21"},
        {plain, "XUC XUX;QJR4TW;0" + unlock.mid(11) + "=E;22 DUV;3;x=E;21"}, // a leading zero
        {plain,
         "XUC " + unlock + "=XUX DUV;3;a;b\xB0<& DPV;27; USR DUV;3;c=E;21 DUV;3=DUV;3;a;b\xB0<&;" +
             QByteArray::number(cCRC::crc16FromString("DUV;3;a;b\xB0<&;"))},
        // The setup menu answers everything E;03 and takes nothing.
        {plain,
         "DHR;2 !menu-open KVT=E;03 DHR;0=E;03 CH=E;03 anything=E;03 !menu-close "
         "KVT=KVT;Vm2PS;1.02;7"},
        // RESET+ZERO switches off; POWER starts the boards after the boot time, routing to the CPU.
        {plain, "DHR;2 !reset-zero KVT= close open= !power open KVT= KVT=KVT;VARIMOsentry;2.00;15"},
        // States a board is found in: the CPU Board's update mode (F starts the requests), its
        // bootloader requesting or waiting, the Measuring Module's "C" through its application
        // side.
        {withMode(BoardKind::Cpu, BoardMode::UpdateMode),
         "DHR;0 KVT=KVT;BLCPU;1 F=C DHR;0=C KVT=C"},
        {withMode(BoardKind::Cpu, BoardMode::Requesting), "DHR;0=C KVT=C"},
        // Left waiting after a broken transfer, the CPU bootloader answers E;1 to all but F, also
        // after a restart without an image.
        {waiting, "DHR;0=E;1 KVT=E;1 SER=E;1 !reset-zero !power @1000 DHR;0=E;1 F=C"},
        {withMode(BoardKind::Meas, BoardMode::Requesting, 1), "DHR;1 KVT=C"},
    };
    for (const auto &[state, script] : rows)
        EXPECT_EQ(SimDriver(state).talk(script), "") << script.data();
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

// What the updater does on the line, as a script (see SimDriver::talk; what the instrument answers
// does not matter here, and a telegram waits up to 2.2 s for it): telegrams, pauses, closing and
// opening the port, keys pressed by hand; and the keys the auto-operator (or the hand) presses
// meanwhile.
TEST(SimAutoOperator, PressesWhatTheWaitingUpdaterAsksFor)
{
    const std::pair<const char *, QByteArray> rows[] = {
        // The CPU Board's update mode: DHR;0 then the 3 s wait.
        {"DUV;56 @5000 DHR;0 @3000", "reset-zero update-mode"},
        // The Main Board's restart after its parameters.
        {"DHR;2 CEW;1 CEO;0 DHR;0 @3000 DHR;0 KEY;0", "reset-zero power"},
        // The restart first, then the CPU Board's update mode.
        {"DHR;2 CEW;1 CEO;0 DHR;0 @3000 DHR;0 KEY;0 @5000 DHR;0 @3000",
         "reset-zero power reset-zero update-mode"},
        // Telegrams keep coming: no keys.
        {"KVT DHR;0 KEY;0 DHR;2 DHR;0 DHR;1", ""},
        // The port closed after a failed transfer.
        {"DHR;4 close @3000 open", "reset-zero power"},
        // Disconnecting: DHR;0, KEY;1, close.
        {"DHR;0 KEY;1 close @3000", ""},
        // The port closed and opened again at once.
        {"KVT close open @3000", ""},
        // An open setup menu is closed.
        {"KVT !menu-open KVT @1000 KVT", "menu-open menu-close"},
    };
    for (const auto &[script, keys] : rows) {
        SimDriver sim;
        AutoOperator autoOperator(sim.instrument());
        sim.talk(script, 2200);
        EXPECT_EQ(sim.keys().join(' '), keys) << script;
    }
}

} // namespace
