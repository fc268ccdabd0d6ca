#include "AutoOperator.h"
#include "FirmwareImage.h"
#include "SimulatedInstrument.h"
#include "gui/InstructionDialogs.h"
#include "gui/StartUp.h"
#include "gui/frmBackup.h"
#include "gui/frmMain.h"
#include "gui/frmTestPswd.h"
#include "gui/frmUpdate.h"
#include "gui/userControler.h"
#include "shell/AppInfo.h"
#include "shell/Workspace.h"
#include "support/Pty.h"
#include "support/SimFixture.h"
#include "support/SimProcess.h"
#include "update/Session.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

// The windows on a simulated instrument (the test main makes the QApplication), the program
// itself, and pictures of every window and dialog in <build>/screenshots.
namespace {

const QString kInstructions = u"Switch on and connect VARIMOsentry via RS232 to this computer\r\n"
                              "Check baudrate (57600) and Handshake (off)\r\n"
                              "Press Connect button"_s;
const QString kLog = u"VarimoSentry_Updater.txt"_s;
const QString kIni = u"VarimoSentry_Updater.ini"_s;

// Runs events until pred holds or timeoutMs has passed; returns pred().
bool waitUntil(const std::function<bool()> &pred, int timeoutMs = 10000)
{
    QElapsedTimer timer;
    timer.start();
    while (!pred()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QTest::qWait(5);
    }
    return true;
}

// Saves a picture of the widget to <build>/screenshots/<name>.png.
void screenshot(QWidget *widget, const QString &name)
{
    const QString dir = QString::fromUtf8(VARIMO_TEST_BINARY_DIR) + u"/screenshots"_s;
    QDir().mkpath(dir);
    QCoreApplication::processEvents();
    widget->grab().save(dir + u"/"_s + name + u".png"_s);
}

// The modal dialog on top, once one of the given class (object name) is up.
QWidget *waitForDialog(const QString &objectName, int timeoutMs = 10000)
{
    const auto dialog = [&] {
        QWidget *top = QApplication::activeModalWidget();
        return top && top->objectName() == objectName && top->isVisible() ? top : nullptr;
    };
    waitUntil([&] { return dialog() != nullptr; }, timeoutMs);
    return dialog();
}

// A program folder: firmware files, settings file and log all in one temporary folder.
struct ProgramFolder : QTemporaryDir
{
    void writeFile(const QString &name, const QByteArray &bytes)
    {
        ::writeFile(filePath(name), bytes);
    }
    QString readText(const QString &name) const
    {
        return QString::fromLatin1(contentOf(filePath(name)));
    }
};

QLineEdit *field(QWidget *panel, const char *name)
{
    return panel->findChild<QLineEdit *>(QString::fromLatin1(name));
}

// The colour of one field of a board panel ("txtCPU").
QColor colour(QWidget *panel, const char *name)
{
    return field(panel, name)->palette().color(QPalette::Active, QPalette::Text);
}

// The versions a board panel shows: CPU Board, Main Board and Measuring Module.
QString shown(QWidget *panel)
{
    return QStringList {field(panel, "txtCPU")->text(), field(panel, "txtMain")->text(),
                        field(panel, "txtMeas")->text()}
        .join(u' ');
}

// The engine's clock is the instrument's, which the test keeps.
struct ClockRef : Clock
{
    explicit ClockRef(VirtualClock &to)
        : to(to)
    {
    }
    qint32 tickCount() const override { return to.tickCount(); }
    void sleepMs(int ms) override { to.sleepMs(ms); }
    QDateTime now() const override { return to.now(); }
    VirtualClock &to;
};

// The instrument of the windows: simulated in-process on virtual time, its keys pressed by the
// simulator's operator, which each window's engine gets afresh with its line. The engine thread
// runs it, the test touches it only while the engine is idle.
struct Simulated : SimRig
{
    EngineLinkFactory link()
    {
        return [this](Operator &) {
            return EngineLink {std::make_unique<ClockRef>(clock),
                               std::make_unique<SimulatedLine>(instrument(), clock),
                               {},
                               std::make_shared<AutoOperator>(instrument())};
        };
    }
};

// The main window on a program folder, with the given ports and engine link.
struct WindowUnderTest
{
    WindowUnderTest(ProgramFolder &folder, EngineLinkFactory link,
                    QStringList ports = {u"COM1"_s, u"COM3"_s})
        : window(std::make_unique<frmMain>(frmMainSetup {
              folder.path(), folder.path(), std::move(link), [ports] { return ports; }}))
    {
        window->show();
    }
    ~WindowUnderTest()
    {
        // Dialogs left open by a failing test go first.
        while (QWidget *top = QApplication::activeModalWidget()) {
            top->close();
            if (top == QApplication::activeModalWidget())
                top->hide();
        }
    }
    frmMain *operator->() const { return window.get(); }
    bool connect()
    {
        window->cmdConnect->click();
        return waitUntil([this] { return window->isIdle(); });
    }

