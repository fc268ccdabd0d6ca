#include "boards/cControler.h"
#include "link/Clock.h"
#include "shell/Eligibility.h"
#include "shell/Settings.h"
#include "shell/Workspace.h"
#include "shell/cINI.h"
#include "shell/cLog.h"
#include "support/Files.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace Eligibility;

namespace {

// A folder for the settings file and the log, on a clock that stands at 14:03:07.
class ShellFiles : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));
        log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
        log.Setlogging(true);
    }

    QTemporaryDir dir;
    VirtualClock clock {QDateTime(QDate(2026, 11, 23), QTime(14, 3, 7))};
    cINI ini;
    cLog log {&clock};
};
using EligibilityTest = ShellFiles;
using IniTest = ShellFiles;
using LogTest = ShellFiles;

TEST(CompareVersions, ComparesDigitStringsWithoutDots)
{
    const std::tuple<const char *, const char *, int> cases[] = {
        {"2.00", "2.05", -1}, {"1.20", "1.20", 0}, {"abc", "0", 0},
        {"2.05", "2.00", 1},  {"1.2", "1.02", -1}, {"", "0.00", 0}};
    for (const auto &[a, b, expected] : cases)
        EXPECT_EQ(CompareVersions(QString::fromLatin1(a), QString::fromLatin1(b)), expected)
            << a << " vs " << b;
}

constexpr qint32 kUnjudged = 12345; // a colour no plan gives

// Versions in panel order (CPU Board, Main Board, Measuring Module): "?" is a version not read,
// a trailing "!" marks an invalid firmware file.
void fill(BoardSet &boards, const char *versions)
{
    const QList<QByteArray> each = QByteArray(versions).split(' ');
    for (int i = 0; i < 3; ++i) {
        cControler &board = boards[kPanelOrder[i]];
        QByteArray version = each[i] == "?" ? QByteArray() : each[i];
        board.setValidBinFile(!version.endsWith('!'));
        board.setName(u"board"_s);
        board.setFirmware(QString::fromLatin1(version.replace('!', "")));
        board.setColor(kUnjudged);
    }
}

QString belowMinimum(const char *board, const char *minimum)
{
    return u"ERROR: Cannot update to this %1 version\r\nUpdate only possible to firmware versions "
           ">= %2"_s.arg(QString::fromLatin1(board), QString::fromLatin1(minimum));
}

