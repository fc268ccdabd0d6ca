#include "GuiSupport.h"
#include "gui/StartUp.h"
#include "gui/frmBackup.h"
#include "gui/frmTestPswd.h"
#include "gui/userControler.h"
#include "shell/AppInfo.h"
#include "support/Pty.h"

#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kInstructions = u"Switch on and connect VARIMOsentry via RS232 to this computer\r\n"
                              "Check baudrate (57600) and Handshake (off)\r\n"
                              "Press Connect button"_s;
const QString kLog = u"VarimoSentry_Updater.txt"_s;
const QString kIni = u"VarimoSentry_Updater.ini"_s;

class MainWindow : public gui::WindowTest
{
protected:
    // The telegrams in the log, in the order sent.
    QStringList sent() const
    {
        QStringList telegrams;
        const QRegularExpression sentLine(u"Telegram sent : ([^\r]*)\r\n"_s);
        for (const QRegularExpressionMatch &m : sentLine.globalMatch(folder.readText(kLog)))
            telegrams << m.captured(1);
        return telegrams;
    }
};

TEST_F(MainWindow, LoadsWithTitleTextsPortsAndInstructions)
{
    {
        folder.writeFile(kIni, "[Settings]\r\nCOMPort=COM9\r\n");
        gui::WindowUnderTest w(folder, sim.link());
        EXPECT_EQ(w->windowTitle(),
                  u"VARIMOsentry Firmware Updater ("_s + AppInfo::versionText() + u")"_s);
        EXPECT_EQ(w->cmbPorts->count(), 2);
        EXPECT_EQ(w->cmbPorts->currentText(), u"COM9"_s);
        EXPECT_EQ(w->statusText(), kInstructions);
        EXPECT_EQ(w->lblStatus->palette().color(QPalette::WindowText), QColor(0, 0, 255));
        EXPECT_TRUE(w->cmdTests->isHidden());
        EXPECT_TRUE(w->cmdConnect->isEnabled());
        EXPECT_FALSE(w->cmdUpdate->isEnabled() || w->cmdRestore->isEnabled());
        EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry"_s);
        EXPECT_EQ(w->NewControler->header(), u"New firmware"_s);
        EXPECT_EQ(gui::field(w->NewControler, "txtMain")->text(), u"1.03"_s);
        gui::screenshot(w.window.get(), u"main-start"_s);
    }
    // The port preselected: the settings' one, else the first, else COM1.
    for (const auto &[settings, expected] :
         {std::pair {"[Settings]\r\nCOMPort=\r\n", "/dev/ttyS4"}, {"", "COM1"}}) {
        folder.writeFile(kIni, settings);
        gui::WindowUnderTest w(folder, sim.link(), {u"/dev/ttyS4"_s, u"/dev/ttyUSB0"_s});
        EXPECT_EQ(w->cmbPorts->currentText(), QString::fromLatin1(expected)) << settings;
    }
    {
        gui::WindowUnderTest w(folder, sim.link(), {});
        EXPECT_EQ(w->statusText(), u"ERROR: No COM port available"_s);
        EXPECT_EQ(w->lblStatus->palette().color(QPalette::WindowText), QColor(255, 0, 0));
        EXPECT_FALSE(w->cmbPorts->isEnabled() || w->cmdConnect->isEnabled() ||
                     w->cmdRetry->isEnabled());
        EXPECT_TRUE(w->cmdQuit->isEnabled());
        gui::screenshot(w.window.get(), u"main-no-port"_s);
    }
}

TEST_F(MainWindow, ConnectShowsTheInstrumentAndOffersTheUpdate)
{
    folder.writeFile(u"VarimoSentry_Backup_00042.xml"_s, "<x/>");
    gui::WindowUnderTest w(folder, sim.link());
    ASSERT_TRUE(w.connect());
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry SN 00042"_s);
    const QStringList shown = {gui::field(w->CurrentControler, "txtCPU")->text(),
                               gui::field(w->CurrentControler, "txtMain")->text(),
                               gui::field(w->CurrentControler, "txtMeas")->text()};
    EXPECT_EQ(shown, (QStringList {u"2.00"_s, u"1.02"_s, u"1.20"_s}));
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
    EXPECT_TRUE(w->cmdUpdate->isEnabled() && w->cmdRestore->isEnabled());
    EXPECT_EQ(w->cmdConnect->text(), u"Disconnect"_s);
    EXPECT_EQ(w->backupFileName(), u"VarimoSentry_Backup_00042.xml"_s);
    // Boards that will be upgraded are shown blue.
    EXPECT_EQ(gui::field(w->CurrentControler, "txtMain")
                  ->palette()
                  .color(QPalette::Active, QPalette::Text),
              Qt::blue);
    EXPECT_TRUE(folder.readText(kIni).contains(u"COMPort=COM1"_s));
    gui::screenshot(w.window.get(), u"main-connected"_s);

    w->cmdConnect->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }));
    EXPECT_FALSE(w->isConnected());
    EXPECT_EQ(w->statusText(), kInstructions);
    EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry"_s);
    EXPECT_TRUE(gui::field(w->CurrentControler, "txtCPU")->text().isEmpty());
    EXPECT_FALSE(w->cmdRestore->isEnabled());
    EXPECT_EQ(sent().mid(sent().size() - 2), (QStringList {u"DHR;0"_s, u"KEY;1"_s}));
}

