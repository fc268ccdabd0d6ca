#include "AutoOperator.h"

#include "SimDriver.h"

#include <gtest/gtest.h>

namespace {

// What the updater does on the line, as a script: telegrams (each answered before the next, like
// Transceive with its 200 ms wait), pauses in ms, closing and opening the port; and the keys the
// operator presses meanwhile.
TEST(SimAutoOperator, PressesWhatTheWaitingUpdaterAsksFor)
{
    const std::pair<const char *, QByteArray> cases[] = {
        // The CPU Board's update mode: DHR;0 then the 3 s wait.
        {"DUV;56 5000 DHR;0 3000", "reset-zero update-mode"},
        // The Main Board's restart after its parameters.
        {"DHR;2 CEW;1 CEO;0 DHR;0 3000 DHR;0 KEY;0", "reset-zero power"},
        // The restart first, then the CPU Board's update mode.
        {"DHR;2 CEW;1 CEO;0 DHR;0 3000 DHR;0 KEY;0 5000 DHR;0 3000",
         "reset-zero power reset-zero update-mode"},
        // Telegrams keep coming: no keys.
        {"KVT DHR;0 KEY;0 DHR;2 DHR;0 DHR;1", ""},
        // The port closed after a failed transfer.
        {"DHR;4 close 3000 open", "reset-zero power"},
        // Disconnecting: DHR;0, KEY;1, close.
        {"DHR;0 KEY;1 close 3000", ""},
        // The port closed and opened again at once.
        {"KVT close open 3000", ""},
    };
    for (const auto &[script, keys] : cases) {
        SimDriver sim;
        AutoOperator autoOperator(sim.instrument());
        for (const QByteArray &step : QByteArray(script).split(' ')) {
            bool isPause = false;
            const int ms = step.toInt(&isPause);
            if (isPause) {
                sim.readFor(ms);
            } else if (step == "close") {
                sim.line().close();
            } else if (step == "open") {
                sim.clock.advanceTo(sim.now() + 1);
                sim.line().open();
            } else {
                sim.ask(step, 2200);
                sim.readFor(200); // the updater's wait after a telegram
            }
        }
        EXPECT_EQ(sim.keys().join(' '), keys) << script;
    }
}

TEST(SimAutoOperator, KeysArriveInTimeForTheCpuDialogAndLeaveTheMenu)
{
    SimDriver sim;
    AutoOperator autoOperator(sim.instrument());
    ASSERT_EQ(sim.ask("DHR;0"), "DHR;0");
    // The updater waits 3 s, shows its dialog, then reads up to 2 s: the announcement is there.
    EXPECT_EQ(sim.readFor(3000), "KVT;BLCPU;1\r\n");

    SimDriver menu;
    AutoOperator menuOperator(menu.instrument());
    menu.instrument().press(PanelKey::MenuOpen);
    EXPECT_EQ(menu.talk("KVT=E;03"), "");
    menu.readFor(AutoOperator::kDefaultDelayMs + 10);
    EXPECT_EQ(menu.talk("KVT=KVT;VARIMOsentry;2.00;15"), "");
}

} // namespace
