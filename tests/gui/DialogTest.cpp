#include "GuiSupport.h"
#include "gui/InstructionDialogs.h"
#include "gui/frmUpdate.h"
#include "gui/userControler.h"

#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

TEST(BoardPanel, ChoosesTheHeaderFromTheCpuBoardAndShowsEachBoardInItsColour)
{
    const struct
    {
        const char *serial;
        const char *firmware;
        bool isCurrent;
        const char *header;
        qint32 color; // 0x00BBGGRR of the Measuring Module
        QColor shown;
    } cases[] = {
        {"00042", "2.00", true, "VARIMOsentry SN 00042", cControler::kBlack, QColor(0, 0, 0)},
        {"00042", "", true, "VARIMOsentry", cControler::kBlue, QColor(0, 0, 255)},
        {"", "2.00", true, "VARIMOsentry", cControler::kRed, QColor(255, 0, 0)},
        {"", "2.01", false, "New firmware", 0x00FF01, QColor(1, 255, 0)},
        {"00042", "2.01", false, "VARIMOsentry SN 00042", cControler::kBlack, QColor(0, 0, 0)},
    };
    userControler panel;
    for (const auto &c : cases) {
        BoardSet set;
        set[BoardKind::Cpu].setFirmware(QString::fromLatin1(c.firmware));
        set[BoardKind::Cpu].setSerialNumber(QString::fromLatin1(c.serial));
        set[BoardKind::Main].setFirmware(u"1.02"_s);
        set[BoardKind::Meas].setFirmware(u"1.20"_s);
        set[BoardKind::Meas].setColor(c.color);
        panel.Init(set, c.isCurrent);
        EXPECT_EQ(panel.header(), QString::fromLatin1(c.header)) << c.serial << c.firmware;
        const auto *field = panel.findChild<QLineEdit *>(u"txtMeas"_s);
        EXPECT_EQ(field->text(), u"1.20"_s);
        EXPECT_EQ(field->palette().color(QPalette::Active, QPalette::Text), c.shown) << c.color;
    }
    EXPECT_EQ(panel.findChild<QLineEdit *>(u"txtMain"_s)->text(), u"1.02"_s);
    EXPECT_EQ(panel.findChild<QLabel *>(u"lblCPU"_s)->text(), u"CPU Board:"_s);
    gui::screenshot(&panel, u"panel"_s);
}

TEST(InstructionDialogs, GeneralShrinksByEachEmptyLineOfThreeToFive)
{
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

TEST(UpdateWindow, AnimatesTheStatusShowsTransferProgressAndTheSuccessDisplay)
{
    QWidget owner;
    owner.resize(700, 500);
    owner.show();
    frmUpdate window(&owner);
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

    window.open();
    ASSERT_TRUE(window.Timer1->isActive());
    window.setStatusText(status);
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
