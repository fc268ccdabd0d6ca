#include "boards/FirmwareFiles.h"
#include "boards/cControler.h"
#include "link/cComm.h"
#include "support/Files.h"
#include "support/ScriptedLine.h"
#include "support/ScriptedOperator.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace modHelper;

namespace {

TEST(Controler, IdentityAndSerialNumberFromTheirAnswers)
{
    const std::tuple<QByteArray, const char *, bool> cases[] = {
        // answer, name;firmware;build, valid
        {"KVT;Board;2.01;17", "Board;2.01;17", true},
        {"KVT;Board;2.01;17;x", "Board;2.01;17", true},
        {"KVT;X;1.02", "X;1.02;", true},
        {"KVT;X", "X;;", false},
        {"KVT", ";;", false}};
    for (const auto &[answer, fields, valid] : cases) {
        cControler board;
        board.setBuild(u"old"_s);
        board.FillFromKVTTelegram(answer);
        EXPECT_EQ(board.Name() + u';' + board.Firmware() + u';' + board.Build(),
                  QString::fromLatin1(fields));
        EXPECT_EQ(board.IsValid(), valid) << answer.data();
    }
    // answer, valid, serial number
    const std::tuple<const char *, bool, const char *> serials[] = {
        {"SER;42", true, "00042"}, {"SER;123", true, "00123"},  {"SER;32767", true, "32767"},
        {"SER;123456", false, ""}, {"SER;32768", false, ""},    {"SER;abc", false, ""},
        {"", false, ""},           {"SER;SER;7", true, "00007"}};
    for (const auto &[answer, ok, expected] : serials) {
        QString serial, error;
        EXPECT_EQ(SerialNumberFromAnswer(answer, &serial, &error), ok);
        EXPECT_EQ(serial, QString::fromLatin1(expected)) << answer;
        EXPECT_EQ(error.contains(QString::fromLatin1(answer)), !ok) << error.toStdString();
    }
}

// The board's identity read against a scripted instrument.
class InitFromDevice : public ::testing::Test
{
protected:
    void SetUp() override
    {
        line.open();
        line.setResponder([this](const QByteArray &written) -> ScriptedLine::Reply {
            QByteArrayList &queue = answers[written.chopped(2)];
            const QByteArray answer = queue.value(0);
            if (queue.size() > 1)
                queue.removeFirst();
            return {answer.isEmpty() || answer == "C" ? answer : answer + "\r\n"};
        });
    }

    // Runs the read with a script "telegram=answer,answer ..." (each telegram takes its answers
    // in turn, the last one again and again; a telegram not named meets silence) and sums up
    // the outcome, the telegrams sent, name;firmware;build;serial number and the error.
    std::string read(BoardKind kind, const char *script)
    {
        answers.clear();
        line.writes.clear();
        for (const QByteArray &entry : QByteArray(script).split(' '))
            answers[entry.left(entry.indexOf('='))] = entry.mid(entry.indexOf('=') + 1).split(',');
        QByteArray summary = board.InitFromDevice(&comm, kind) ? "found |" : "not found |";
        if (board.IsInBTLMode())
            summary.replace(" |", ", bootloader |");
        for (const QByteArray &w : line.writes)
            summary += ' ' + w.chopped(2);
        summary += " | " +
            (board.Name() + u';' + board.Firmware() + u';' + board.Build() + u';' +
             board.SerialNumber() + u" | "_s + board.LastError())
                .toLatin1();
        return summary.toStdString();
    }