    std::unique_ptr<frmMain> window;
};

// A program folder with firmware files one step newer than the simulated instrument (files:
// CPU Board, Main Board, Measuring Module).
class MainWindow : public ::testing::Test
{
protected:
    void SetUp() override
    {
        using FirmwareImage::defaultNewVersion;
        QString error;
        files = FirmwareImage::writeSet(folder.path(), defaultNewVersion(BoardKind::Cpu),
                                        defaultNewVersion(BoardKind::Meas),
                                        defaultNewVersion(BoardKind::Main), &error);
        ASSERT_EQ(files.size(), 3) << error.toStdString();
    }
    // The telegrams in the log, in the order sent.
    QStringList sent() const
    {
        QStringList telegrams;
        const QRegularExpression sentLine(u"Telegram sent : ([^\r]*)\r\n"_s);
        for (const QRegularExpressionMatch &m : sentLine.globalMatch(folder.readText(kLog)))
            telegrams << m.captured(1);
        return telegrams;
    }

    ProgramFolder folder;
    QStringList files;
    Simulated rig;
};

TEST_F(MainWindow, LoadsConnectsDisconnectsAndClosesWithTheLastLines)
{
    folder.writeFile(kIni, "[Settings]\r\nCOMPort=COM9\r\nAllowDowngrade=1\r\n");
    folder.writeFile(u"VarimoSentry_Backup_00042.xml"_s, "<x/>");
    WindowUnderTest w(folder, rig.link());
    const auto expectDisconnected = [&] {
        EXPECT_FALSE(w->isConnected());
        EXPECT_EQ(w->statusText(), kInstructions);
        EXPECT_EQ(w->lblStatus->palette().color(QPalette::WindowText), QColor(0, 0, 255));
        EXPECT_TRUE(w->cmdConnect->isEnabled());
        EXPECT_FALSE(w->cmdUpdate->isEnabled() || w->cmdRestore->isEnabled());
        EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry"_s);
        EXPECT_EQ(shown(w->CurrentControler), u"  "_s);
    };
    expectDisconnected();
    EXPECT_EQ(w->windowTitle(),
              u"VARIMOsentry Firmware Updater ("_s + AppInfo::versionText() + u")"_s);
    EXPECT_TRUE(w->allowDowngrade());
    EXPECT_EQ(w->cmbPorts->currentText(), u"COM9"_s);
    EXPECT_TRUE(w->cmdTests->isHidden());
    EXPECT_EQ(shown(w->NewControler), u"2.01 1.03 1.21"_s);
    screenshot(w.window.get(), u"main-start"_s);

    w->cmbPorts->setCurrentText(u"COM3"_s);
    ASSERT_TRUE(w.connect());
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry SN 00042"_s);
    EXPECT_EQ(shown(w->CurrentControler), u"2.00 1.02 1.20"_s);
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
    EXPECT_TRUE(w->cmdUpdate->isEnabled() && w->cmdRestore->isEnabled());
    EXPECT_EQ(w->cmdConnect->text(), u"Disconnect"_s);
    EXPECT_EQ(w->backupFileName(), u"VarimoSentry_Backup_00042.xml"_s);
    // Boards that will be upgraded are shown blue.
    EXPECT_EQ(colour(w->CurrentControler, "txtMain"), QColor(Qt::blue));
    EXPECT_TRUE(folder.readText(kIni).contains(u"COMPort=COM3"_s));
    screenshot(w.window.get(), u"main-connected"_s);

    w->cmdConnect->click();
    ASSERT_TRUE(waitUntil([&] { return w->isIdle(); }));
    expectDisconnected();
    EXPECT_EQ(sent().mid(sent().size() - 2), (QStringList {u"DHR;0"_s, u"KEY;1"_s}));

    // Closing with the instrument switched off: only the deselect is tried (three times), no
    // KEY;1 to an instrument that is not there, and the log gets its last lines.
    ASSERT_TRUE(w.connect());
    rig.instrument().press(PanelKey::Power);
    const qsizetype before = sent().size();
    w->cmdQuit->click();
    ASSERT_TRUE(waitUntil([&] { return !w->isVisible(); }));
    EXPECT_EQ(sent().mid(before), QStringList(3, u"DHR;0"_s));
    const QString log = folder.readText(kLog);
    EXPECT_TRUE(log.contains(u" : VarimoSentry_Updater started...\r\n"_s));
    EXPECT_TRUE(log.contains(QRegularExpression(
        u"\\d : \t\t\tVarimoSentry_Updater terminated...\r\n\\S+ : -{62}\r\n\r\n$"_s)));
}

TEST_F(MainWindow, PreselectsAPortOrSaysThereIsNone)
{
    // The settings' port, else the first, else COM1.
    for (const auto &[settings, expected] :
         {std::pair {"[Settings]\r\nCOMPort=\r\n", "/dev/ttyS4"}, {"", "COM1"}}) {
        folder.writeFile(kIni, settings);
        WindowUnderTest w(folder, rig.link(), {u"/dev/ttyS4"_s, u"/dev/ttyUSB0"_s});
        EXPECT_EQ(w->cmbPorts->currentText(), QString::fromLatin1(expected)) << settings;
    }
    WindowUnderTest w(folder, rig.link(), {});
    EXPECT_EQ(w->statusText(), u"ERROR: No COM port available"_s);
    EXPECT_EQ(w->lblStatus->palette().color(QPalette::WindowText), QColor(255, 0, 0));
    EXPECT_FALSE(w->cmbPorts->isEnabled() || w->cmdConnect->isEnabled() ||
                 w->cmdRetry->isEnabled());
    EXPECT_TRUE(w->cmdQuit->isEnabled());
    screenshot(w.window.get(), u"main-no-port"_s);
}

TEST_F(MainWindow, CtrlTTwiceEntersAndLeavesTheTestMode)
{
    const QString older = u"FW_CPU-BOARD_V190-017_CRC1.bin"_s;
    folder.writeFile(older, QByteArray(boardFacts(BoardKind::Cpu).packets * 128, 'x'));
    for (const char *other : {"Messmodul_old_120.bin", "CPU_test.BIN", "Mainboard_notes.txt"})
        folder.writeFile(QString::fromLatin1(other), "x");
    WindowUnderTest w(folder, rig.link());
    ASSERT_TRUE(w.connect());

    // A plain T and Ctrl with another key do nothing.
    QTest::keyClick(w->cmbPorts, Qt::Key_T);
    QTest::keyClick(w->cmbPorts, Qt::Key_R, Qt::ControlModifier);
    QTest::qWait(20);
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);

