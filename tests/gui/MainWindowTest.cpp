#include "GuiSupport.h"
#include "gui/frmBackup.h"
#include "gui/frmTestPswd.h"
#include "gui/userControler.h"
#include "shell/AppInfo.h"

#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <QToolButton>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kInstructions = u"Switch on and connect VARIMOsentry via RS232 to this computer\r\n"
                              "Check baudrate (57600) and Handshake (off)\r\n"
                              "Press Connect button"_s;

QString fieldText(userControler *panel, const char *name)
{
    return panel->findChild<QLineEdit *>(QString::fromLatin1(name))->text();
}

class MainWindow : public ::testing::Test
{
protected:
    void SetUp() override
    {
        folder.writeFirmware(BoardKind::Cpu, u"2.01"_s);
        folder.writeFirmware(BoardKind::Main, u"1.03"_s);
        folder.writeFirmware(BoardKind::Meas, u"1.21"_s);
    }

    gui::ProgramFolder folder;
    std::shared_ptr<gui::ScriptedInstrument> instrument =
        std::make_shared<gui::ScriptedInstrument>();
};

TEST_F(MainWindow, LoadsWithTitleTextsPortsAndInstructions)
{
    folder.writeSettings(u"[Settings]\r\nCOMPort=COM9\r\n"_s);
    gui::WindowUnderTest w(folder, gui::scriptedLink(instrument));
    EXPECT_EQ(w->windowTitle(),
              u"VARIMOsentry Firmware Updater ("_s + AppInfo::versionText() + u")"_s);
    EXPECT_EQ(w->cmbPorts->count(), 2);
    EXPECT_EQ(w->cmbPorts->currentText(), u"COM9"_s);
    EXPECT_EQ(w->statusText(), kInstructions);
    EXPECT_EQ(w->lblStatus->palette().color(QPalette::WindowText), QColor(0, 0, 255));
    EXPECT_TRUE(w->cmdTests->isHidden());
    EXPECT_TRUE(w->cmdConnect->isEnabled());
    EXPECT_FALSE(w->cmdUpdate->isEnabled());
    EXPECT_FALSE(w->cmdRestore->isEnabled());
    EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry"_s);
    EXPECT_EQ(w->NewControler->header(), u"New firmware"_s);
    EXPECT_EQ(fieldText(w->NewControler, "txtMain"), u"1.03"_s);
    EXPECT_TRUE(folder.readText(u"VarimoSentry_Updater.txt"_s)
                    .contains(u" : VarimoSentry_Updater started...\r\n"_s));
    gui::screenshot(w.window.get(), u"main-start"_s);
}

TEST_F(MainWindow, PreselectsThePortFromTheSettings)
{
    const struct
    {
        QString settings;
        QString expected;
    } cases[] = {
        {u"[Settings]\r\nCOMPort=COM9\r\n"_s, u"COM9"_s},
        {u"[Settings]\r\nCOMPort=\r\n"_s, u"/dev/ttyS4"_s},
        {QString(), u"COM1"_s},
    };
    for (const auto &c : cases) {
        folder.writeSettings(c.settings);
        gui::WindowUnderTest w(folder, gui::scriptedLink(instrument),
                               {u"/dev/ttyS4"_s, u"/dev/ttyUSB0"_s});
        EXPECT_EQ(w->cmbPorts->currentText(), c.expected) << c.settings.toStdString();
    }
}

TEST_F(MainWindow, WithoutPortsOnlyQuitIsLeft)
{
    gui::WindowUnderTest w(folder, gui::scriptedLink(instrument), {});
    EXPECT_EQ(w->statusText(), u"ERROR: No COM port available"_s);
    EXPECT_EQ(w->lblStatus->palette().color(QPalette::WindowText), QColor(255, 0, 0));
    EXPECT_FALSE(w->cmbPorts->isEnabled());
    EXPECT_FALSE(w->cmdConnect->isEnabled());
    EXPECT_FALSE(w->cmdRetry->isEnabled());
    EXPECT_TRUE(w->cmdQuit->isEnabled());
    gui::screenshot(w.window.get(), u"main-no-port"_s);
}

TEST_F(MainWindow, ConnectShowsTheInstrumentAndOffersTheUpdate)
{
    folder.writeFile(u"VarimoSentry_Backup_00042.xml"_s, 10);
    gui::WindowUnderTest w(folder, gui::scriptedLink(instrument));
    ASSERT_TRUE(w.connect());
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry SN 00042"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtCPU"), u"2.00"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtMain"), u"1.02"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtMeas"), u"1.20"_s);
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
    EXPECT_TRUE(w->cmdUpdate->isEnabled());
    EXPECT_TRUE(w->cmdRestore->isEnabled());
    EXPECT_EQ(w->cmdConnect->text(), u"Disconnect"_s);
    EXPECT_EQ(w->backupFileName(), u"VarimoSentry_Backup_00042.xml"_s);
    // Boards that will be upgraded are shown blue.
    EXPECT_EQ(w->currentBoards()[BoardKind::Main].Color(), cControler::kBlue);
    EXPECT_TRUE(folder.readText(u"VarimoSentry_Updater.ini"_s).contains(u"COMPort=COM1"_s));
    gui::screenshot(w.window.get(), u"main-connected"_s);

    w->cmdConnect->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }));
    EXPECT_FALSE(w->isConnected());
    EXPECT_EQ(w->statusText(), kInstructions);
    EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry"_s);
    EXPECT_TRUE(fieldText(w->CurrentControler, "txtCPU").isEmpty());
    EXPECT_FALSE(w->cmdRestore->isEnabled());
    EXPECT_EQ(instrument->received.mid(instrument->received.size() - 2),
              (QList<QByteArray> {"DHR;0\r\n", "KEY;1\r\n"}));
}

