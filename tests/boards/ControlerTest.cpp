#include "boards/cControler.h"
#include "link/cComm.h"
#include "support/ScriptedLine.h"
#include "support/ScriptedOperator.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

TEST(Controler, FillFromIdentityAnswer)
{
    const struct
    {
        const char *answer;
        const char *name, *firmware, *build;
        bool valid;
    } cases[] = {{"KVT;Board;2.01;17", "Board", "2.01", "17", true},
                 {"KVT;Board;2.01;17;extra", "Board", "2.01", "17", true},
                 {"KVT;X;1.02", "X", "1.02", "", true},
                 {"KVT;X", "X", "", "", false},
                 {"KVT", "", "", "", false}};
    for (const auto &c : cases) {
        cControler board;
        board.setBuild(u"old"_s);
        board.FillFromKVTTelegram(c.answer);
        EXPECT_EQ(board.Name(), QString::fromLatin1(c.name)) << c.answer;
        EXPECT_EQ(board.Firmware(), QString::fromLatin1(c.firmware)) << c.answer;
        EXPECT_EQ(board.Build(), QString::fromLatin1(c.build)) << c.answer;
        EXPECT_EQ(board.IsValid(), c.valid) << c.answer;
    }
}

TEST(Controler, SerialNumberFromAnswer)
{
    const struct
    {
        const char *answer;
        bool ok;
        const char *serial;
    } cases[] = {
        {"SER;42", true, "00042"}, {"SER;123", true, "00123"},  {"SER;32767", true, "32767"},
        {"SER;123456", false, ""}, {"SER;32768", false, ""},    {"SER;abc", false, ""},
        {"", false, ""},           {"SER;SER;7", true, "00007"}};
    for (const auto &c : cases) {
        QString serial, error;
        EXPECT_EQ(SerialNumberFromAnswer(c.answer, &serial, &error), c.ok) << c.answer;
        if (c.ok)
            EXPECT_EQ(serial, QString::fromLatin1(c.serial));
        else
            EXPECT_TRUE(error.contains(QString::fromLatin1(c.answer))) << error.toStdString();
    }
}

// The board's identity read against a scripted instrument: a table of telegram -> answer.
class InitFromDevice : public ::testing::Test
{
protected:
    void SetUp() override
    {
        line.open();
        line.setResponder([this](const QByteArray &written) -> ScriptedLine::Reply {
            QByteArray telegram = written;
            if (telegram.endsWith("\r\n"))
                telegram.chop(2);
            const auto it = answers.find(telegram);
            return {it == answers.end() ? QByteArray() : *it + "\r\n"};
        });
    }

    QList<QByteArray> telegrams() const
    {
        QList<QByteArray> out;
        for (QByteArray w : line.writes) {
            if (w.endsWith("\r\n"))
                w.chop(2);
            out << w;
        }
        return out;
    }

    QMap<QByteArray, QByteArray> answers;
    VirtualClock clock;
    ScriptedLine line {clock};
    ScriptedOperator op;
    cComm comm {line, clock, op};
    cControler board;
};

TEST_F(InitFromDevice, CpuBoardWithSerialNumber)
{
    answers = {{"DHR;0", "DHR;0"}, {"KVT", "KVT;VARIMOsentry;2.00;15"}, {"SER", "SER;42"}};
    EXPECT_TRUE(board.InitFromDevice(&comm, BoardKind::Cpu));
    EXPECT_EQ(board.Name(), u"VARIMOsentry"_s);
    EXPECT_EQ(board.Firmware(), u"2.00"_s);
    EXPECT_EQ(board.Build(), u"15"_s);
    EXPECT_EQ(board.SerialNumber(), u"00042"_s);
    EXPECT_FALSE(board.IsInBTLMode());
    EXPECT_EQ(telegrams(), QList<QByteArray>({"DHR;0", "KVT", "SER"}));
}

TEST_F(InitFromDevice, BadSerialNumberFailsTheReadWithAReason)
{
    answers = {{"DHR;0", "DHR;0"}, {"KVT", "KVT;VARIMOsentry;2.00;15"}, {"SER", "SER;40000"}};
    EXPECT_FALSE(board.InitFromDevice(&comm, BoardKind::Cpu));
    EXPECT_TRUE(board.LastError().contains(u"SER;40000"_s));
}

TEST_F(InitFromDevice, OtherBoardsSendNoSerialQuery)
{
    answers = {{"DHR;1", "DHR;1"}, {"KVT", "KVT;Vm2MM-Measure;1.20;3"}};
    EXPECT_TRUE(board.InitFromDevice(&comm, BoardKind::Meas));
    EXPECT_EQ(board.SerialNumber(), QString());
    EXPECT_EQ(telegrams(), QList<QByteArray>({"DHR;1", "KVT"}));
}

TEST_F(InitFromDevice, MainBoardAnsweringWithTheMeasuringModuleIdentity)
{
    answers = {{"DHR;2", "DHR;2"}, {"KVT", "KVT;Vm2MM-Measure;1.20;3"}};
    EXPECT_FALSE(board.InitFromDevice(&comm, BoardKind::Main));
    EXPECT_EQ(board.Name(), QString());
    EXPECT_EQ(board.Firmware(), QString());
    EXPECT_FALSE(board.IsInBTLMode());
}