    QTest::keyClick(w->cmbPorts, Qt::Key_T, Qt::ControlModifier);
    auto *password = qobject_cast<frmTestPswd *>(waitForDialog(u"frmTestPswd"_s));
    ASSERT_TRUE(password);
    EXPECT_EQ(password->windowTitle(), u"Enter Testmode"_s);
    screenshot(password, u"frmTestPswd"_s);
    // Wrong passwords, as often as the operator likes: the box is emptied and has the focus.
    for (const QString &wrong : {u"guess"_s, u"KVNOPERATE4821"_s}) {
        QTest::keyClicks(password->txtPswd, wrong);
        password->cmdOk->click();
        auto *box = qobject_cast<QMessageBox *>(waitForDialog(u"invalidPasswordBox"_s));
        ASSERT_TRUE(box && password->txtPswd->text().isEmpty());
        EXPECT_EQ(box->text(), u"Invalid password!"_s);
        box->button(QMessageBox::Ok)->click();
        EXPECT_TRUE(waitUntil([&] { return password->focusWidget() == password->txtPswd; }));
    }
    QTest::keyClicks(password->txtPswd, u"kvnoperate4821"_s);
    password->cmdOk->click();

    auto *choice = qobject_cast<frmBackup *>(waitForDialog(u"frmBackup"_s));
    ASSERT_TRUE(choice);
    EXPECT_TRUE(w->allowDowngrade());
    EXPECT_FALSE(w->cmdTests->isHidden());
    // The files of each board by their prefix, an empty entry first; the newest chosen.
    QStringList listed;
    for (int i = 0; i < choice->cmbCPU->count(); ++i)
        listed << choice->cmbCPU->itemText(i);
    EXPECT_EQ(listed, (QStringList {QString(), u"CPU_test.BIN"_s, older, files[0]}));
    EXPECT_EQ(choice->cmbMain->count(), 2);
    EXPECT_EQ(choice->cmbCPU->currentText(), files[0]);
    screenshot(choice, u"frmBackup"_s);
    choice->cmbCPU->setCurrentText(older);
    choice->chkXML->setChecked(true);
    choice->cmdOk->click();
    ASSERT_TRUE(waitUntil([&] { return w->isIdle(); }));
    EXPECT_EQ(shown(w->NewControler), u"1.90 1.03 1.21"_s);
    EXPECT_TRUE(w->checkBackup());
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
    EXPECT_EQ(colour(w->CurrentControler, "txtCPU"), QColor(Qt::red));
    screenshot(w.window.get(), u"main-testmode"_s);

