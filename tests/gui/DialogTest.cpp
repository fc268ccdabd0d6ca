#include "GuiSupport.h"
#include "gui/InstructionDialogs.h"
#include "gui/frmBackup.h"
#include "gui/frmUpdate.h"
#include "gui/userControler.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Three boards, the CPU Board's given, the others with versions.
BoardSet boards(const QString &cpuFirmware, const QString &serial = {})
{
    BoardSet set;
    set[BoardKind::Cpu].setFirmware(cpuFirmware);
    set[BoardKind::Cpu].setSerialNumber(serial);
    set[BoardKind::Main].setFirmware(u"1.02"_s);
    set[BoardKind::Meas].setFirmware(u"1.20"_s);
    return set;
}

struct HeaderCase
{
    const char *serial;
    const char *firmware;
    bool isCurrent;
    const char *header;
};

TEST(BoardPanel, ChoosesTheHeaderFromTheCpuBoard)
{
    gui::app();
    const HeaderCase cases[] = {
        {"00042", "2.00", true, "VARIMOsentry SN 00042"},
        {"00042", "", true, "VARIMOsentry"},
        {"", "2.00", true, "VARIMOsentry"},
        {"", "2.01", false, "New firmware"},
        {"00042", "2.01", false, "VARIMOsentry SN 00042"},
    };
    userControler panel;
    for (const HeaderCase &c : cases) {
        panel.Init(boards(QString::fromLatin1(c.firmware), QString::fromLatin1(c.serial)),
                   c.isCurrent);
        EXPECT_EQ(panel.header(), QString::fromLatin1(c.header)) << c.serial << c.firmware;
    }
    EXPECT_EQ(panel.findChild<QLabel *>(u"lblCPU"_s)->text(), u"CPU Board:"_s);
}

TEST(BoardPanel, ShowsEachBoardInItsFieldAndColour)
{
    gui::app();
    // The 0x00BBGGRR value and the colour shown.
    const std::pair<qint32, QColor> cases[] = {
        {cControler::kBlack, QColor(0, 0, 0)},
        {cControler::kBlue, QColor(0, 0, 255)},
        {cControler::kRed, QColor(255, 0, 0)},
        {0x00FF01, QColor(1, 255, 0)},
    };
    userControler panel;
    for (const auto &[color, shown] : cases) {
        BoardSet set = boards(u"2.00"_s);
        set[BoardKind::Meas].setColor(color);
        panel.Init(set, false);
        const auto *field = panel.findChild<QLineEdit *>(u"txtMeas"_s);
        EXPECT_EQ(field->text(), u"1.20"_s);
        EXPECT_EQ(field->palette().color(QPalette::Active, QPalette::Text), shown) << color;
    }
    EXPECT_EQ(panel.findChild<QLineEdit *>(u"txtMain"_s)->text(), u"1.02"_s);
    gui::screenshot(&panel, u"panel"_s);
}

TEST(InstructionDialogs, GeneralShrinksByEachEmptyLineOfThreeToFive)
{
    gui::app();
    frmMsgGeneral full;
    full.Init(u"1"_s, u"2"_s, u"3"_s, u"4"_s, u"5"_s);
    const int fullHeight = full.height();
    const int okY = full.cmdOk->y();
    const int line = frmMsgGeneral::kLineHeight;
    struct
    {
        QStringList lines;
        int shrink;
    } const cases[] = {
        {{u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s}, 0},
        {{u"a"_s, u"b"_s, u"c"_s, u"d"_s, QString()}, line},
        {{u"a"_s, QString(), QString(), QString(), QString()}, 3 * line},
        // An empty line 3 before a used line 4 still gives back its height.
        {{u"a"_s, u"b"_s, QString(), u"d"_s, u"e"_s}, line},
        {{QString(), QString(), u"c"_s, u"d"_s, u"e"_s}, 0},
    };
    for (const auto &c : cases) {
        frmMsgGeneral dialog;
        dialog.Init(c.lines[0], c.lines[1], c.lines[2], c.lines[3], c.lines[4]);
        EXPECT_EQ(dialog.height(), fullHeight - c.shrink) << c.lines.join(u'|').toStdString();
        EXPECT_EQ(dialog.cmdOk->y(), okY - c.shrink);
        EXPECT_EQ(dialog.Frame1->height(), full.Frame1->height() - c.shrink);
    }

    frmMsgGeneral cpuLost;
    cpuLost.Init(u"ERROR: No connection to VARIMOsentry"_s,
                 u"Reset VARIMOsentry by pressing RESET && ZERO buttons simultaneously."_s,
                 u"Restart VARIMOsentry by pressing the POWER KEY."_s, u"Continue with OK."_s,
                 QString());
    EXPECT_EQ(cpuLost.shownLine(2),
              u"Reset VARIMOsentry by pressing RESET & ZERO buttons simultaneously."_s);
    cpuLost.show();
    gui::screenshot(&cpuLost, u"frmMsgGeneral"_s);
}

