#include "FirmwareImage.h"
#include "InstrumentState.h"
#include "link/QtSerialLine.h"
#include "support/Files.h"
#include "support/SimProcess.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Sends a telegram over the real line and waits up to 3 s for the answer's CR LF.
QByteArray ask(QtSerialLine &line, const QByteArray &telegram)
{
    line.discardInput();
    line.write(telegram + "\r\n");
    QByteArray got;
    QDeadlineTimer deadline(3000);
    while (!got.contains("\r\n") && !deadline.hasExpired()) {
        line.waitForData(int(deadline.remainingTime()));
        got += line.readAll();
    }
    return got.endsWith("\r\n") ? got.chopped(2) : got;
}

// Polls a file until it contains text (real time: the program runs on its own).
bool waitForText(const QString &path, const QByteArray &text, int timeoutMs = 10000)
{
    QDeadlineTimer deadline(timeoutMs);
    do {
        if (contentOf(path).contains(text))
            return true;
        QThread::msleep(20);
    } while (!deadline.hasExpired());
    return false;
}

// The program on its pseudo-terminal: it loads its state (a board left receiving is found
// requesting), lrzsz's sender flashes the waiting Main Board (when lrzsz is installed); the port is
// served across reopens, keys typed on the input reach the panel, and SIGTERM saves the state with
// every byte of every value.
TEST(SimProgram, TakesAnLrzszImageServesTheLineAndSavesItsStateOnSigterm)
{
    QTemporaryDir dir;
    const QString state = dir.filePath(u"state.json"_s);
    const QString trace = dir.filePath(u"trace.log"_s);
    const QString link = dir.filePath(u"ttyVARIMO"_s);
    const QString sx = QStandardPaths::findExecutable(u"sx"_s);
    InstrumentState start = InstrumentState::defaults();
    if (!sx.isEmpty()) {
        start.board(BoardKind::Main).mode = BoardMode::Receiving;
        start.route = 4;
    }
    for (int b = 0; b < 256; ++b)
        start.board(BoardKind::Cpu).values["DUV;7"].append(char(b));
    start.board(BoardKind::Meas).values["LS;1"] = "";
    start.serialNumber = 32767;
    ASSERT_TRUE(StateFile::save(state, start));
    SimProcess sim;
    ASSERT_TRUE(sim.start({u"--baud"_s, u"0"_s, u"--answer-delay"_s, u"1"_s, u"--boot-time"_s,
                           u"50"_s, u"--restart-delay"_s, u"100"_s, u"--state"_s, state,
                           u"--trace"_s, trace, u"--link"_s, link}));
    EXPECT_EQ(QFile::symLinkTarget(link), sim.port);
    QByteArray identity = "KVT;Vm2PS;1.02;7";
    if (!sx.isEmpty()) {
        const QByteArray bytes = FirmwareImage::make(BoardKind::Main, "1.07", "12");
        const QString image = writeFile(dir.filePath(u"main.bin"_s), bytes);
        QProcess sender;
        sender.start(u"sh"_s,
                     {u"-c"_s, u"exec \"$0\" -X \"$1\" <\"$2\" >\"$2\""_s, sx, image, link});
        ASSERT_TRUE(sender.waitForFinished(60000));
        EXPECT_EQ(sender.exitCode(), 0) << sender.readAllStandardError().toStdString();
        const QByteArray sha = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
        EXPECT_TRUE(waitForText(trace, "14336 bytes flashed (sha256 " + sha + ")"));
        ASSERT_TRUE(waitForText(trace, "Main Board running"));
        identity = "KVT;Vm2PS;1.07;12";
    }

    QtSerialLine line;
    line.setPortName(link);
    line.setSettings(u"57600,N,8,1"_s);
    ASSERT_TRUE(line.open()) << line.errorString().toStdString();
    line.close(); // the port is served again after a close
    ASSERT_TRUE(line.open());
    for (const char *telegram : {"DHR;2", "CEW;1", "CH;7\xB0"})
        EXPECT_EQ(ask(line, telegram), telegram);
    sim.type("menu-open");
    ASSERT_TRUE(waitForText(trace, "key menu-open"));
    EXPECT_EQ(ask(line, "KVT"), "E;03");
    sim.type("menu-close");
    ASSERT_TRUE(waitForText(trace, "key menu-close"));
    EXPECT_EQ(ask(line, "KVT"), identity);
    line.close();

    EXPECT_EQ(sim.stop(), 0);
    const StateFile::LoadResult saved = StateFile::load(state);
    ASSERT_TRUE(saved.ok) << saved.error.toStdString();
    EXPECT_EQ(saved.state.board(BoardKind::Main).values.value("CH"), "7\xB0");
    for (const BoardKind kind : {BoardKind::Cpu, BoardKind::Meas})
        EXPECT_EQ(saved.state.board(kind).values, start.board(kind).values);
    EXPECT_EQ(saved.state.serialNumber, 32767);
    EXPECT_TRUE(waitForText(trace, "< CH;7\\xB0", 0));
}

} // namespace