    QTest::keyClick(w->cmbPorts, Qt::Key_T, Qt::ControlModifier);
    EXPECT_TRUE(w->cmdTests->isHidden());
    EXPECT_FALSE(w->allowDowngrade());

    w->close();
    ASSERT_TRUE(waitUntil([&] { return !w->isVisible(); }));
    for (const QString &file : {kLog, kIni})
        EXPECT_FALSE(folder.readText(file).contains(u"kvnoperate"_s)) << file.toStdString();
}

// The product's own line and clock on a pseudo-terminal with nothing behind it: the greeting
// waits three times a second in real time, and meanwhile the window goes on handling events.
TEST_F(MainWindow, StaysResponsiveWhileTheInstrumentIsSilent)
{
    PtyPair pty;
    WindowUnderTest w(folder, productLink, {pty.slavePath()});
    QElapsedTimer clock;
    clock.start();
    w->cmdConnect->click();
    // A greeting on the window's own thread would hold the first pass until it gave up.
    int busyPasses = 0;
    ASSERT_TRUE(waitUntil([&] { return w->isIdle() || (++busyPasses, false); }, 20000));
    EXPECT_GE(clock.elapsed(), 3000);
    EXPECT_GE(busyPasses, 10);
    EXPECT_FALSE(w->isConnected());
    EXPECT_EQ(w->statusText(), kInstructions);
}

// A second start of the program in the same folder brings the first to the front and ends; a
// copy in another folder is another instance.
TEST(StartUp, ASecondStartBringsTheFirstToTheFrontAndEnds)
{
    ProgramFolder dir;
    const QString program = dir.filePath(u"VarimoSentry_Updater"_s);
    ASSERT_TRUE(QFile::copy(
        QString::fromUtf8(VARIMO_TEST_BINARY_DIR) + u"/src/VarimoSentry_Updater"_s, program));
    EXPECT_NE(StartUp::InstanceKey(dir.path()), StartUp::InstanceKey(dir.filePath(u"x"_s)));
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QProcess first;
    QProcess second;
    first.start(program, {});
    ASSERT_TRUE(waitUntil([&] { return dir.readText(kLog).contains(u"started..."_s); }, 30000));
    second.start(program, {});
    ASSERT_TRUE(second.waitForFinished(30000));
    EXPECT_EQ(second.exitStatus() == QProcess::NormalExit ? second.exitCode() : -1, 0);

    QByteArray firstErr;
    EXPECT_TRUE(waitUntil([&] {
        firstErr += first.readAllStandardError();
        return firstErr.contains("brought to the front by a second start");
    }));
    // The second copy never opened a main window: one start line in the log.
    EXPECT_EQ(dir.readText(kLog).count(u"VarimoSentry_Updater started..."_s), 1);
    EXPECT_EQ(first.state(), QProcess::Running);
    first.kill();
    first.waitForFinished();
}