struct Refusal
{
    const char *name;
    QString instrument[3]; // CPU, Measuring Module, Main Board
    QString settings;
    bool removeMainFile;
    QString message;
    int kind;
    bool updateEnabled;
};

class Refusals : public MainWindow, public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(Refusals, ExplainWhyThereIsNoUpdate)
{
    const Refusal &r = GetParam();
    for (int kind = 0; kind < 3; ++kind)
        instrument->versions[kind] = r.instrument[kind];
    folder.writeSettings(r.settings);
    if (r.removeMainFile)
        QFile::remove(folder.file(u"FW_MAINBOARD_103_CRC5678.bin"_s));
    gui::WindowUnderTest w(folder, gui::scriptedLink(instrument));
    ASSERT_TRUE(w.connect());
    EXPECT_EQ(w->statusText(), r.message);
    EXPECT_EQ(w->statusKind(), r.kind);
    EXPECT_EQ(w->cmdUpdate->isEnabled(), r.updateEnabled);
    gui::screenshot(w.window.get(), u"main-"_s + QString::fromLatin1(r.name));
}

const QString kMinCpu = u"ERROR: Cannot update to this CPU Board version\r\n"
                        "Update only possible to firmware versions >= 2.00"_s;
const QString kMinMeas = u"ERROR: Cannot update to this Measuring Module version\r\n"
                         "Update only possible to firmware versions >= 1.15"_s;
const QString kFilesBad =
    u"ERROR: At least one update file is missing or invalid\r\nNo update is possible."_s;

INSTANTIATE_TEST_SUITE_P(
    MainWindow, Refusals,
    ::testing::Values(
        Refusal {"missing-file", {u"2.00"_s, u"1.20"_s, u"1.02"_s}, {}, true, kFilesBad, -1, false},
        Refusal {"below-minimum", {u"1.90"_s, u"1.20"_s, u"1.02"_s}, {}, false, kMinCpu, -1, false},
        // The last failing board's message stays.
        Refusal {"below-two-minimums",
                 {u"1.90"_s, u"1.10"_s, u"1.02"_s},
                 u"[Messmodul]\r\nFWMin=1.15\r\n"_s,
                 false,
                 kMinMeas,
                 -1,
                 false},
        Refusal {"up-to-date",
                 {u"2.01"_s, u"1.21"_s, u"1.03"_s},
                 {},
                 false,
                 u"No updates required"_s,
                 0,
                 false},
        Refusal {"downgrade-refused",
                 {u"2.01"_s, u"1.30"_s, u"1.03"_s},
                 {},
                 false,
                 u"No updates required"_s,
                 0,
                 false},
        Refusal {"downgrade-allowed",
                 {u"2.01"_s, u"1.30"_s, u"1.03"_s},
                 u"[Settings]\r\nAllowDowngrade=1\r\n"_s,
                 false,
                 u"VARIMOsentry ready for update"_s,
                 0,
                 true}),
    [](const auto &info) {
        QString name = QString::fromLatin1(info.param.name);
        return name.remove(u'-').toStdString();
    });

TEST_F(MainWindow, CtrlTTwiceEntersAndLeavesTheTestMode)
{
    folder.writeFirmware(BoardKind::Cpu, u"1.90"_s);
    gui::WindowUnderTest w(folder, gui::scriptedLink(instrument));
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
        ASSERT_TRUE(box);
        EXPECT_EQ(box->text(), u"Invalid password!"_s);
        EXPECT_TRUE(password->txtPswd->text().isEmpty());
        box->button(QMessageBox::Ok)->click();
        EXPECT_TRUE(gui::waitUntil([&] { return password->focusWidget() == password->txtPswd; }));
    }
    QTest::keyClicks(password->txtPswd, u"kvnoperate4821"_s);
    password->cmdOk->click();

    auto *choice = qobject_cast<frmBackup *>(gui::waitForDialog(u"frmBackup"_s));
    ASSERT_TRUE(choice);
    EXPECT_TRUE(w->allowDowngrade());
    EXPECT_FALSE(w->cmdTests->isHidden());
    EXPECT_EQ(choice->cmbCPU->currentText(), u"FW_CPU-BOARD_V201-017_CRC1234.bin"_s);
    choice->cmbCPU->setCurrentText(u"FW_CPU-BOARD_V190-017_CRC1234.bin"_s);
    choice->chkXML->setChecked(true);
    choice->cmdOk->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }));
    EXPECT_EQ(fieldText(w->NewControler, "txtCPU"), u"1.90"_s);
    EXPECT_TRUE(w->checkBackup());
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
    EXPECT_EQ(w->currentBoards()[BoardKind::Cpu].Color(), cControler::kRed);
    gui::screenshot(w.window.get(), u"main-testmode"_s);

    QTest::keyClick(w->cmbPorts, Qt::Key_T, Qt::ControlModifier);
    EXPECT_TRUE(w->cmdTests->isHidden());
    EXPECT_FALSE(w->allowDowngrade());

    ASSERT_TRUE(w.closeAndWait());
    for (const QString &file : {u"VarimoSentry_Updater.txt"_s, u"VarimoSentry_Updater.ini"_s})
        EXPECT_FALSE(folder.readText(file).contains(u"kvnoperate"_s)) << file.toStdString();
}