// The verdict of the connected window, where a file verdict overrides the connected one, and
// the panel colours of the current boards.
TEST_F(EligibilityTest, GivesTheVerdictOfTheConnectedWindowAndColoursThePanels)
{
    const QString ready = u"VARIMOsentry ready for update"_s, none = u"No updates required"_s;
    const QString noConnection = u"ERROR: No connection to VARIMOsentry\r\nRestart VARIMOsentry by "
                                 "pressing the POWER KEY.\r\nWait a few seconds until the measured "
                                 "value display is shown."_s;
    const QString badFile =
        u"ERROR: At least one update file is missing or invalid\r\nNo update is possible."_s;
    // current versions, file versions, settings, downgrade allowed, plans, update enabled,
    // message. Plans per board: U upgrade (blue), D downgrade (red), - keep (black), . not
    // judged; in lower case when the file is invalid and the board is not updated.
    const std::tuple<const char *, const char *, const char *, bool, const char *, bool, QString>
        cases[] = {
            {"2.00 1.02 1.20", "2.01 1.02 1.20", "", false, "U--", true, ready},
            {"2.00 1.02 1.20", "2.00 1.02 1.20", "", false, "---", false, none},
            {"1.90 1.02 1.20", "2.01 1.02 1.20", "", false, "U--", false,
             belowMinimum("CPU Board", "2.00")},
            {"2.00 1.05 1.20", "2.00 1.06 1.20", "[Mainboard]\r\nFWMin=1.10\r\n", false, "-U-",
             false, belowMinimum("Main Board", "1.10")},
            // The last failing board's message stays.
            {"1.90 1.00 1.20", "2.01 1.03 1.20", "", false, "UU-", false,
             belowMinimum("Main Board", "1.02")},
            {"2.00 1.02 1.30", "2.00 1.02 1.25", "", false, "---", false, none},
            {"2.00 1.02 1.30", "2.00 1.02 1.25", "", true, "--D", true, ready},
            // No newer file replaces the minimum message.
            {"1.90 1.02 1.20", "1.90 1.02 1.19", "", false, "---", false, none},
            {"2.00 ? 1.20", "2.01 1.02 1.20", "", false, "U.-", false, noConnection},
            // A missing or invalid file, or one without a version, overrides everything.
            {"2.00 1.02 1.20", "2.01 1.03! 1.20", "", false, "Uu-", false, badFile},
            {"2.00 1.02 1.30", "2.01! 1.02 1.25", "", true, "u-D", false, badFile},
            {"2.00 1.02 1.20", "2.01 ? 1.20", "", false, "U.-", false, badFile},
        };
    for (const auto &[versions, fileVersions, settings, downgrade, plans, enabled, message] :
         cases) {
        writeFile(ini.path(), settings);
        BoardSet current, files;
        fill(current, versions);
        fill(files, fileVersions);
        Verdict v = CheckConnected(current, files, Settings::read(ini), downgrade);
        const Verdict fileVerdict = CheckUpdateFiles(current, files, downgrade);
        if (!fileVerdict.message.isEmpty())
            v = fileVerdict;
        const std::string row = std::string(versions) + " / " + fileVersions;
        EXPECT_EQ(v.updateEnabled, enabled) << row;
        EXPECT_EQ(v.message, message) << row;
        EXPECT_EQ(v.kind, message.startsWith(u"ERROR"_s) ? eError : eNormal) << row;
        for (int i = 0; i < 3; ++i) {
            const BoardKind kind = kPanelOrder[i];
            const char plan = plans[i];
            const qint32 colour = (plan | 0x20) == 'u' ? cControler::kBlue
                : (plan | 0x20) == 'd'                 ? cControler::kRed
                : plan == '-'                          ? cControler::kBlack
                                                       : kUnjudged;
            EXPECT_EQ(current[kind].Color(), colour) << row << " " << i;
            EXPECT_EQ(JudgeBoard(current[kind], files[kind], downgrade).needsUpdate(),
                      plan == 'U' || plan == 'D')
                << row << " " << i;
        }
    }
}

TEST_F(IniTest, ReadsLikeTheProfileFunctions)
{
    EXPECT_EQ(ini.GetValue(u"Settings"_s, u"COMPort"_s, u"DEF"_s), u"DEF"_s);
    EXPECT_FALSE(QFile::exists(ini.path()));
    EXPECT_TRUE(Settings::read(ini).logParserTele); // packets are logged unless switched off
    // file, section, key, value read (the default is "DEF")
    const std::tuple<const char *, const char *, const char *, const char *> cases[] = {
        {"[Settings]\r\nCOMPort=COM7\r\n", "Settings", "COMPort", "COM7"},
        {"[SETTINGS]\r\ncomport=COM7\r\n", "Settings", "COMPort", "COM7"},
        {"[Settings]\r\n  COMPort =  \"COM 7\"  \r\n", "Settings", "COMPort", "COM 7"},
        {"[S]\nK='x'\n", "S", "K", "x"},
        {"[Settings]\r\nOther=1\r\n", "Settings", "COMPort", "DEF"},
        {"[Other]\r\nCOMPort=COM7\r\n", "Settings", "COMPort", "DEF"},
        {"[A]\r\nK=1\r\n[B]\r\nX=2\r\n", "B", "K", "DEF"},
        {"[S]\r\nK=\r\n", "S", "K", ""},
        {"[S]\r\n;K=1\r\nK=2\r\n", "S", "K", "2"},
        {"[S]\r\n;K=1\r\n", "S", ";K", "DEF"}, // a comment is no entry, whatever it holds
        {"[S]\r\nK=1\r\nK=2\r\n", "S", "K", "1"},
        {"[S]\r\nK=a=b;c\r\n", "S", "K", "a=b;c"},
        {"[S]\r\nK=123456789012345678901234567890123456789012345678901234567890\r\n", "S", "K",
         "1234567890123456789012345678901234567890123456789"}, // cut to 49 characters
    };
    for (const auto &[file, section, key, expected] : cases) {
        writeFile(ini.path(), file);
        EXPECT_EQ(ini.GetValue(QString::fromLatin1(section), QString::fromLatin1(key), u"DEF"_s),
                  QString::fromLatin1(expected))
            << file;
    }
}

