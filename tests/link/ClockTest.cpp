#include "link/Clock.h"

#include <gtest/gtest.h>
#include <vector>

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
    clock.schedule(900, note(9));
    clock.cancel(clock.scheduleIn(200, note(5)));
    // Events scheduled by an event run in the same advance.
    clock.schedule(150, [&] { clock.scheduleIn(10, note(4)); });

    clock.sleepMs(500);
    EXPECT_EQ(clock.elapsedMs(), 500);
    const std::vector<std::pair<int, qint64>> expected {{1, 100}, {2, 100}, {4, 160}, {3, 300}};
    EXPECT_EQ(ran, expected);
    EXPECT_EQ(clock.nextEventMs(), 900);
}

TEST(VirtualClock, TickCountWrapsLikeTheSystemCounter)
{
    VirtualClock clock(QDateTime(QDate(2026, 1, 1), QTime(23, 59, 59, 500)), 2147483000);
    clock.sleepMs(647);
    EXPECT_EQ(clock.tickCount(), 2147483647);
    clock.sleepMs(1);
    EXPECT_EQ(clock.tickCount(), -2147483647 - 1);
    EXPECT_EQ(clock.now(), QDateTime(QDate(2026, 1, 2), QTime(0, 0, 0, 148)));
}

} // namespace