TEST_F(MainWindow, ClosingWritesTheLastLinesEvenWhenTheInstrumentIsGone)
{
    gui::WindowUnderTest w(folder, gui::scriptedLink(instrument));
    ASSERT_TRUE(w.connect());
    instrument->silent = true;
    const qsizetype before = instrument->received.size();
    w->cmdQuit->click();
    ASSERT_TRUE(gui::waitUntil([&] { return !w->isVisible(); }));
    // Only the deselect was tried (three times); no KEY;1 to an instrument that is not there.
    EXPECT_EQ(instrument->received.mid(before),
              (QList<QByteArray> {"DHR;0\r\n", "DHR;0\r\n", "DHR;0\r\n"}));
    const QString log = folder.readText(u"VarimoSentry_Updater.txt"_s);
    EXPECT_TRUE(log.contains(u" : \t\t\tVarimoSentry_Updater terminated...\r\n"_s));
    EXPECT_TRUE(log.endsWith(u" : "_s + QString(62, u'-') + u"\r\n\r\n"_s));
}

// A line that never answers and waits in real time, as a port with nothing attached does.
class SilentLine : public SerialLine
{
public:
    bool setPortName(const QString &name) override { return !name.isEmpty(); }
    QString portName() const override { return {}; }
    bool setSettings(const QString &) override { return true; }
    bool open() override { return m_open = true; }
    void close() override { m_open = false; }
    bool isOpen() const override { return m_open; }
    void discardInput() override { }
    bool write(const QByteArray &) override { return true; }
    QByteArray readAll() override { return {}; }
    bool waitForData(int timeoutMs) override
    {
        QThread::msleep(qMax(timeoutMs, 0));
        return false;
    }
    QString errorString() const override { return {}; }

private:
    bool m_open = false;
};

TEST_F(MainWindow, StaysResponsiveWhileTheInstrumentIsSilent)
{
    const EngineLinkFactory silent = [](Operator &) {
        EngineLink link;
        link.clock = std::make_unique<SystemClock>();
        link.line = std::make_unique<SilentLine>();
        return link;
    };
    gui::WindowUnderTest w(folder, silent);

    constexpr int kIntervalMs = 20;
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QElapsedTimer clock;
    qint64 worstLateMs = 0;
    int lateTicks = 0;
    int ticks = 0;
    int paints = 0;
    qint64 lastTickMs = 0;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        // Each tick is due one interval after the one before.
        const qint64 now = clock.elapsed();
        const qint64 lateMs = now - lastTickMs - kIntervalMs;
        worstLateMs = qMax(worstLateMs, lateMs);
        lateTicks += lateMs >= 50 ? 1 : 0;
        lastTickMs = now;
        ++ticks;
        w->lblStatus->update();
    });
    struct PaintCounter : QObject
    {
        int *paints;
        bool eventFilter(QObject *, QEvent *e) override
        {
            if (e->type() == QEvent::Paint)
                ++*paints;
            return false;
        }
    } counter;
    counter.paints = &paints;
    w->lblStatus->installEventFilter(&counter);

    w->cmdConnect->click();
    clock.start();
    timer.start(kIntervalMs);
    // The greeting waits three times for an answer that never comes.
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }, 20000));
    timer.stop();
    const qint64 elapsed = clock.elapsed();

    EXPECT_GE(elapsed, 3000);
    EXPECT_GE(ticks, elapsed / (2 * kIntervalMs));
    // Every tick within 50 ms of its time; on a shared machine another process may take the
    // processor now and then, which costs a tick or two but never the length of a read (1000 ms).
    EXPECT_LE(lateTicks, ticks / 50) << ticks << " ticks, worst " << worstLateMs << " ms late";
    EXPECT_LT(worstLateMs, 250);
    EXPECT_GE(paints, ticks / 2);
    EXPECT_FALSE(w->isConnected());
    EXPECT_EQ(w->statusText(), kInstructions);
}

} // namespace
