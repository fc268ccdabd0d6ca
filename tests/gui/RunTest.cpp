#include "GuiSupport.h"
#include "boards/FirmwareFiles.h"
#include "gui/InstructionDialogs.h"
#include "gui/frmUpdate.h"
#include "gui/userControler.h"
#include "shell/AppInfo.h"
#include "support/SimFixture.h"
#include "update/Session.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Presses OK in every instruction dialog and message box that comes up, and notes which.
struct DialogAnswerer : QTimer
{
    DialogAnswerer()
    {
        QObject::connect(this, &QTimer::timeout, [this] {
            QWidget *top = QApplication::activeModalWidget();
            if (auto *dialog = qobject_cast<InstructionDialog *>(top); dialog && top->isVisible()) {
                if (!seen.contains(dialog->objectName()))
                    gui::screenshot(dialog, u"run-"_s + dialog->objectName());
                seen << dialog->objectName();
                dialog->cmdOk->click();
            } else if (auto *box = qobject_cast<QMessageBox *>(top); box && top->isVisible()) {
                seen << box->text();
                box->button(QMessageBox::Ok)->click();
            }
        });
        start(10);
    }
    QStringList seen;
};

class Run : public gui::WindowTest
{
};

TEST_F(Run, ABoardWaitingInItsBootloaderIsUpdatedAtOnce)
{
    // A Main Board whose transfer broke off starts its bootloader when switched on.
    BoardState &main = sim.state.board(BoardKind::Main);
    main.imageValid = false;
    main.mode = BoardMode::Idle;
    gui::WindowUnderTest w(folder, sim.link());
    DialogAnswerer answerer;
    w->cmdConnect->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->updateWindow()->isVisible(); }, 300000));
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }, 120000));
    // The board runs the new firmware; without a backup its parameters could not be restored,
    // which the run reports. Reload all connects afresh and offers the update again.
    EXPECT_EQ(sim.instrument().state().board(BoardKind::Main).firmware, "1.03");
    EXPECT_TRUE(answerer.seen.contains(u"frmMsgGeneral"_s))
        << answerer.seen.join(u'|').toStdString();
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->cmdConnect->text(), u"Disconnect"_s);
    EXPECT_EQ(gui::field(w->CurrentControler, "txtMain")->text(), u"1.03"_s);
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
}

// An updater stopped after the Main Board took its new image, before its parameters went back:
// its journal and backup are on disk, the board holds its new firmware's defaults. The windows
// show the unfinished run; Update finishes it and updates the other boards, Restore Data writes
// the backup back.
TEST_F(Run, AnUnfinishedRunIsShownAndUpdateFinishesIt)
{
    SimRig killed;
    killed.writeFirmware("2.01", "1.21", "1.03");
    const InstrumentState before = killed.instrument().state();
    {
        Session first(
            killed.sim.line(), killed.clock, killed.op,
            SessionFiles {&killed.ini, &killed.log, killed.dir.path(), killed.dir.path()});
        ASSERT_TRUE(first.run(Job::connectTo(u"COM1"_s)).succeeded());
        for (const BoardKind kind : kPanelOrder) {
            const QString pattern = QString::fromLatin1(boardFacts(kind).defaultPattern);
            first.fresh()[kind].InitFromBinFile(
                killed.dir.path(), modHelper::FindNewestFile(killed.dir.path(), pattern), pattern,
                kind);
        }
        QObject::connect(&first, &Session::jobEvent, [](const JobEvent &e) {
            if (e.board == BoardKind::Main && e.stage == Stage::Restore)
                throw std::runtime_error("killed");
        });
        EXPECT_THROW(first.run(Job::update(false)), std::runtime_error);
    }
    for (const QString &name : QDir(killed.dir.path()).entryList({u"VarimoSentry_*_00042*"_s}))
        ASSERT_TRUE(QFile::copy(killed.dir.filePath(name), folder.filePath(name)));
    sim.state = killed.instrument().state();
    ASSERT_NE(sim.state.board(BoardKind::Main).values, before.board(BoardKind::Main).values);

    gui::WindowUnderTest w(folder, sim.link());
    ASSERT_TRUE(w.connect());
    EXPECT_TRUE(w->statusText().contains(u"Main Board flashed with 1.03, its parameters not yet "
                                         "restored"_s))
        << w->statusText().toStdString();
    EXPECT_TRUE(w->lblJournal->isVisible());
    EXPECT_TRUE(w->cmdUpdate->isEnabled());
    EXPECT_EQ(gui::field(w->NewControler, "txtCPU")->text(), u"2.01"_s);
    gui::screenshot(w.window.get(), u"run-main-unfinished-run"_s);

    DialogAnswerer answerer;
    w->cmdUpdate->click();
    frmUpdate *update = w->updateWindow();
    bool pictured = false;
    ASSERT_TRUE(gui::waitUntil(
        [&] {
            if (!pictured && update->progressBar->isVisible()) {
                gui::screenshot(update, u"run-frmUpdate"_s);
                pictured = true;
            }
            return update->cmdOk->isVisible();
        },
        300000))
        << update->lblCurrentAction->text().toStdString() << "\n"
        << folder.readText(u"VarimoSentry_Updater.txt"_s).right(3000).toStdString();
    EXPECT_EQ(update->lblStatus2->text(), u"Update successfully completed"_s);
    for (const QString &dialog : {u"frmMsgMainBoard"_s, u"frmMsgCPU"_s})
        EXPECT_TRUE(answerer.seen.contains(dialog)) << answerer.seen.join(u'|').toStdString();
    EXPECT_TRUE(pictured);
    gui::screenshot(update, u"run-frmUpdate-success"_s);
    update->cmdOk->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }));
    for (const BoardKind kind : kPanelOrder)
        EXPECT_EQ(sim.instrument().state().board(kind).values, before.board(kind).values)
            << boardName(kind).toStdString();
    EXPECT_FALSE(w->lblJournal->isVisible());
    EXPECT_TRUE(QDir(folder.path()).entryList({u"VarimoSentry_Journal_*"_s}).isEmpty());
    EXPECT_EQ(w->statusText(), u"No updates required"_s);
    const QStringList shown = {gui::field(w->CurrentControler, "txtCPU")->text(),
                               gui::field(w->CurrentControler, "txtMain")->text(),
                               gui::field(w->CurrentControler, "txtMeas")->text()};
    EXPECT_EQ(shown, (QStringList {u"2.01"_s, u"1.03"_s, u"1.21"_s}));
    EXPECT_TRUE(w->cmdRestore->isEnabled());
    gui::screenshot(w.window.get(), u"run-main-after-update"_s);

    // Restore Data writes the backup back and connects again.
    sim.instrument().setParameter(BoardKind::Main, "CH", "99");
    w->cmdRestore->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }, 120000));
    EXPECT_FALSE(update->isVisible());
    EXPECT_TRUE(update->Result());
    EXPECT_EQ(sim.instrument().state().board(BoardKind::Main).values,
              before.board(BoardKind::Main).values);
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->statusText(), u"No updates required"_s);
}

