#include "shell/Workspace.h"

#include "boards/cControler.h"
#include "link/Clock.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The windows' rule: firmware files stay in the program folder; settings, log and backups go
// to the user's data folder when no file can be created in the program folder.
TEST(WorkspaceTest, FirmwareFilesComeFromTheProgramFolderAndTheRestFromTheDataFolder)
{
    QTemporaryDir dir;
    // Files of the exact image size of each board, named as the default patterns expect.
    for (const auto &[name, packets] : {std::pair {"FW_CPU-BOARD_V201-017_CRC1.bin", 8064},
                                        {"FW_MAINBOARD_103_CRC2.bin", 112},
                                        {"FW_MESSMODUL_121-4_CRC3.bin", 992}}) {
        QFile image(dir.filePath(QString::fromLatin1(name)));
        ASSERT_TRUE(image.open(QIODevice::WriteOnly));
        image.write(QByteArray(packets * 128, '\x5a'));
    }
    EXPECT_EQ(Workspace::ChooseFolders(dir.path(), u"/unused"_s).data, dir.path());
    const QString missing = dir.filePath(u"no/such/folder"_s);
    const Workspace::Folders elsewhere = Workspace::ChooseFolders(missing, dir.filePath(u"data"_s));
    EXPECT_EQ(elsewhere.program, missing);
    EXPECT_EQ(elsewhere.data, dir.filePath(u"data"_s));

    VirtualClock clock;
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