    QMap<QByteArray, QByteArrayList> answers;
    VirtualClock clock;
    ScriptedLine line {clock};
    ScriptedOperator op;
    cComm comm {line, clock, op};
    cControler board;
};

// One board object for all rows: each read starts from nothing.
TEST_F(InitFromDevice, ReadsTheIdentityOrFindsTheBootloader)
{
    const std::tuple<BoardKind, const char *, const char *> cases[] = {
        {BoardKind::Cpu, "DHR;0=DHR;0 KVT=KVT;VARIMOsentry;2.00;15 SER=SER;42",
         "found | DHR;0 KVT SER | VARIMOsentry;2.00;15;00042 | "},
        {BoardKind::Cpu, "DHR;0=DHR;0 KVT=KVT;VARIMOsentry;2.00;15 SER=SER;40000",
         "not found | DHR;0 KVT SER | VARIMOsentry;2.00;15; | "
         "Invalid serial number answer: SER;40000"},
        // Other boards are not asked for a serial number.
        {BoardKind::Meas, "DHR;1=DHR;1 KVT=KVT;Vm2MM-Measure;1.20;3",
         "found | DHR;1 KVT | Vm2MM-Measure;1.20;3; | "},
        {BoardKind::Main, "DHR;2=DHR;2 KVT=KVT;Vm2MM-Measure;1.20;3",
         "not found | DHR;2 KVT | ;;; | "
         "Board 2 answered with another identity: KVT;Vm2MM-Measure;1.20;3"},
        // An answer ending in C is a bootloader even with an identity.
        {BoardKind::Main, "DHR;2=DHR;2 KVT=KVT;Vm2PS;1.02;7C",
         "not found, bootloader | DHR;2 KVT | ;;; | "},
        // E;1 asks once more.
        {BoardKind::Cpu, "DHR;0=DHR;0 KVT=E;1,KVT;VARIMOsentry;2.00;15 SER=SER;42",
         "found | DHR;0 KVT KVT SER | VARIMOsentry;2.00;15;00042 | "},
        // The CPU bootloader's announcement is answered with F; then it asks with "C".
        {BoardKind::Cpu, "DHR;0=DHR;0,C KVT=KVT;BLCPU;1,C F=C",
         "not found, bootloader | DHR;0 KVT F DHR;0 KVT | ;;; | "},
        // A silent board is probed for its waiting bootloader, here found the first time.
        {BoardKind::Main, "DHR;4=C",
         "not found, bootloader | DHR;2 DHR;2 DHR;2 KVT KVT KVT DHR;4 | ;;; | "},
    };
    for (const auto &[kind, script, expected] : cases)
        EXPECT_EQ(read(kind, script), expected);

    // A silent board: two silent Transceives, then three probes of 3000 ms sleep and one poll.
    const qint64 start = clock.elapsedMs();
    EXPECT_EQ(read(BoardKind::Meas, ""),
              "not found | DHR;1 DHR;1 DHR;1 KVT KVT KVT DHR;3 DHR;3 DHR;3 | ;;; | ");
    EXPECT_EQ(clock.elapsedMs() - start, 2 * 6606 + 3 * 3000);
}

TEST(Controler, InitFromBinFileChecksTheImageSize)
{
    // file (created with size bytes unless null), size, firmware shown, valid
    const std::tuple<const char *, qint64, const char *, bool> cases[] = {
        {nullptr, 0, "<not found>", false},
        {"FW_MAINBOARD_103_CRC1.bin", 14336, "1.03", true},
        {"FW_MAINBOARD_103_CRC1.bin", 0, "<empty>", false},
        {"FW_MAINBOARD_103_CRC1.bin", 14337, "<invalid size>", false}, // one byte too long
        {"FW_MAINBOARD_103_CRC1.bin", 14464, "<invalid size>", false}, // one packet too long
        {"FW_MAINBOARD_1", 14336, "", true}, // a short version part
    };
    for (const auto &[file, size, firmware, valid] : cases) {
        QTemporaryDir dir;
        const QString name = QString::fromLatin1(file);
        if (file)
            writeFile(dir.filePath(name), QByteArray(size, '\x5a'));
        cControler board;
        board.InitFromBinFile(dir.path(), name, u"FW_MAINBOARD_XXX_CRC"_s, BoardKind::Main);
        EXPECT_EQ(board.Firmware(), QString::fromLatin1(firmware)) << firmware << " " << size;
        EXPECT_EQ(board.Color(), valid ? 0 : 255); // black or red
        EXPECT_EQ(board.ValidBinFile(), valid);
        EXPECT_EQ(board.BinFileName() + board.ToolTipText(), name + name);
    }
}

const QString kMain = u"FW_MAINBOARD_XXX_CRC"_s;

void create(const QTemporaryDir &dir, const QStringList &names)
{
    for (const QString &name : names) // a name ending in '/' is a folder
        ASSERT_TRUE(name.endsWith(u'/') ? QDir(dir.path()).mkdir(name)
                                        : QFile(dir.filePath(name)).open(QIODevice::WriteOnly));
}

TEST(FirmwareFiles, FindsTheNewestMatchingFileAndItsVersion)
{
    const std::pair<const char *, const char *> cases[] = {
        // files, the newest
        {"FW_MAINBOARD_101_X.bin FW_MAINBOARD_102_Y.bin", "FW_MAINBOARD_102_Y.bin"},
        {"OLD_FW_MAINBOARD_100.bin", "OLD_FW_MAINBOARD_100.bin"},
        {"FW_MAINBOARD_102_Y.bin fw_mainboard_103.BIN", "fw_mainboard_103.BIN"},
        // Case plays no part in the order; a folder is no file.
        {"fw_mainboard_101.bin FW_MAINBOARD_102_Y.bin FW_MAINBOARD_104.bin/",
         "FW_MAINBOARD_102_Y.bin"},
        {"FW_MAINBOARD_1.txt FW_MESSMODUL_1.bin FW_MAINBOARD_1.bin.old", ""}};
    for (const auto &[files, newest] : cases) {
        QTemporaryDir dir;
        create(dir, QString::fromLatin1(files).split(u' '));
        EXPECT_EQ(FindNewestFile(dir.path(), kMain), QString::fromLatin1(newest)) << files;
    }
    // The version from the digits after the prefix (how a path splits: the fuzz target).
    EXPECT_EQ(
        VersionFromFileName(u"FW_CPU-BOARD_V201-005_CRC.bin"_s, u"FW_CPU-BOARD_VXXX-YYY_CRC"_s),
        u"2.01"_s);
}

} // namespace