// A flag is false only for "0"; a number that is none gives the default.
TEST_F(IniTest, FlagsAndNumbers)
{
    const std::tuple<const char *, bool, int> cases[] = {
        {"0", false, 0},    {"1", true, 1},    {"", true, 5},   {"no", true, 5},
        {"false", true, 5}, {" 0 ", false, 0}, {"00", true, 0}, {" 7 ", true, 7}};
    for (const auto &[value, flag, number] : cases) {
        writeFile(ini.path(), "[Settings]\r\nK=" + QByteArray(value) + "\r\n");
        EXPECT_EQ(ini.GetBoolValue(u"Settings"_s, u"K"_s, false), flag) << value;
        EXPECT_EQ(ini.GetIntValue(u"Settings"_s, u"K"_s, 5), number) << value;
    }
}

TEST_F(IniTest, SetValueCreatesFileAndSectionAndKeepsEveryOtherLineAsItWas)
{
    ASSERT_TRUE(ini.SetValue(u"Settings"_s, u"COMPort"_s, u"COM7"_s));
    EXPECT_EQ(contentOf(ini.path()), QByteArray("[Settings]\r\nCOMPort=COM7\r\n"));

    writeFile(ini.path(),
              "; settings of the updater\r\n[Settings]\r\nCOMPort = COM3   ; old\r\n"
              "AllowDowngrade=0\r\n;Old=1\r\n\r\n[Mainboard]\r\nFile=FW_MAINBOARD_XXX_CRC\r\n");
    ASSERT_TRUE(ini.SetValue(u"settings"_s, u"comport"_s, u"COM7"_s));
    ASSERT_TRUE(ini.SetValue(u"Settings"_s, u"LastBackupFileName"_s, u"b.xml"_s));
    ASSERT_TRUE(ini.SetValue(u"Messmodul"_s, u"FWMin"_s, u"1.30"_s));
    // Each value in its own line, a new one below the section's last line that is not blank, a new
    // section last.
    EXPECT_EQ(
        contentOf(ini.path()),
        QByteArray("; settings of the updater\r\n[Settings]\r\ncomport=COM7\r\n"
                   "AllowDowngrade=0\r\n;Old=1\r\nLastBackupFileName=b.xml\r\n\r\n"
                   "[Mainboard]\r\nFile=FW_MAINBOARD_XXX_CRC\r\n[Messmodul]\r\nFWMin=1.30\r\n"));
}

TEST_F(LogTest, EntriesAreWrittenInTheLogFormatAndAppended)
{
    // indent, additional tabs, blank lines (before when negative), the entry
    const std::tuple<quint8, std::optional<int>, std::optional<int>, const char *> cases[] = {
        {0, {}, {}, "14:03:07 : Telegram sent : KVT\r\n"},
        {3, 0, {}, "14:03:07 : \t\t\tTelegram sent : KVT\r\n"},
        {3, 2, {}, "14:03:07 : \t\t\t\t\tTelegram sent : KVT\r\n"},
        {0, {}, -2, "\r\n\r\n14:03:07 : Telegram sent : KVT\r\n"},
        {0, {}, 2, "14:03:07 : Telegram sent : KVT\r\n\r\n\r\n"},
    };
    for (const auto &[indent, additionalTabs, newline, expected] : cases) {
        QFile::remove(log.path());
        log.SetTabs(indent);
        ASSERT_TRUE(log.UpdateLog(u"Telegram sent : KVT"_s, additionalTabs, newline));
        EXPECT_EQ(contentOf(log.path()), QByteArray(expected));
    }
    // The next entry is appended, at its own time, with its bytes above 127 as they are.
    clock.sleepMs(61000);
    log.UpdateLog(u"    Received  : "_s + QString::fromLatin1("DUV;3;12\xb0;99"));
    EXPECT_EQ(contentOf(log.path()),
              QByteArray("14:03:07 : Telegram sent : KVT\r\n\r\n\r\n"
                         "14:04:08 :     Received  : DUV;3;12\xb0;99\r\n"));
}

