#include "FirmwareImage.h"
#include "GuiSupport.h"
#include "SimulatedInstrument.h"
#include "boards/FirmwareFiles.h"
#include "gui/InstructionDialogs.h"
#include "gui/frmUpdate.h"
#include "gui/userControler.h"
#include "shell/AppInfo.h"
#include "support/SimFixture.h"
#include "update/Session.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The engine's line, lent by the simulated instrument that owns it.
class LineRef : public SerialLine
{
public:
    explicit LineRef(SerialLine &line)
        : m_line(line)
    {
    }
    bool setPortName(const QString &name) override { return m_line.setPortName(name); }
    QString portName() const override { return m_line.portName(); }
    bool setSettings(const QString &s) override { return m_line.setSettings(s); }
    bool open() override { return m_line.open(); }
    void close() override { m_line.close(); }
    bool isOpen() const override { return m_line.isOpen(); }
    void discardInput() override { m_line.discardInput(); }
    bool write(const QByteArray &bytes) override { return m_line.write(bytes); }
    QByteArray readAll() override { return m_line.readAll(); }
    bool waitForData(int ms) override { return m_line.waitForData(ms); }
    QString errorString() const override { return m_line.errorString(); }

private:
    SerialLine &m_line;
};

// The operator's hands: presses the keys a dialog asks for on the simulated instrument (on the
// engine thread, where the instrument lives), then shows the dialog in the windows.
class Hands : public Operator
{
public:
    Hands(Operator &windows, Instrument &instrument)
        : m_windows(windows)
        , m_instrument(instrument)
    {
    }
    void messageBox(const QString &text) override
    {
        m_instrument.press(PanelKey::MenuClose);
        m_windows.messageBox(text);
    }
    void instruction(Instruction kind, const QStringList &lines) override
    {
        m_instrument.press(PanelKey::ResetZero);
        m_instrument.press(kind == Instruction::CpuUpdateMode ? PanelKey::UpdateMode
                                                              : PanelKey::Power);
        m_windows.instruction(kind, lines);
    }
    void letEventsRun() override { m_windows.letEventsRun(); }

private:
    Operator &m_windows;
    Instrument &m_instrument;
};

// What the test sees of the instrument; touch it only while the engine is idle.
struct SimAccess
{
    InstrumentState state = InstrumentState::defaults();
    SimulatedInstrument *sim = nullptr;
};

EngineLinkFactory simulatedLink(std::shared_ptr<SimAccess> access)
{
    return [access](Operator &windows) {
        EngineLink link;
        auto clock = std::make_unique<VirtualClock>();
        auto sim = std::make_shared<SimulatedInstrument>(*clock, access->state);
        access->sim = sim.get();
        link.line = std::make_unique<LineRef>(sim->line());
        link.op = std::make_unique<Hands>(windows, sim->instrument());
        link.clock = std::move(clock);
        link.keep = sim;
        return link;
    };
}

// Presses OK in every instruction dialog and message box that comes up, and notes which.
class DialogAnswerer
{
public:
    DialogAnswerer()
    {
        m_timer.setInterval(10);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { answer(); });
        m_timer.start();
    }
    QStringList seen;

private:
    void answer()
    {
        QWidget *top = QApplication::activeModalWidget();
        if (!top || !top->isVisible())
            return;
        if (auto *dialog = qobject_cast<InstructionDialog *>(top)) {
            if (!seen.contains(dialog->objectName()))
                gui::screenshot(dialog, u"run-"_s + dialog->objectName());
            seen << dialog->objectName();
            dialog->cmdOk->click();
        } else if (auto *box = qobject_cast<QMessageBox *>(top)) {
            seen << box->text();
            box->button(QMessageBox::Ok)->click();
        }
    }
    QTimer m_timer;
};

QString fieldText(userControler *panel, const char *name)
{
    return panel->findChild<QLineEdit *>(QString::fromLatin1(name))->text();
}

