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
TEST(Eligibility, GivesTheVerdictOfTheConnectedWindowAndColoursThePanels)
{
    QTemporaryDir dir;
    cINI ini;
    ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));
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
        QFile f(ini.path());
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(settings);
        f.close();
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

} // namespace
