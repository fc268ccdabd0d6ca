#pragma once

#include "link/Operator.h"

#include <sys/resource.h>

// What the benchmarks share: an operator nobody is asked, and the process's CPU time.

// Answers every prompt at once; the benchmarks never put the instrument where a person is needed.
class QuietOperator : public Operator
{
public:
    void messageBox(const QString &) override { }
    void instruction(Instruction, const QStringList &) override { }
    void letEventsRun() override { }
};

// User and system CPU time of this process so far, in seconds.
inline double cpuSeconds()
{
    rusage u {};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
        double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}