class Run : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QString error;
        ASSERT_FALSE(
            FirmwareImage::writeSet(folder.path(), FirmwareImage::defaultNewVersion(BoardKind::Cpu),
                                    FirmwareImage::defaultNewVersion(BoardKind::Meas),
                                    FirmwareImage::defaultNewVersion(BoardKind::Main), &error)
                .isEmpty())
            << error.toStdString();
    }

    gui::ProgramFolder folder;
    std::shared_ptr<SimAccess> access = std::make_shared<SimAccess>();
};

TEST_F(Run, TypicalRunFromConnectToNoUpdatesRequired)
{
    gui::WindowUnderTest w(folder, simulatedLink(access));
    EXPECT_TRUE(w->statusText().startsWith(u"Switch on and connect VARIMOsentry"_s));
    ASSERT_TRUE(w.connect());
    EXPECT_EQ(w->CurrentControler->header(), u"VARIMOsentry SN 00042"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtCPU"), u"2.00"_s);
    EXPECT_EQ(fieldText(w->NewControler, "txtCPU"), u"2.01"_s);
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
    EXPECT_FALSE(w->cmdRestore->isEnabled());

    DialogAnswerer answerer;
    w->cmdUpdate->click();
    frmUpdate *update = w->updateWindow();
    EXPECT_TRUE(update->isVisible());
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
    gui::screenshot(update, u"run-frmUpdate-success"_s);
    EXPECT_TRUE(answerer.seen.contains(u"frmMsgCPU"_s));
    EXPECT_TRUE(answerer.seen.contains(u"frmMsgMainBoard"_s));
    EXPECT_TRUE(pictured);

    update->cmdOk->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }));
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->statusText(), u"No updates required"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtCPU"), u"2.01"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtMain"), u"1.03"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtMeas"), u"1.21"_s);
    EXPECT_TRUE(QFile::exists(folder.file(u"VarimoSentry_Backup_00042.xml"_s)));
    EXPECT_TRUE(w->cmdRestore->isEnabled());
    gui::screenshot(w.window.get(), u"run-main-after-update"_s);

    // Restore Data writes the backup back and connects again.
    access->sim->instrument().setParameter(BoardKind::Main, "CH", "99");
    w->cmdRestore->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }, 120000));
    EXPECT_FALSE(update->isVisible());
    EXPECT_TRUE(update->Result());
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->statusText(), u"No updates required"_s);
}

TEST_F(Run, ABoardWaitingInItsBootloaderIsUpdatedAtOnce)
{
    // A Main Board whose transfer broke off starts its bootloader when switched on.
    BoardState &main = access->state.board(BoardKind::Main);
    main.imageValid = false;
    main.mode = BoardMode::Idle;
    gui::WindowUnderTest w(folder, simulatedLink(access));
    DialogAnswerer answerer;
    w->cmdConnect->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->updateWindow()->isVisible(); }, 300000));
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }, 120000));
    // The board runs the new firmware; without a backup its parameters could not be restored,
    // which the run reports. Reload all connects afresh and offers the update again.
    EXPECT_EQ(access->sim->instrument().state().board(BoardKind::Main).firmware, "1.03");
    EXPECT_TRUE(w->isConnected());
    EXPECT_EQ(w->cmdConnect->text(), u"Disconnect"_s);
    EXPECT_EQ(fieldText(w->CurrentControler, "txtMain"), u"1.03"_s);
    EXPECT_EQ(w->statusText(), u"VARIMOsentry ready for update"_s);
}