// What the window shows of a verdict; the verdicts themselves are Eligibility's.
TEST_F(MainWindow, ShowsWhyThereIsNoUpdate)
{
    const struct
    {
        const char *name;
        const char *versions; // CPU, Measuring Module, Main Board
        QByteArray settings;
        QString message;
        int kind;
    } cases[] = {
        {"up-to-date", "2.01 1.21 1.03", {}, u"No updates required"_s, 0},
        {"downgrade-allowed", "2.01 1.30 1.03", "[Settings]\r\nAllowDowngrade=1\r\n",
         u"VARIMOsentry ready for update"_s, 0},
        // Last: the file stays removed.
        {"missing-file",
         "2.00 1.20 1.02",
         {},
         u"ERROR: At least one update file is missing or invalid\r\nNo update is possible."_s,
         -1},
    };
    for (const auto &c : cases) {
        const QStringList versions = QString::fromLatin1(c.versions).split(u' ');
        for (int kind = 0; kind < 3; ++kind)
            sim.state.board(BoardKind(kind)).firmware = versions[kind].toLatin1();
        folder.writeFile(kIni, c.settings);
        if (c.kind < 0)
            QFile::remove(folder.filePath(files[1]));
        gui::WindowUnderTest w(folder, sim.link());
        ASSERT_TRUE(w.connect());
        EXPECT_EQ(w->statusText(), c.message);
        EXPECT_EQ(w->statusKind(), c.kind) << c.name;
        EXPECT_EQ(w->cmdUpdate->isEnabled(), c.message == u"VARIMOsentry ready for update"_s);
        gui::screenshot(w.window.get(), u"main-"_s + QString::fromLatin1(c.name));
    }
}

TEST_F(MainWindow, CtrlTTwiceEntersAndLeavesTheTestMode)
{
    const QString older = u"FW_CPU-BOARD_V190-017_CRC1.bin"_s;
    folder.writeFile(older, QByteArray(boardFacts(BoardKind::Cpu).packets * 128, 'x'));
    for (const char *other : {"Messmodul_old_120.bin", "CPU_test.BIN", "Mainboard_notes.txt"})
        folder.writeFile(QString::fromLatin1(other), "x");
    gui::WindowUnderTest w(folder, sim.link());
    ASSERT_TRUE(w.connect());

    // A plain T and Ctrl with another key do nothing.
    QTest::keyClick(w->cmbPorts, Qt::Key_T);
    QTest::keyClick(w->cmbPorts, Qt::Key_R, Qt::ControlModifier);
    QTest::qWait(20);
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);

    QTest::keyClick(w->cmbPorts, Qt::Key_T, Qt::ControlModifier);
    auto *password = qobject_cast<frmTestPswd *>(gui::waitForDialog(u"frmTestPswd"_s));
    ASSERT_TRUE(password);
    EXPECT_EQ(password->windowTitle(), u"Enter Testmode"_s);
    gui::screenshot(password, u"frmTestPswd"_s);
    // Wrong passwords, as often as the operator likes: the box is emptied and has the focus.
    for (const QString &wrong : {u"guess"_s, u"KVNOPERATE4821"_s}) {
        QTest::keyClicks(password->txtPswd, wrong);
        password->cmdOk->click();
        auto *box = qobject_cast<QMessageBox *>(gui::waitForDialog(u"invalidPasswordBox"_s));
        ASSERT_TRUE(box && password->txtPswd->text().isEmpty());
        EXPECT_EQ(box->text(), u"Invalid password!"_s);
        box->button(QMessageBox::Ok)->click();
        EXPECT_TRUE(gui::waitUntil([&] { return password->focusWidget() == password->txtPswd; }));
    }
    QTest::keyClicks(password->txtPswd, u"kvnoperate4821"_s);
    password->cmdOk->click();

    auto *choice = qobject_cast<frmBackup *>(gui::waitForDialog(u"frmBackup"_s));
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
    gui::screenshot(choice, u"frmBackup"_s);
    choice->cmbCPU->setCurrentText(older);
    choice->chkXML->setChecked(true);
    choice->cmdOk->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }));
    EXPECT_EQ(gui::field(w->NewControler, "txtCPU")->text(), u"1.90"_s);
    EXPECT_TRUE(w->checkBackup());
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
    EXPECT_EQ(gui::field(w->CurrentControler, "txtCPU")
                  ->palette()
                  .color(QPalette::Active, QPalette::Text),
              Qt::red);
    gui::screenshot(w.window.get(), u"main-testmode"_s);

    QTest::keyClick(w->cmbPorts, Qt::Key_T, Qt::ControlModifier);
    EXPECT_TRUE(w->cmdTests->isHidden());
    EXPECT_FALSE(w->allowDowngrade());

    w->close();
    ASSERT_TRUE(gui::waitUntil([&] { return !w->isVisible(); }));
    for (const QString &file : {kLog, kIni})
        EXPECT_FALSE(folder.readText(file).contains(u"kvnoperate"_s)) << file.toStdString();
}

