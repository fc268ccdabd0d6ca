#include "shell/Eligibility.h"

#include "boards/cControler.h"
#include "shell/Settings.h"
#include "shell/cINI.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace Eligibility;

namespace {

TEST(CompareVersions, ComparesDigitStringsWithoutDots)
{
    const struct
    {
        const char *a, *b;
        int expected;
    } cases[] = {{"2.00", "2.05", -1}, {"1.20", "1.20", 0}, {"abc", "0", 0},
                 {"2.05", "2.00", 1},  {"1.2", "1.02", -1}, {"", "0.00", 0}};
    for (const auto &c : cases)
        EXPECT_EQ(CompareVersions(QString::fromLatin1(c.a), QString::fromLatin1(c.b)), c.expected)
            << c.a << " vs " << c.b;
}

struct Side
{
    const char *cpu, *main, *meas;
};

struct EligibilityCase
{
    const char *what;
    Side current;
    Side files;
    const char *settings; // INI content
    bool allowDowngrade;
    bool enabled;
    const char *message;
    int kind;
};

class Check : public ::testing::TestWithParam<EligibilityCase>
{
protected:
    static void fill(BoardSet &boards, const Side &side)
    {
        const char *versions[] = {side.cpu, side.main, side.meas};
        for (int i = 0; i < 3; ++i) {
            cControler &board = boards[kPanelOrder[i]];
            board.setName(u"board"_s);
            board.setFirmware(QString::fromLatin1(versions[i]));
            board.setValidBinFile(!QByteArray(versions[i]).startsWith('<'));
        }
    }
};

TEST_P(Check, GivesTheVerdictOfTheConnectedWindow)
{
    const EligibilityCase c = GetParam();
    QTemporaryDir dir;
    cINI ini;
    ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));
    QFile f(ini.path());
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(c.settings);
    f.close();

    BoardSet current, files;
    fill(current, c.current);
    fill(files, c.files);
    Verdict v = CheckConnected(current, files, Settings::read(ini), c.allowDowngrade);
    const Verdict fileVerdict = CheckUpdateFiles(current, files, c.allowDowngrade);
    if (!fileVerdict.message.isEmpty())
        v = fileVerdict;
    EXPECT_EQ(v.updateEnabled, c.enabled) << c.what;
    EXPECT_EQ(v.message, QString::fromLatin1(c.message)) << c.what;
    EXPECT_EQ(v.kind, c.kind) << c.what;
}

const char kBelowCpuMin[] = "ERROR: Cannot update to this CPU Board version\r\n"
                            "Update only possible to firmware versions >= 2.00";