TEST(TestMode, ListsFirmwareFilesByPrefixWithAnEmptyEntryFirst)
{
    gui::ProgramFolder folder;
    const QString cpu = folder.writeFirmware(BoardKind::Cpu, u"2.01"_s);
    folder.writeFirmware(BoardKind::Cpu, u"1.90"_s);
    const QString main = folder.writeFirmware(BoardKind::Main, u"1.03"_s);
    folder.writeFile(u"Messmodul_old_120.bin"_s, 10);
    folder.writeFile(u"CPU_test.BIN"_s, 10);
    folder.writeFile(u"Mainboard_notes.txt"_s, 10);

    frmBackup dialog(folder.path());
    dialog.Init(cpu, main, u"missing.bin"_s);
    const auto items = [](QComboBox *list) {
        QStringList out;
        for (int i = 0; i < list->count(); ++i)
            out << list->itemText(i);
        return out;
    };
    EXPECT_EQ(items(dialog.cmbCPU),
              (QStringList {QString(), u"CPU_test.BIN"_s, u"FW_CPU-BOARD_V190-017_CRC1234.bin"_s,
                            u"FW_CPU-BOARD_V201-017_CRC1234.bin"_s}));
    EXPECT_EQ(items(dialog.cmbMain), (QStringList {QString(), main}));
    EXPECT_EQ(items(dialog.cmbMeas), (QStringList {QString(), u"Messmodul_old_120.bin"_s}));
    EXPECT_EQ(dialog.cmbCPU->currentText(), cpu);
    EXPECT_EQ(dialog.cmbMeas->currentIndex(), 0);
    dialog.show();
    gui::screenshot(&dialog, u"frmBackup"_s);

    dialog.cmbCPU->setCurrentIndex(2);
    dialog.chkXML->setChecked(true);
    dialog.cmdOk->click();
    EXPECT_TRUE(dialog.Accepted());
    EXPECT_EQ(dialog.testFile(BoardKind::Cpu), u"FW_CPU-BOARD_V190-017_CRC1234.bin"_s);
    EXPECT_EQ(dialog.testFile(BoardKind::Main), main);
    EXPECT_TRUE(dialog.testFile(BoardKind::Meas).isEmpty());
    EXPECT_TRUE(dialog.checkBackup());
}

TEST(UpdateWindow, StatusLineGrowsAndFallsBackPastSixtyFiveCharacters)
{
    gui::app();
    frmUpdate window;
    window.SetMode(Job::Kind::Update);
    const QString status = u"VARIMOsentry firmware update in progress"_s; // 40 characters
    window.setStatusText(status);
    QStringList seen;
    for (int tick = 0; tick < 16; ++tick) {
        window.Timer1_Timer();
        seen << window.lblStatus->text();
    }
    // 40 + 2n characters until 66 would be passed: 12 ticks reach 64, the 13th falls back.
    EXPECT_EQ(seen[0], status + u". "_s);
    EXPECT_EQ(seen[11].size(), 64);
    EXPECT_EQ(seen[12], status);
    EXPECT_EQ(seen[13], status + u". "_s);
    EXPECT_EQ(window.Timer1->interval(), 500);
}

TEST(UpdateWindow, ShowsTransferProgressAndTheSuccessDisplay)
{
    gui::app();
    QWidget owner;
    owner.resize(700, 500);
    owner.show();
    frmUpdate window(&owner);
    window.SetMode(Job::Kind::Update);
    window.open();
    ASSERT_TRUE(window.Timer1->isActive());
    window.setStatusText(u"VARIMOsentry firmware update in progress"_s);
    TransferProgress progress;
    progress.board = BoardKind::Main;
    progress.bytesSent = 7168;
    progress.bytesTotal = 14336;
    progress.elapsedMs = 3000;
    progress.remainingMs = 3000;
    progress.text = u"Sending Main Board binary file (7168 of 14336 Bytes transferred)..."_s;
    window.SetCurrentAction(u"Sending Main Board binary file "_s, false);
    window.showTransferProgress(progress);
    EXPECT_EQ(window.lblCurrentAction->text(), progress.text);
    EXPECT_TRUE(window.progressBar->isVisible());
    EXPECT_EQ(window.progressBar->value(), 500);
    EXPECT_EQ(window.lblProgress->text(), u"7,168 of 14,336 bytes  \u2013  0:03 remaining"_s);
    EXPECT_EQ(window.lblStatus2->text(), u"DO NOT INTERRUPT THE UPDATE PROCESS!"_s);
    EXPECT_FALSE(window.cmdOk->isVisible());
    gui::screenshot(&window, u"frmUpdate-transfer"_s);
    window.showJobEvent(JobEvent {BoardKind::Main, Stage::RestartWait, 14});
    EXPECT_EQ(window.lblCurrentAction->text(), progress.text);
    EXPECT_EQ(window.lblProgress->text(), u"Waiting for the Main Board to restart: 14 s"_s);

    // Escape cannot end a run.
    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_TRUE(window.isVisible());

    // The animation pauses while a general instruction dialog is up.
    bool closed = false;
    window.ShowMessage({u"ERROR: No connection to VARIMOsentry"_s, u"Continue with OK."_s},
                       [&] { closed = true; });
    auto *message = qobject_cast<frmMsgGeneral *>(gui::waitForDialog(u"frmMsgGeneral"_s));
    ASSERT_TRUE(message);
    EXPECT_FALSE(window.Timer1->isActive());
    message->cmdOk->click();
    EXPECT_TRUE(gui::waitUntil([&] { return closed; }));
    EXPECT_TRUE(window.Timer1->isActive());

    window.SetCurrentAction(u"Cannot send binary file to VARIMOsentry"_s, true);
    EXPECT_FALSE(window.progressBar->isVisible());
    EXPECT_EQ(window.lblCurrentAction->palette().color(QPalette::WindowText), QColor(Qt::red));

    window.showSuccess();
    window.runFinished(true);
    EXPECT_EQ(window.lblStatus2->text(), u"Update successfully completed"_s);
    EXPECT_FALSE(window.Frame1->isVisible());
    EXPECT_TRUE(window.cmdOk->isVisible());
    EXPECT_FALSE(window.Timer1->isActive());
    EXPECT_TRUE(window.isVisible());
    gui::screenshot(&window, u"frmUpdate-success"_s);
    window.cmdOk->click();
    EXPECT_FALSE(window.isVisible());
    EXPECT_TRUE(window.Result());
}

} // namespace
