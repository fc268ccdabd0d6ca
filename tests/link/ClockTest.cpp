#include "link/Clock.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

TEST(VirtualClock, SleepRunsDueEventsInTimeOrderAtTheirOwnTime)
{
    VirtualClock clock;
    std::vector<std::pair<int, qint64>> ran;
    clock.schedule(300, [&] { ran.push_back({3, clock.elapsedMs()}); });
    clock.schedule(100, [&] { ran.push_back({1, clock.elapsedMs()}); });
    clock.schedule(100, [&] { ran.push_back({2, clock.elapsedMs()}); });
    clock.schedule(900, [&] { ran.push_back({9, clock.elapsedMs()}); });

    clock.sleepMs(500);
    EXPECT_EQ(clock.elapsedMs(), 500);
    const std::vector<std::pair<int, qint64>> expected {{1, 100}, {2, 100}, {3, 300}};
    EXPECT_EQ(ran, expected);
    EXPECT_EQ(clock.nextEventMs(), 900);
}

TEST(VirtualClock, EventsScheduledByEventsRunInTheSameAdvanceAndCancelledOnesNot)
{
    VirtualClock clock;
    int count = 0;
    std::function<void()> tick = [&] {
        if (++count < 5)
            clock.scheduleIn(10, tick);
    };
    clock.schedule(10, tick);
    clock.cancel(clock.scheduleIn(20, [&] { count += 100; }));
    clock.advanceTo(1000);
    EXPECT_EQ(count, 5);
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