// The run window on its own.
TEST(UpdateWindow, ShowsTheTransferAndPausesForAnInstruction)
{
    QWidget owner;
    owner.resize(700, 500);
    owner.show();
    frmUpdate window(&owner);
    window.SetMode(Job::Kind::Update);
    window.open();
    window.setStatusText(u"VARIMOsentry firmware update in progress"_s);
    window.showTransferProgress({BoardKind::Main, 7168, 14336, 0, 3000, 3000,
                                 u"Sending Main Board binary file (7168 of 14336 Bytes "
                                 "transferred)..."_s});
    EXPECT_EQ(window.progressBar->value(), 500);
    EXPECT_EQ(window.lblProgress->text(), u"7,168 of 14,336 bytes  \u2013  0:03 remaining"_s);
    EXPECT_EQ(window.lblStatus2->text(), u"DO NOT INTERRUPT THE UPDATE PROCESS!"_s);
    screenshot(&window, u"frmUpdate-transfer"_s);
    window.showJobEvent(JobEvent {BoardKind::Main, Stage::RestartWait, 14});
    EXPECT_EQ(window.lblProgress->text(), u"Waiting for the Main Board to restart: 14 s"_s);
    QTest::keyClick(&window, Qt::Key_Escape); // cannot end a run
    EXPECT_TRUE(window.isVisible());

    // The status animation pauses while a general instruction dialog is up.
    ASSERT_TRUE(window.Timer1->isActive());
    bool closed = false;
    window.ShowMessage({u"ERROR: No connection to VARIMOsentry"_s,
                        u"Reset VARIMOsentry by pressing RESET && ZERO buttons simultaneously."_s,
                        u"Continue with OK."_s},
                       [&] { closed = true; });
    auto *message = qobject_cast<frmMsgGeneral *>(waitForDialog(u"frmMsgGeneral"_s));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->shownLine(2),
              u"Reset VARIMOsentry by pressing RESET & ZERO buttons simultaneously."_s);
    screenshot(message, u"frmMsgGeneral"_s);
    EXPECT_FALSE(window.Timer1->isActive());
    message->cmdOk->click();
    EXPECT_TRUE(waitUntil([&] { return closed; }));
    EXPECT_TRUE(window.Timer1->isActive());

    window.SetCurrentAction(u"Cannot send binary file to VARIMOsentry"_s, true);
    EXPECT_FALSE(window.progressBar->isVisible());
    EXPECT_EQ(window.lblCurrentAction->palette().color(QPalette::WindowText), QColor(Qt::red));
}

// Whole runs on the simulated instrument, and the program itself on a display.

// Presses OK in every instruction dialog and message box that comes up, and notes which.
struct DialogAnswerer : QTimer
{
    DialogAnswerer()
    {
        QObject::connect(this, &QTimer::timeout, [this] {
            QWidget *top = QApplication::activeModalWidget();
            if (!top || !top->isVisible())
                return;
            if (auto *dialog = qobject_cast<InstructionDialog *>(top)) {
                if (!seen.contains(dialog->objectName()))
                    screenshot(dialog, u"run-"_s + dialog->objectName());
                dialog->cmdOk->click();
            } else if (auto *box = qobject_cast<QMessageBox *>(top)) {
                box->button(QMessageBox::Ok)->click();
            }
            seen << top->objectName();
        });
        start(10);
    }
    QStringList seen;
};