TEST_F(LogTest, DisabledLoggingDoesNotTouchTheFile)
{
    log.Setlogging(false); // writes "..." while still on
    log.Setlogging(false); // already off: nothing more
    EXPECT_EQ(contentOf(log.path()), QByteArray("14:03:07 : ...\r\n"));
    QFile::remove(log.path());
    ASSERT_TRUE(log.UpdateLog(u"packet"_s));
    EXPECT_FALSE(QFile::exists(log.path()));

    log.Setlogging(true);
    log.UpdateLog(u"back"_s);
    EXPECT_EQ(contentOf(log.path()), QByteArray("14:03:07 : back\r\n"));
}

TEST_F(ShellFiles, WritesThatCannotHappenReachTheCallerWithThePath)
{
    // A folder where the settings file should be: no user, root included, can write there.
    ASSERT_TRUE(QDir().mkpath(ini.path()));
    EXPECT_FALSE(ini.SetValue(u"Settings"_s, u"COMPort"_s, u"COM7"_s));
    EXPECT_TRUE(ini.errorString().contains(ini.path()));
    log.Init(dir.filePath(u"no/such/folder/log.txt"_s));
    EXPECT_FALSE(log.UpdateLog(u"x"_s));
    EXPECT_TRUE(log.errorString().contains(u"no/such/folder"_s));
}

TEST_F(ShellFiles, FirmwareFilesComeFromTheProgramFolderAndTheRestFromTheDataFolder)
{
    // Files of the exact image size of each board, named as the default patterns expect.
    for (const auto &[name, packets] : {std::pair {"FW_CPU-BOARD_V201-017_CRC1.bin", 8064},
                                        {"FW_MAINBOARD_103_CRC2.bin", 112},
                                        {"FW_MESSMODUL_121-4_CRC3.bin", 992}})
        writeFile(dir.filePath(QString::fromLatin1(name)), QByteArray(packets * 128, '\x5a'));
    EXPECT_EQ(Workspace::ChooseFolders(dir.path(), u"/unused"_s).data, dir.path());
    const QString missing = dir.filePath(u"no/such/folder"_s);
    const Workspace::Folders elsewhere = Workspace::ChooseFolders(missing, dir.filePath(u"data"_s));
    EXPECT_EQ(elsewhere.program, missing);
    EXPECT_EQ(elsewhere.data, dir.filePath(u"data"_s));

    Workspace split({dir.path(), elsewhere.data}, &clock);
    split.Start();
    BoardSet files;
    split.LoadFirmwareFiles(files);
    for (const BoardKind kind : kPanelOrder)
        EXPECT_TRUE(files[kind].ValidBinFile());
    EXPECT_EQ(split.pathFor(u"b.xml"_s), QDir(elsewhere.data).filePath(u"b.xml"_s));
    EXPECT_TRUE(QFile::exists(QDir(elsewhere.data).filePath(u"VarimoSentry_Updater.txt"_s)));
    BoardSet current;
    EXPECT_EQ(split.SetConnectionState(current, files, false, false, u"/dev/ttyUSB1"_s).message,
              u"Invalid port - enter valid RS232-port"_s);
}

} // namespace
