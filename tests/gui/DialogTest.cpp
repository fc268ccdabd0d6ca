#include "GuiSupport.h"
#include "gui/InstructionDialogs.h"
#include "gui/frmUpdate.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

TEST(InstructionDialogs, GeneralShrinksByEachEmptyLineOfThreeToFive)
{
    frmMsgGeneral full;
    full.Init(u"1"_s, u"2"_s, u"3"_s, u"4"_s, u"5"_s);
    const int fullHeight = full.height();
    const int okY = full.cmdOk->y();
    // The five lines ('.' an empty one) and how many line heights the dialog gives back.
    const std::pair<const char *, int> cases[] = {
        {"abcd.", 1}, {"a....", 3}, {"ab.de", 1}, {"..cde", 0}, // an empty 3 before a used 4 too
    };
    for (const auto &[text, lines] : cases) {
        QStringList l;
        for (const char c : QByteArray(text))
            l << (c == '.' ? QString() : QString(QChar::fromLatin1(c)));
        frmMsgGeneral dialog;
        dialog.Init(l[0], l[1], l[2], l[3], l[4]);
        const int shrink = lines * frmMsgGeneral::kLineHeight;
        EXPECT_EQ(dialog.height(), fullHeight - shrink) << text;
        EXPECT_EQ(dialog.cmdOk->y(), okY - shrink);
        EXPECT_EQ(dialog.Frame1->height(), full.Frame1->height() - shrink);
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

TEST(UpdateWindow, AnimatesTheStatusAndShowsTheTransferAndItsEnd)
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
    const TransferProgress progress {
        BoardKind::Main,
        7168,
        14336,
        0,
        3000,
        3000,
        u"Sending Main Board binary file (7168 of 14336 Bytes transferred)..."_s};
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

    // The success display of a whole run is the run test's.
    window.showSuccess();
    window.runFinished(true);
    EXPECT_FALSE(window.Frame1->isVisible() || window.Timer1->isActive());
    gui::screenshot(&window, u"frmUpdate-success"_s);
}

} // namespace