// An updater stopped after the Main Board took its new image, before its parameters went back:
// its journal and backup are on disk, the board holds its new firmware's defaults. The windows
// show the unfinished run; Update finishes it and updates the other boards, Restore Data writes
// the backup back.
TEST_F(MainWindow, AnUnfinishedRunIsShownAndUpdateFinishesIt)
{
    const InstrumentState before = rig.instrument().state();
    {
        Workspace files({folder.path(), folder.path()}, &rig.clock);
        files.Start();
        Session first(rig.sim.line(), rig.clock, rig.op,
                      SessionFiles {&files.ini(), &files.log(), folder.path(), folder.path()});
        ASSERT_TRUE(first.run(Job::connectTo(u"COM1"_s)).succeeded());
        files.LoadFirmwareFiles(first.fresh());
        QObject::connect(&first.reports(), &UpdateRun::jobEvent, [](const JobEvent &e) {
            if (e.board == BoardKind::Main && e.stage == Stage::Restore)
                throw std::runtime_error("killed");
        });
        EXPECT_THROW(first.run(Job::update(false)), std::runtime_error);
    }
    ASSERT_NE(rig.instrument().state().board(BoardKind::Main).values,
              before.board(BoardKind::Main).values);

    WindowUnderTest w(folder, rig.link());
    ASSERT_TRUE(w.connect());
    EXPECT_TRUE(w->statusText().contains(u"Main Board flashed with 1.03, its parameters not yet "
                                         "restored"_s))
        << w->statusText().toStdString();
    EXPECT_TRUE(w->lblJournal->isVisible());
    EXPECT_TRUE(w->cmdUpdate->isEnabled());
    screenshot(w.window.get(), u"run-main-unfinished-run"_s);

    DialogAnswerer answerer;
    w->cmdUpdate->click();
    frmUpdate *update = w->updateWindow();
    ASSERT_TRUE(waitUntil([&] { return update->cmdOk->isVisible(); }, 300000))
        << update->lblCurrentAction->text().toStdString() << "\n"
        << folder.readText(kLog).right(3000).toStdString();
    EXPECT_EQ(update->lblStatus2->text(), u"Update successfully completed"_s);
    for (const QString &dialog : {u"frmMsgMainBoard"_s, u"frmMsgCPU"_s})
        EXPECT_TRUE(answerer.seen.contains(dialog)) << answerer.seen.join(u'|').toStdString();
    screenshot(update, u"run-frmUpdate-success"_s);
    update->cmdOk->click();
    ASSERT_TRUE(waitUntil([&] { return w->isIdle(); }));
    for (const BoardKind kind : kPanelOrder)
        EXPECT_EQ(rig.instrument().state().board(kind).values, before.board(kind).values)
            << boardName(kind).toStdString();
    EXPECT_FALSE(w->lblJournal->isVisible());
    EXPECT_TRUE(QDir(folder.path()).entryList({u"VarimoSentry_Journal_*"_s}).isEmpty());
    EXPECT_EQ(w->statusText(), u"No updates required"_s);
    EXPECT_EQ(shown(w->CurrentControler), u"2.01 1.03 1.21"_s);
    EXPECT_TRUE(w->cmdRestore->isEnabled());
    screenshot(w.window.get(), u"run-main-after-update"_s);

    // Restore Data writes the backup back and connects again.
    rig.instrument().setParameter(BoardKind::Main, "CH", "99");
    w->cmdRestore->click();
    ASSERT_TRUE(waitUntil([&] { return w->isIdle(); }, 120000));
    EXPECT_FALSE(update->isVisible());
    EXPECT_TRUE(update->Result());
    EXPECT_EQ(rig.instrument().state().board(BoardKind::Main).values,
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
    ProgramFolder dir;
    const QString program = dir.filePath(u"VarimoSentry_Updater"_s);
    ASSERT_TRUE(QFile::copy(build + u"/src/VarimoSentry_Updater"_s, program));
    ASSERT_EQ(QProcess::execute(SimProcess::programPath(), {u"--make-firmware"_s, dir.path()}), 0);
    SimProcess sim;
    ASSERT_TRUE(sim.start({u"--baud"_s, u"0"_s, u"--auto-operator"_s}));

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
               program, u"--connect"_s, sim.port, u"--screenshot"_s, picture});
    const bool finished = app.waitForFinished(180000);
    const QByteArray output = app.readAll();
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
