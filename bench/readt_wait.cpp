// How much CPU the transceiver burns while it waits for an answer that never comes, and how soon
// ReadT returns after the terminator of an answer has arrived. Runs the real QSerialPort line on a
// pseudo-terminal; prints one line per figure.

#include "BenchSupport.h"
#include "link/Clock.h"
#include "link/Operator.h"
#include "link/QtSerialLine.h"
#include "link/cComm.h"

#include <QCoreApplication>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <pty.h>
#include <sys/resource.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using SteadyClock = std::chrono::steady_clock;

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int master = -1, slave = -1;
    char name[256] = {};
    termios tio {};
    cfmakeraw(&tio);
    if (openpty(&master, &slave, name, &tio, nullptr) != 0) {
        std::perror("openpty");
        return 2;
    }

    QtSerialLine line;
    line.setPortName(QString::fromLocal8Bit(name));
    line.setSettings(QStringLiteral("57600,N,8,1"));
    if (!line.open()) {
        std::fprintf(stderr, "cannot open %s\n", name);
        return 2;
    }
    SystemClock clock;
    QuietOperator op;
    cComm comm(line, clock, op);

    // 1. A read of 1000 ms that gets nothing.
    constexpr int kSilentReads = 3;
    const double cpu0 = cpuSeconds();
    const auto wall0 = SteadyClock::now();
    for (int i = 0; i < kSilentReads; ++i)
        comm.ReadT(1000, "\r\n");
    const double wall = std::chrono::duration<double>(SteadyClock::now() - wall0).count();
    const double cpu = cpuSeconds() - cpu0;
    std::printf("silent ReadT(1000): wall %.3f s, cpu %.4f s, cpu/wall %.2f %% (goal < 2 %%)\n",
                wall, cpu, 100.0 * cpu / wall);

    // 2. Latency from the terminator's arrival to ReadT's return.
    constexpr int kAnswers = 50;
    std::vector<double> latencyUs;
    for (int i = 0; i < kAnswers; ++i) {
        SteadyClock::time_point sentAt;
        std::thread writer([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            sentAt = SteadyClock::now();
            const char answer[] = "KVT;VARIMOsentry;2.00;15\r\n";
            if (::write(master, answer, sizeof answer - 1) < 0)
                std::perror("write");
        });
        const QByteArray got = comm.ReadT(1000, "\r\n");
        const auto returnedAt = SteadyClock::now();
        writer.join();
        if (got != "KVT;VARIMOsentry;2.00;15") {
            std::fprintf(stderr, "unexpected answer %s\n", got.constData());
            return 1;
        }
        latencyUs.push_back(std::chrono::duration<double, std::micro>(returnedAt - sentAt).count());
    }
    std::sort(latencyUs.begin(), latencyUs.end());
    std::printf("terminator to ReadT return over %d answers: median %.0f us, p95 %.0f us, "
                "max %.0f us\n",
                kAnswers, latencyUs[kAnswers / 2], latencyUs[kAnswers * 95 / 100],
                latencyUs.back());
    ::close(master);
    ::close(slave);
    return 0;
}
