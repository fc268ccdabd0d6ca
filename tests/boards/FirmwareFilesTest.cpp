#include "boards/FirmwareFiles.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <algorithm>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace modHelper;

namespace {

const QString kMain = u"FW_MAINBOARD_XXX_CRC"_s;

void create(const QTemporaryDir &dir, const QStringList &names)
{
    for (const QString &name : names)
        ASSERT_TRUE(QFile(dir.filePath(name)).open(QIODevice::WriteOnly));
}

TEST(FirmwareFiles, FindsTheNewestMatchingFile)
{
    const struct
    {
        QStringList files;
        QString newest;
    } cases[] = {
        {{u"FW_MAINBOARD_101_X.bin"_s, u"FW_MAINBOARD_102_Y.bin"_s}, u"FW_MAINBOARD_102_Y.bin"_s},
        {{u"OLD_FW_MAINBOARD_100.bin"_s}, u"OLD_FW_MAINBOARD_100.bin"_s},
        {{u"FW_MAINBOARD_102_Y.bin"_s, u"fw_mainboard_103.BIN"_s}, u"fw_mainboard_103.BIN"_s},
        {{u"FW_MAINBOARD_1.txt"_s, u"FW_MESSMODUL_1.bin"_s, u"FW_MAINBOARD_1.bin.old"_s}, {}},
    };
    for (const auto &c : cases) {
        QTemporaryDir dir;
        create(dir, c.files);
        EXPECT_EQ(FindNewestFile(dir.path(), kMain), c.newest) << c.files.join(u' ').toStdString();
    }
}

TEST(FirmwareFiles, ListIsSortedWithoutRegardToCaseAndHoldsFilesOnly)
{
    QTemporaryDir dir;
    create(dir, {u"b.bin"_s, u"C.BIN"_s, u"a_.bin"_s, u"A.bin"_s});
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"D.bin"_s));
    EXPECT_EQ(ListFiles(dir.path(), {}, u"bin"_s),
              (QStringList {u"A.bin"_s, u"a_.bin"_s, u"b.bin"_s, u"C.BIN"_s}));
    EXPECT_FALSE(FileExists(dir.filePath(u"D.bin"_s)));
    EXPECT_TRUE(FileExists(dir.filePath(u"b.bin"_s)));
}

TEST(FirmwareFiles, VersionsAndPathParts)
{
    const QString cpu = u"FW_CPU-BOARD_VXXX-YYY_CRC"_s;
    EXPECT_EQ(PatternPrefix(cpu), u"FW_CPU-BOARD_V"_s);
    EXPECT_EQ(VersionFromFileName(u"FW_CPU-BOARD_V201-005_CRC.bin"_s, cpu), u"2.01"_s);
    EXPECT_EQ(VersionFromFileName(u"fw_mainboard_102_Y.BIN"_s, kMain), u"1.02"_s);
    EXPECT_EQ(VersionFromFileName(u"FW_MAINBOARD_12"_s, kMain), QString());

    EXPECT_EQ(SplitPath(u"C:\\Program\\fw.bin"_s, false), u"fw.bin"_s);
    EXPECT_EQ(SplitPath(u"C:\\Program\\fw.bin"_s, true), u"C:\\Program\\"_s);
    EXPECT_EQ(SplitPath(u"/opt/updater/fw.bin"_s, true), u"/opt/updater/"_s);
    EXPECT_EQ(SplitPath(u"fw.bin"_s, false), u"fw.bin"_s);
    EXPECT_EQ(SplitPath(u"fw.bin"_s, true), QString());
}

} // namespace
