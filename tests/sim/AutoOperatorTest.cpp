#include "AutoOperator.h"

#include "SimDriver.h"

#include <gtest/gtest.h>

namespace {

// A script of what the updater does on the line: telegrams (each answered before the next, like
// Transceive with its 200 ms wait), pauses, closing and opening the port.
struct Step
{
    enum Op { Ask, Pause, Close, Open } op;
    QByteArray telegram = {};
    int ms = 0;
};

Step ask(const char *t)
{
    return {Step::Ask, t};
}
Step pause(int ms)
{
    return {Step::Pause, {}, ms};
}

struct Scenario
{
    const char *name;
    std::vector<Step> steps;
    QByteArrayList keys;
};

const Scenario kScenarios[] = {
    {"CPU Board update mode: DHR;0 then the 3 s wait",
     {ask("DUV;56"), pause(5000), ask("DHR;0"), pause(3000)},
     {"reset-zero", "update-mode"}},
    {"Main Board restart after its parameters",
     {ask("DHR;2"), ask("CEW;1"), ask("CEO;0"), ask("DHR;0"), pause(3000), ask("DHR;0"),
      ask("KEY;0")},
     {"reset-zero", "power"}},
    {"restart first, then the CPU Board's update mode",
     {ask("DHR;2"), ask("CEW;1"), ask("CEO;0"), ask("DHR;0"), pause(3000), ask("DHR;0"),
      ask("KEY;0"), pause(5000), ask("DHR;0"), pause(3000)},
     {"reset-zero", "power", "reset-zero", "update-mode"}},
    {"telegrams keep coming: no keys",
     {ask("KVT"), ask("DHR;0"), ask("KEY;0"), ask("DHR;2"), ask("DHR;0"), ask("DHR;1")},
     {}},
    {"port closed after a failed transfer",
     {ask("DHR;4"), {Step::Close}, pause(3000), {Step::Open}},
     {"reset-zero", "power"}},
    {"disconnect: DHR;0, KEY;1, close",
     {ask("DHR;0"), ask("KEY;1"), {Step::Close}, pause(3000)},
     {}},
    {"port closed and opened again at once",
     {ask("KVT"), {Step::Close}, {Step::Open}, pause(3000)},
     {}},
};

TEST(SimAutoOperator, PressesWhatTheWaitingUpdaterAsksFor)
{
    for (const Scenario &s : kScenarios) {
        SCOPED_TRACE(s.name);
        SimDriver sim;
        AutoOperator autoOperator(sim.instrument());
        for (const Step &step : s.steps) {
            switch (step.op) {
            case Step::Ask:
                sim.ask(step.telegram, 2200);
                sim.readFor(200); // the updater's wait after a telegram
                break;
            case Step::Pause:
                sim.readFor(step.ms);
                break;
            case Step::Close:
                sim.line().close();
                break;
            case Step::Open:
                sim.clock.advanceTo(sim.now() + 1);
                sim.line().open();
                break;
            }
        }
        EXPECT_EQ(sim.keys(), s.keys);
    }
}

TEST(SimAutoOperator, KeysArriveInTimeForTheCpuDialogAndLeaveTheMenu)
{
    SimDriver sim;
    AutoOperator autoOperator(sim.instrument());
    ASSERT_EQ(sim.ask("DHR;0"), "DHR;0");
    // The updater waits 3 s, shows its dialog, then reads up to 2 s: the announcement is there.
    const QByteArray waiting = sim.readFor(3000);
    EXPECT_EQ(waiting, "KVT;BLCPU;1\r\n");

    SimDriver menu;
    AutoOperator menuOperator(menu.instrument());
    menu.instrument().press(PanelKey::MenuOpen);
    EXPECT_EQ(menu.ask("KVT"), "E;03");
    menu.readFor(AutoOperator::kDefaultDelayMs + 10);
    EXPECT_EQ(menu.ask("KVT"), "KVT;VARIMOsentry;2.00;15");
}

} // namespace