TEST_F(Run, AnUnfinishedRunIsShownAndUpdateFinishesIt)
{
    // An updater stopped after the Main Board took its new image, before its parameters went
    // back: its journal and backup are on disk, the board holds its new firmware's defaults.
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
        ASSERT_TRUE(QFile::copy(killed.dir.filePath(name), folder.file(name)));
    access->state = killed.instrument().state();
    ASSERT_NE(access->state.board(BoardKind::Main).values, before.board(BoardKind::Main).values);

    gui::WindowUnderTest w(folder, simulatedLink(access));
    ASSERT_TRUE(w.connect());
    EXPECT_TRUE(w->statusText().contains(u"Main Board flashed with 1.03, its parameters not yet "
                                         "restored"_s))
        << w->statusText().toStdString();
    EXPECT_TRUE(w->lblJournal->isVisible());
    EXPECT_TRUE(w->cmdUpdate->isEnabled());
    gui::screenshot(w.window.get(), u"run-main-unfinished-run"_s);

    DialogAnswerer answerer;
    w->cmdUpdate->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->updateWindow()->cmdOk->isVisible(); }, 300000));
    w->updateWindow()->cmdOk->click();
    ASSERT_TRUE(gui::waitUntil([&] { return w->isIdle(); }));
    for (const BoardKind kind : kPanelOrder)
        EXPECT_EQ(access->sim->instrument().state().board(kind).values, before.board(kind).values)
            << boardName(kind).toStdString();
    EXPECT_FALSE(w->lblJournal->isVisible());
    EXPECT_TRUE(QDir(folder.path()).entryList({u"VarimoSentry_Journal_*"_s}).isEmpty());
}

// The real program on a real display (Xvfb), connected to varimo-sim on a pseudo-terminal by the
// program's test hook.
TEST(OnScreen, TheProgramConnectsToTheSimulatorOnAPseudoTerminal)
{
    gui::app();
    const QString xvfbRun = QStandardPaths::findExecutable(u"xvfb-run"_s);
    if (xvfbRun.isEmpty())
        GTEST_SKIP() << "xvfb-run is not installed";
    const QString build = QString::fromUtf8(VARIMO_TEST_BINARY_DIR);
    QTemporaryDir dir;
    const QString program = dir.filePath(u"VarimoSentry_Updater"_s);
    ASSERT_TRUE(QFile::copy(build + u"/src/VarimoSentry_Updater"_s, program));
    const QString simulator = build + u"/sim/varimo-sim"_s;
    ASSERT_EQ(QProcess::execute(simulator, {u"--make-firmware"_s, dir.path()}), 0);

    QProcess sim;
    sim.start(simulator, {u"--baud"_s, u"0"_s, u"--auto-operator"_s});
    ASSERT_TRUE(sim.waitForStarted());
    ASSERT_TRUE(gui::waitUntil([&] { return sim.canReadLine(); }, 30000));
    const QString port = QString::fromLocal8Bit(sim.readLine()).trimmed();
    ASSERT_TRUE(port.startsWith(u"/dev/"_s)) << port.toStdString();

    const QString picture = dir.filePath(u"connected.png"_s);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    // The display server's libraries keep memory to the end; that is not ours to judge.
    env.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0"_s);
    QProcess app;
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::MergedChannels);
    // The title as the window manager gets it from the X server, printed while the window is up.
    const QString titleOnScreen = u"\"$0\" \"$@\" & xdotool search --sync --onlyvisible --name "
                                  u"VARIMOsentry getwindowname; wait $!"_s;
    app.start(xvfbRun,
              {u"-a"_s, u"-s"_s, u"-screen 0 1024x768x24"_s, u"sh"_s, u"-c"_s, titleOnScreen,
               program, u"--connect"_s, port, u"--screenshot"_s, picture});
    ASSERT_TRUE(app.waitForStarted());
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
    ASSERT_FALSE(image.isNull()) << output.toStdString();
    EXPECT_GE(image.width(), 500);
    QDir().mkpath(build + u"/screenshots"_s);
    image.save(build + u"/screenshots/xvfb-main-connected.png"_s);
    QFile log(dir.filePath(u"VarimoSentry_Updater.txt"_s));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QByteArray text = log.readAll();
    EXPECT_TRUE(text.contains("Received  : SER;42")) << text.right(2000).toStdString();
    EXPECT_TRUE(text.contains("VarimoSentry_Updater terminated..."));
}

} // namespace
