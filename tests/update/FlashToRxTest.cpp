#include "link/QtSerialLine.h"
#include "link/cComm.h"
#include "shell/cINI.h"
#include "shell/cLog.h"
#include "support/FastClock.h"
#include "support/Pty.h"
#include "support/ScriptedOperator.h"
#include "update/UpdateRun.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char **environ;

using namespace Qt::StringLiterals;

namespace {

// The Main Board image goes to lrzsz's XMODEM-CRC receiver, a program nobody here wrote, over a
// pseudo-terminal and the real serial line: the file it writes must be the image, byte for byte.
TEST(FlashUpdateToRx, DeliversTheImageByteExact)
{
    const QString rx = QStandardPaths::findExecutable(u"rx"_s);
    if (rx.isEmpty())
        GTEST_SKIP() << "lrzsz's rx is not installed";

    QTemporaryDir dir;
    QByteArray image(112 * 128, '\0');
    QRandomGenerator generator(4711);
    for (char &byte : image)
        byte = char(generator.bounded(256));
    const QString imagePath = dir.filePath(u"FW_MAINBOARD_103_CRC1.bin"_s);
    {
        QFile f(imagePath);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(image);
    }
    const QString received = dir.filePath(u"received.bin"_s);

    PtyPair pty;
    ASSERT_TRUE(pty.isValid());

    // rx gets a terminal of its own through socat, which relays to our master end: rx resets its
    // terminal with a flush when it starts and ends, which on our pair would throw away bytes
    // meant for the line.
    const QString socat = QStandardPaths::findExecutable(u"socat"_s);
    if (socat.isEmpty())
        GTEST_SKIP() << "socat is not installed";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pty.masterFd(), 3);
    const QByteArray socatPath = socat.toLocal8Bit();
    const QByteArray exec =
        "EXEC:" + rx.toLocal8Bit() + " -c -X -q " + received.toLocal8Bit() + ",pty,raw,echo=0";
    char *args[] = {const_cast<char *>(socatPath.constData()), const_cast<char *>("FD:3"),
                    const_cast<char *>(exec.constData()), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, socatPath.constData(), &actions, nullptr, args, environ), 0);
    posix_spawn_file_actions_destroy(&actions);

    FastClock clock;
    ScriptedOperator op;
    QtSerialLine line;
    cComm comm(line, clock, op);
    cLog log(&clock);
    log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
    log.Setlogging(true);
    cINI ini;
    ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));
    comm.Init(&log);
    line.setPortName(pty.slavePath());
    line.setSettings(u"57600,N,8,1"_s);
    ASSERT_TRUE(line.open());

    BoardSet current;
    BoardSet fresh;
    std::optional<RunJournal> journal;
    UpdateRun run(comm, clock, op, {&ini, &log, dir.path(), dir.path()}, current, fresh, journal);

    // rx exits once it has acknowledged the end of transmission. It takes an end only after a
    // second or two of quiet, while the updater repeats it every second, so rx may never see one
    // end alone; the test then stops waiting once the whole image has arrived. Either way the
    // line goes away afterwards, as a board that never restarts.
    std::thread watcher([&] {
        QElapsedTimer sinceComplete;
        for (;;) {
            int status = 0;
            if (waitpid(pid, &status, WNOHANG) == pid)
                break;
            if (!sinceComplete.isValid() && QFileInfo(received).size() == image.size())
                sinceComplete.start();
            if (sinceComplete.isValid() && sinceComplete.elapsed() > 2500) {
                kill(pid, SIGTERM);
                waitpid(pid, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        pty.closeMaster();
    });
    // As a bootloader start would: wait until the receiver asks with "C".
    ASSERT_TRUE(comm.ReadT(5000, "C").endsWith('C'));
    const bool restarted = run.FlashUpdate(imagePath, BoardKind::Main);
    watcher.join();

    EXPECT_FALSE(restarted); // rx is no board: nothing answers "KVT" afterwards
    QFile f(received);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), image);
}

} // namespace
