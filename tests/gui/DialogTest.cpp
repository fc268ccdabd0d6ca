#include "GuiSupport.h"
#include "gui/userControler.h"
#include "gui/InstructionDialogs.h"
#include "gui/frmBackup.h"
#include "gui/frmUpdate.h"

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

cControler board(const QString &firmware, qint32 color = cControler::kBlack,
                 const QString &serial = {})
{
    cControler c;
    c.setFirmware(firmware);
    c.setColor(color);
    c.setSerialNumber(serial);
    return c;
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
        const cControler cpu =
            board(QString::fromLatin1(c.firmware), 0, QString::fromLatin1(c.serial));
        panel.Init(cpu, board(u"1.02"_s), board(u"1.20"_s), c.isCurrent);
        EXPECT_EQ(panel.header(), QString::fromLatin1(c.header)) << c.serial << c.firmware;
    }
    EXPECT_EQ(panel.findChild<QLabel *>(u"lblCPU"_s)->text(), u"CPU Board:"_s);
}

TEST(BoardPanel, OneInvalidMeansEmptyOrExactlyRed)
{
    gui::app();
    struct
    {
        QString firmware;
        qint32 color;
        bool invalid;
    } const cases[] = {
        {u"2.00"_s, cControler::kBlack, false},
        {u"2.00"_s, cControler::kBlue, false},
        {u"2.00"_s, cControler::kRed, true},
        {u"<not found>"_s, 255, true},
        {u"2.00"_s, 254, false},
        {u"2.00"_s, 0x0000FF | 0x000100, false},
        {QString(), cControler::kBlack, true},
    };
    userControler panel;
    for (const auto &c : cases) {
        // The odd board is the last one: every field is looked at.
        panel.Init(board(u"2.00"_s), board(u"1.02"_s), board(c.firmware, c.color), false);
        EXPECT_EQ(panel.IsOneInvalid(), c.invalid) << c.firmware.toStdString() << " " << c.color;
        const QColor shown =
            panel.findChild<QLineEdit *>(u"txtMeas"_s)->palette().color(QPalette::Text);
        EXPECT_EQ(userControler::bgrFromColor(shown), c.color);
    }
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
    const QString cpu = folder.writeFirmware(cControler::eCPU, u"2.01"_s);
    folder.writeFirmware(cControler::eCPU, u"1.90"_s);
    const QString main = folder.writeFirmware(cControler::eMain, u"1.03"_s);
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
    EXPECT_EQ(dialog.sTestCPUBin, u"FW_CPU-BOARD_V190-017_CRC1234.bin"_s);
    EXPECT_EQ(dialog.sTestMainBin, main);
    EXPECT_TRUE(dialog.sTestMeasBin.isEmpty());
    EXPECT_TRUE(dialog.bCheckBackup);
}

TEST(UpdateWindow, StatusLineGrowsAndFallsBackPastSixtyFiveCharacters)
{
    gui::app();
    frmUpdate window;
    window.SetMode(UpdateRun::eModeFull);
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
    window.SetMode(UpdateRun::eModeFull);
    window.open();
    ASSERT_TRUE(window.Timer1->isActive());
    window.setStatusText(u"VARIMOsentry firmware update in progress"_s);
    window.SetCurrentAction(UpdateRun::textsFor(cControler::eMain).transfer +
                                u"(7168 of 14336 Bytes transferred)..."_s,
                            false);
    TransferProgress progress;
    progress.bytesSent = 7168;
    progress.bytesTotal = 14336;
    progress.elapsedMs = 3000;
    progress.remainingMs = 3000;
    window.showTransferProgress(progress);
    EXPECT_TRUE(window.progressBar->isVisible());
    EXPECT_EQ(window.progressBar->value(), 500);
    EXPECT_EQ(window.lblProgress->text(), u"7,168 of 14,336 bytes  \u2013  0:03 remaining"_s);
    EXPECT_EQ(window.lblStatus2->text(), u"DO NOT INTERRUPT THE UPDATE PROCESS!"_s);
    EXPECT_FALSE(window.cmdOk->isVisible());
    gui::screenshot(&window, u"frmUpdate-transfer"_s);

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