// The real program on a real display (Xvfb), connected to varimo-sim on a pseudo-terminal by the
// program's test hook; the title as the window manager gets it from the X server.
TEST(OnScreen, TheProgramConnectsToTheSimulatorOnAPseudoTerminal)
{
    const QString xvfbRun = QStandardPaths::findExecutable(u"xvfb-run"_s);
    if (xvfbRun.isEmpty())
        GTEST_SKIP() << "xvfb-run is not installed";
    const QString build = QString::fromUtf8(VARIMO_TEST_BINARY_DIR);
    gui::ProgramFolder dir;
    const QString program = dir.filePath(u"VarimoSentry_Updater"_s);
    ASSERT_TRUE(QFile::copy(build + u"/src/VarimoSentry_Updater"_s, program));
    ASSERT_EQ(QProcess::execute(build + u"/sim/varimo-sim"_s, {u"--make-firmware"_s, dir.path()}),
              0);
    QProcess sim;
    sim.start(build + u"/sim/varimo-sim"_s, {u"--baud"_s, u"0"_s, u"--auto-operator"_s});
    ASSERT_TRUE(gui::waitUntil([&] { return sim.canReadLine(); }, 30000));
    const QString port = QString::fromLocal8Bit(sim.readLine()).trimmed();

    const QString picture = dir.filePath(u"connected.png"_s);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    // The display server's libraries keep memory to the end; that is not ours to judge.
    env.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0"_s);
    QProcess app;
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start(xvfbRun,
              {u"-a"_s, u"-s"_s, u"-screen 0 1024x768x24"_s, u"sh"_s, u"-c"_s,
               u"\"$0\" \"$@\" & xdotool search --sync --onlyvisible --name VARIMOsentry "
               u"getwindowname; wait $!"_s,
               program, u"--connect"_s, port, u"--screenshot"_s, picture});
    const bool finished = app.waitForFinished(180000);
    const QByteArray output = app.readAll();
    sim.kill();
    sim.waitForFinished();
    ASSERT_TRUE(finished) << output.toStdString();
    EXPECT_EQ(app.exitCode(), 0) << output.toStdString();
    EXPECT_TRUE(output.split('\n').contains(
        u"VARIMOsentry Firmware Updater (%1)"_s.arg(AppInfo::versionText()).toUtf8()))
        << output.toStdString();
    QImage image(picture);
    EXPECT_GE(image.width(), 500) << output.toStdString();
    QDir().mkpath(build + u"/screenshots"_s);
    image.save(build + u"/screenshots/xvfb-main-connected.png"_s);
    const QString log = dir.readText(u"VarimoSentry_Updater.txt"_s);
    EXPECT_TRUE(log.contains(u"Received  : SER;42"_s)) << log.right(2000).toStdString();
    EXPECT_TRUE(log.contains(u"VarimoSentry_Updater terminated..."_s));
}

} // namespace