INSTANTIATE_TEST_SUITE_P(
    Cases, Check,
    ::testing::Values(EligibilityCase {"one newer file",
                                       {"2.00", "1.02", "1.20"},
                                       {"2.01", "1.02", "1.20"},
                                       "",
                                       false,
                                       true,
                                       "VARIMOsentry ready for update",
                                       eNormal},
                      EligibilityCase {"all equal",
                                       {"2.00", "1.02", "1.20"},
                                       {"2.00", "1.02", "1.20"},
                                       "",
                                       false,
                                       false,
                                       "No updates required",
                                       eNormal},
                      EligibilityCase {"CPU below its minimum",
                                       {"1.90", "1.02", "1.20"},
                                       {"2.01", "1.02", "1.20"},
                                       "",
                                       false,
                                       false,
                                       kBelowCpuMin,
                                       eError},
                      EligibilityCase {"minimum from the settings",
                                       {"2.00", "1.05", "1.20"},
                                       {"2.00", "1.06", "1.20"},
                                       "[Mainboard]\r\nFWMin=1.10\r\n",
                                       false,
                                       false,
                                       "ERROR: Cannot update to this Main Board version\r\n"
                                       "Update only possible to firmware versions >= 1.10",
                                       eError},
                      EligibilityCase {"the last failing board's message stays",
                                       {"1.90", "1.00", "1.20"},
                                       {"2.01", "1.03", "1.20"},
                                       "",
                                       false,
                                       false,
                                       "ERROR: Cannot update to this Main Board version\r\n"
                                       "Update only possible to firmware versions >= 1.02",
                                       eError},
                      EligibilityCase {"older file without downgrade",
                                       {"2.00", "1.02", "1.30"},
                                       {"2.00", "1.02", "1.25"},
                                       "",
                                       false,
                                       false,
                                       "No updates required",
                                       eNormal},
                      EligibilityCase {"older file with downgrade",
                                       {"2.00", "1.02", "1.30"},
                                       {"2.00", "1.02", "1.25"},
                                       "",
                                       true,
                                       true,
                                       "VARIMOsentry ready for update",
                                       eNormal},
                      EligibilityCase {"no newer file replaces the minimum message",
                                       {"1.90", "1.02", "1.20"},
                                       {"1.90", "1.02", "1.19"},
                                       "",
                                       false,
                                       false,
                                       "No updates required",
                                       eNormal},
                      EligibilityCase {
                          "a version not read",
                          {"2.00", "", "1.20"},
                          {"2.01", "1.02", "1.20"},
                          "",
                          false,
                          false,
                          "ERROR: No connection to VARIMOsentry\r\n"
                          "Restart VARIMOsentry by pressing the POWER KEY.\r\n"
                          "Wait a few seconds until the measured value display is shown.",
                          eError},
                      EligibilityCase {"a missing file overrides everything",
                                       {"2.00", "1.02", "1.20"},
                                       {"2.01", "<not found>", "1.20"},
                                       "",
                                       false,
                                       false,
                                       "ERROR: At least one update file is missing or invalid\r\n"
                                       "No update is possible.",
                                       eError}),
    [](const auto &info) { return "case" + std::to_string(info.index); });

TEST(CheckUpdateFiles, ColoursTheBoardsThatWillChange)
{
    BoardSet current, files;
    const char *cur[] = {"2.00", "1.05", "1.30"};
    const char *fil[] = {"2.01", "1.05", "1.25"};
    for (int i = 0; i < 3; ++i) {
        const BoardKind kind = kPanelOrder[i];
        current[kind].setName(u"b"_s);
        current[kind].setFirmware(QString::fromLatin1(cur[i]));
        current[kind].setColor(12345);
        files[kind].setName(u"f"_s);
        files[kind].setFirmware(QString::fromLatin1(fil[i]));
        files[kind].setValidBinFile(true);
    }
    CheckUpdateFiles(current, files, false);
    EXPECT_EQ(current[BoardKind::Cpu].Color(), cControler::kBlue);
    EXPECT_EQ(current[BoardKind::Main].Color(), cControler::kBlack);
    EXPECT_EQ(current[BoardKind::Meas].Color(), cControler::kBlack);
    EXPECT_FALSE(JudgeBoard(current[BoardKind::Meas], files[BoardKind::Meas], false).needsUpdate());
    CheckUpdateFiles(current, files, true);
    EXPECT_EQ(current[BoardKind::Meas].Color(), cControler::kRed);
    EXPECT_TRUE(JudgeBoard(current[BoardKind::Meas], files[BoardKind::Meas], true).needsUpdate());

    // A board not read keeps its colour; a board without a usable file is not updated.
    current[BoardKind::Main].setFirmware(QString());
    current[BoardKind::Main].setColor(777);
    CheckUpdateFiles(current, files, true);
    EXPECT_EQ(current[BoardKind::Main].Color(), 777);
    files[BoardKind::Cpu].setValidBinFile(false);
    EXPECT_FALSE(JudgeBoard(current[BoardKind::Cpu], files[BoardKind::Cpu], false).needsUpdate());
}

TEST(IsOneInvalid, EmptyVersionOrInvalidFile)
{
    BoardSet files;
    for (cControler &file : files) {
        file.setFirmware(u"1.00"_s);
        file.setValidBinFile(true);
    }
    EXPECT_FALSE(IsOneInvalid(files));
    files[BoardKind::Meas].setValidBinFile(false);
    EXPECT_TRUE(IsOneInvalid(files));
    files[BoardKind::Meas].setValidBinFile(true);
    files[BoardKind::Cpu].setFirmware(QString());
    EXPECT_TRUE(IsOneInvalid(files));
}

} // namespace