TEST_F(MainWindow, ClosingWritesTheLastLinesEvenWhenTheInstrumentIsGone)
{
    gui::WindowUnderTest w(folder, sim.link());
    ASSERT_TRUE(w.connect());
    sim.instrument().press(PanelKey::Power); // off
    const qsizetype before = sent().size();
    w->cmdQuit->click();
    ASSERT_TRUE(gui::waitUntil([&] { return !w->isVisible(); }));
    // Only the deselect was tried (three times); no KEY;1 to an instrument that is not there.
    EXPECT_EQ(sent().mid(before), QStringList(3, u"DHR;0"_s));
    const QString log = folder.readText(kLog);
    EXPECT_TRUE(log.contains(u" : VarimoSentry_Updater started...\r\n"_s));
    EXPECT_TRUE(log.endsWith(u" : "_s + QString(62, u'-') + u"\r\n\r\n"_s));
}

// The product's own line and clock on a pseudo-terminal with nothing behind it: the greeting
// waits three times a second in real time, and meanwhile the window goes on handling events.
TEST_F(MainWindow, StaysResponsiveWhileTheInstrumentIsSilent)
{
    PtyPair pty;
    gui::WindowUnderTest w(folder, productLink, {pty.slavePath()});
    w->cmdConnect->click();
    QElapsedTimer clock;
    clock.start();
    qint64 lastMs = 0;
    QList<qint64> gaps;
    ASSERT_TRUE(gui::waitUntil(
        [&] {
            gaps << clock.elapsed() - lastMs;
            lastMs = clock.elapsed();
            return w->isIdle();
        },
        20000));
    std::sort(gaps.begin(), gaps.end());
    EXPECT_GE(clock.elapsed(), 3000);
    // On a shared machine another process may take the processor now and then, which costs a
    // pass or two but never the length of a read (1000 ms).
    EXPECT_LT(gaps.value(gaps.size() * 99 / 100), 70)
        << gaps.size() << " passes, worst " << gaps.back();
    EXPECT_LT(gaps.back(), 250);
    EXPECT_FALSE(w->isConnected());
    EXPECT_EQ(w->statusText(), kInstructions);
}

// A second start of the program in the same folder brings the first to the front and ends; a
// copy in another folder is another instance.
TEST(StartUp, ASecondStartBringsTheFirstToTheFrontAndEnds)
{
    gui::ProgramFolder dir;
    const QString program = dir.filePath(u"VarimoSentry_Updater"_s);
    ASSERT_TRUE(QFile::copy(
        QString::fromUtf8(VARIMO_TEST_BINARY_DIR) + u"/src/VarimoSentry_Updater"_s, program));
    EXPECT_NE(StartUp::InstanceKey(dir.path()), StartUp::InstanceKey(dir.filePath(u"x"_s)));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    QProcess first;
    QProcess second;
    first.setProcessEnvironment(env);
    second.setProcessEnvironment(env);
    first.start(program, {});
    ASSERT_TRUE(
        gui::waitUntil([&] { return dir.readText(kLog).contains(u"started..."_s); }, 30000));
    second.start(program, {});
    ASSERT_TRUE(second.waitForFinished(30000));
    EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second.exitCode(), 0);

    QByteArray firstErr;
    EXPECT_TRUE(gui::waitUntil([&] {
        firstErr += first.readAllStandardError();
        return firstErr.contains("brought to the front by a second start");
    }));
    // The second copy never opened a main window: one start line in the log.
    EXPECT_EQ(dir.readText(kLog).count(u"VarimoSentry_Updater started..."_s), 1);
    EXPECT_EQ(first.state(), QProcess::Running);
    first.kill();
    first.waitForFinished();
}

} // namespace