TEST_F(InitFromDevice, AnswerEndingInCIsABootloaderEvenWithAnIdentity)
{
    answers = {{"DHR;2", "DHR;2"}, {"KVT", "KVT;Vm2PS;1.02;7C"}};
    EXPECT_FALSE(board.InitFromDevice(&comm, BoardKind::Main));
    EXPECT_TRUE(board.IsInBTLMode());
    EXPECT_EQ(telegrams(), QList<QByteArray>({"DHR;2", "KVT"}));
}

TEST_F(InitFromDevice, CpuBootloaderAnnouncementIsAnsweredWithF)
{
    // The CPU bootloader: announces itself, and after "F" asks with "C".
    bool started = false;
    line.setResponder([&](const QByteArray &w) -> ScriptedLine::Reply {
        if (w == "F\r\n")
            started = true;
        if (started)
            return {"C"};
        return {w.startsWith("DHR") ? w : QByteArray("KVT;BLCPU;1\r\n")};
    });
    EXPECT_FALSE(board.InitFromDevice(&comm, BoardKind::Cpu));
    EXPECT_TRUE(board.IsInBTLMode());
    EXPECT_EQ(telegrams(), QList<QByteArray>({"DHR;0", "KVT", "F", "DHR;0", "KVT"}));
}

TEST_F(InitFromDevice, ErrorOneAsksOnceMore)
{
    int kvts = 0;
    line.setResponder([&](const QByteArray &w) -> ScriptedLine::Reply {
        if (w == "KVT\r\n")
            return {++kvts == 1 ? QByteArray("E;1\r\n")
                                : QByteArray("KVT;VARIMOsentry;2.00;15\r\n")};
        return {w == "SER\r\n" ? QByteArray("SER;42\r\n") : w};
    });
    EXPECT_TRUE(board.InitFromDevice(&comm, BoardKind::Cpu));
    EXPECT_EQ(kvts, 2);
}

TEST_F(InitFromDevice, SilentBoardIsProbedThreeTimesForItsBootloader)
{
    const qint64 start = clock.elapsedMs();
    EXPECT_FALSE(board.InitFromDevice(&comm, BoardKind::Meas));
    EXPECT_FALSE(board.IsInBTLMode());
    const QList<QByteArray> w = line.writes;
    ASSERT_EQ(w.size(), 3 + 3 + 3);
    EXPECT_EQ(w.mid(6), QList<QByteArray>({"DHR;3\r\n", "DHR;3\r\n", "DHR;3\r\n"}));
    // two silent Transceives, then three probes of 3000 ms sleep + a single poll each
    EXPECT_NEAR(double(clock.elapsedMs() - start), 2 * 6600.0 + 3 * 3000.0, 30.0);
}

TEST_F(InitFromDevice, WaitingBootloaderFoundByTheProbe)
{
    line.setResponder([&](const QByteArray &w) -> ScriptedLine::Reply {
        if (w == "DHR;4\r\n")
            return {"C", 1000};
        return {};
    });
    EXPECT_FALSE(board.InitFromDevice(&comm, BoardKind::Main));
    EXPECT_TRUE(board.IsInBTLMode());
    EXPECT_EQ(line.writes.count("DHR;4\r\n"), 1);
}

struct BinFileCase
{
    const char *what;
    const char *file; // created with size bytes unless null
    qint64 size;
    BoardKind kind;
    const char *firmware;
    qint32 color;
    bool valid;
};

class InitFromBinFile : public ::testing::TestWithParam<BinFileCase>
{
};

TEST_P(InitFromBinFile, ChecksTheImageSize)
{
    const BinFileCase c = GetParam();
    QTemporaryDir dir;
    QString name;
    if (c.file) {
        name = QString::fromLatin1(c.file);
        QFile f(dir.filePath(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(c.size, '\x5a'));
    }
    cControler board;
    board.InitFromBinFile(dir.path(), name, u"FW_MAINBOARD_XXX_CRC"_s, c.kind);
    EXPECT_EQ(board.Firmware(), QString::fromLatin1(c.firmware)) << c.what;
    EXPECT_EQ(board.Color(), c.color) << c.what;
    EXPECT_EQ(board.ValidBinFile(), c.valid) << c.what;
    EXPECT_EQ(board.BinFileName(), name);
    EXPECT_EQ(board.ToolTipText(), name);
    EXPECT_EQ(board.Name(), c.valid ? name : QString());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, InitFromBinFile,
    ::testing::Values(BinFileCase {"no file", nullptr, 0, BoardKind::Main, "<not found>", 255,
                                   false},
                      BinFileCase {"valid", "FW_MAINBOARD_103_CRC1.bin", 14336, BoardKind::Main,
                                   "1.03", 0, true},
                      BinFileCase {"empty", "FW_MAINBOARD_103_CRC1.bin", 0, BoardKind::Main,
                                   "<empty>", 255, false},
                      BinFileCase {"one byte too long", "FW_MAINBOARD_103_CRC1.bin", 14337,
                                   BoardKind::Main, "<invalid size>", 255, false},
                      BinFileCase {"size of another board", "FW_MAINBOARD_103_CRC1.bin", 126976,
                                   BoardKind::Main, "<invalid size>", 255, false},
                      BinFileCase {"short version part, valid size", "FW_MAINBOARD_1", 14336,
                                   BoardKind::Main, "", 0, true}),
    [](const auto &info) { return "case" + std::to_string(info.index); });

} // namespace
