#include "shell/Workspace.h"

#include "boards/cControler.h"
#include "link/Clock.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class WorkspaceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        // Files of the exact image size of each board, named as the default patterns expect.
        writeFile(u"FW_CPU-BOARD_V201-017_CRC1.bin"_s, 8064 * 128);
        writeFile(u"FW_MAINBOARD_103_CRC2.bin"_s, 112 * 128);
        writeFile(u"FW_MESSMODUL_121-4_CRC3.bin"_s, 992 * 128);
        workspace.Start();
        workspace.LoadFirmwareFiles(fresh);
    }
    void writeFile(const QString &name, qint64 size)
    {
        QFile f(dir.filePath(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(size, '\x5a'));
    }
    QByteArray logText() const
    {
        QFile f(QDir(dir.path()).filePath(u"VarimoSentry_Updater.txt"_s));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QTemporaryDir dir;
    VirtualClock clock;
    Workspace workspace {{dir.path(), dir.path()}, &clock};
    BoardSet current;
    BoardSet fresh;
};

TEST_F(WorkspaceTest, StartsAndStopsWithTheLogLinesOfTheWindows)
{
    workspace.Stop();
    EXPECT_EQ(logText(),
              "09:00:00 : VarimoSentry_Updater started...\r\n"
              "09:00:00 : \t\t\tVarimoSentry_Updater terminated...\r\n"
              "09:00:00 : " +
                  QByteArray(62, '-') + "\r\n\r\n");
}

// The verdicts of the connected window itself are Eligibility's.
TEST_F(WorkspaceTest, ConnectionStatesGiveTheTextsOfTheWindows)
{
    // connected, port valid, Main Board file removed, update enabled, message
    const std::tuple<bool, bool, bool, bool, QString> cases[] = {
        {false, true, false, false, Eligibility::instructionLines()},
        {false, false, false, false, u"Invalid port - enter valid RS232-port"_s},
        {true, true, false, true, u"VARIMOsentry ready for update"_s},
        {true, true, true, false,
         u"ERROR: At least one update file is missing or invalid\r\nNo update is possible."_s},
    };
    for (const auto &[connected, portValid, removeMainFile, enabled, message] : cases) {
        if (removeMainFile) {
            QFile::remove(dir.filePath(u"FW_MAINBOARD_103_CRC2.bin"_s));
            workspace.LoadFirmwareFiles(fresh);
        }
        for (const auto &[kind, version] : {std::pair {BoardKind::Cpu, u"2.00"_s},
                                            {BoardKind::Main, u"1.02"_s},
                                            {BoardKind::Meas, u"1.20"_s}}) {
            current[kind].setName(u"board"_s);
            current[kind].setFirmware(version);
        }
        const Eligibility::Verdict v =
            workspace.SetConnectionState(current, fresh, connected, portValid, u"/dev/ttyUSB1"_s);
        EXPECT_EQ(v.updateEnabled, enabled) << message.toStdString();
        EXPECT_EQ(v.message, message);
        // Disconnected, no version of the instrument is shown.
        EXPECT_EQ(current[BoardKind::Cpu].Firmware().isEmpty(), !connected);
    }
    // The port of a connection is the one preselected next time.
    EXPECT_EQ(workspace.ini().GetValue(u"Settings"_s, u"COMPort"_s, u"COM1"_s), u"/dev/ttyUSB1"_s);
}

// The windows' rule: firmware files stay in the program folder; settings, log and backups go
// to the user's data folder when no file can be created in the program folder.
TEST_F(WorkspaceTest, FirmwareFilesComeFromTheProgramFolderAndTheRestFromTheDataFolder)
{
    EXPECT_EQ(Workspace::ChooseFolders(dir.path(), u"/unused"_s).data, dir.path());
    const QString missing = dir.filePath(u"no/such/folder"_s);
    const Workspace::Folders elsewhere = Workspace::ChooseFolders(missing, dir.filePath(u"data"_s));
    EXPECT_EQ(elsewhere.program, missing);
    EXPECT_EQ(elsewhere.data, dir.filePath(u"data"_s));

    Workspace split({dir.path(), elsewhere.data}, &clock);
    split.Start();
    BoardSet files;
    split.LoadFirmwareFiles(files);
    EXPECT_TRUE(files[BoardKind::Main].ValidBinFile());
    EXPECT_EQ(split.pathFor(u"b.xml"_s), QDir(elsewhere.data).filePath(u"b.xml"_s));
    EXPECT_TRUE(QFile::exists(QDir(elsewhere.data).filePath(u"VarimoSentry_Updater.txt"_s)));
}

} // namespace
