#include "frmMain.h"

#include "gui/InstructionDialogs.h"
#include "gui/Pictures.h"
#include "gui/frmBackup.h"
#include "gui/frmTestPswd.h"
#include "gui/frmUpdate.h"
#include "gui/userControler.h"
#include "shell/AppInfo.h"
#include "shell/Eligibility.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

frmMain::frmMain(const frmMainSetup &setup, QWidget *parent)
    : QMainWindow(parent)
    , m_setup(setup)
    , m_workspace({setup.programDir, setup.dataDir})
{
    setObjectName(u"frmMain"_s);
    buildControls();

    // The window's key handler sees every key before the control that has the focus.
    QApplication::instance()->installEventFilter(this);

    // The log, the settings and what is read from them at start.
    m_workspace.Start();
    SetTexts();
    fillPorts();
    startEngine();
    m_workspace.LoadFirmwareFiles(m_fresh);
    CheckUpdateFiles();
}

frmMain::~frmMain()
{
    // Closing without the window's close (the program is torn down): still note the end.
    if (!m_closed)
        m_workspace.Stop();
    // Every wait for the operator ends now; the engine, a member, stops once its job has ended.
    m_operator.releaseAll();
    QApplication::instance()->removeEventFilter(this);
}

// --- Controls ------------------------------------------------------------------------------
// The builders make the controls and their layout; SetTexts gives them their texts.

void frmMain::buildControls()
{
    setFont(windowFont());
    auto *central = new QWidget(this);
    setCentralWidget(central);

    Image1 = named<QLabel>(u"Image1"_s, central);
    Image1->setPixmap(Pictures::instrumentPicture(QSize(132, 84), devicePixelRatioF()));
    Image1->setFixedSize(132, 84);
    CurrentControler = named<userControler>(u"CurrentControler"_s, central);
    NewControler = named<userControler>(u"NewControler"_s, central);

    auto *top = new QHBoxLayout;
    top->setSpacing(14);
    top->addWidget(Image1, 0, Qt::AlignVCenter);
    top->addWidget(buildConnectionFrame(central), 1);

    auto *panels = new QHBoxLayout;
    panels->setSpacing(14);
    panels->addWidget(CurrentControler, 1);
    panels->addWidget(NewControler, 1);

    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(12);
    layout->addLayout(top);
    layout->addWidget(buildStatusFrame(central), 1);
    layout->addLayout(panels);
    layout->addLayout(buildButtons(central));
    resize(640, 450);

    connect(cmdConnect, &QPushButton::clicked, this, &frmMain::cmdConnect_Click);
    connect(cmdRetry, &QToolButton::clicked, this, &frmMain::cmdRetry_Click);
    connect(cmdUpdate, &QPushButton::clicked, this, &frmMain::cmdUpdate_Click);
    connect(cmdRestore, &QPushButton::clicked, this, &frmMain::cmdRestore_Click);
    connect(cmdQuit, &QPushButton::clicked, this, &QWidget::close);
    connect(cmdTests, &QPushButton::clicked, this, &frmMain::cmdTests_Click);
}

QWidget *frmMain::buildConnectionFrame(QWidget *parent)
{
    fraConnect = named<QGroupBox>(u"fraConnect"_s, parent);
    fraConnect->setFont(windowFont(true));
    lblComPort = named<QLabel>(u"lblComPort"_s, fraConnect);
    cmbPorts = named<QComboBox>(u"cmbPorts"_s, fraConnect);
    cmbPorts->setEditable(true);
    cmbPorts->setInsertPolicy(QComboBox::NoInsert);
    cmbPorts->setEditText(u"Combo1"_s);
    cmbPorts->setMinimumWidth(170);
    cmdConnect = named<QPushButton>(u"cmdConnect"_s, fraConnect);
    cmdConnect->setMinimumWidth(110);
    cmdRetry = named<QToolButton>(u"cmdRetry"_s, fraConnect);
    cmdRetry->setIcon(style()->standardIcon(QStyle::SP_BrowserReload));
    cmdRetry->setIconSize(QSize(22, 22));
    cmdRetry->setFixedSize(34, 30);
    for (QWidget *w : std::initializer_list<QWidget *> {lblComPort, cmbPorts, cmdConnect, cmdRetry})
        w->setFont(windowFont());

    auto *row = new QHBoxLayout(fraConnect);
    row->setContentsMargins(12, 10, 12, 12);
    row->setSpacing(8);
    row->addWidget(lblComPort);
    row->addWidget(cmbPorts, 1);
    row->addWidget(cmdConnect);
    row->addWidget(cmdRetry);
    return fraConnect;
}

QWidget *frmMain::buildStatusFrame(QWidget *parent)
{
    fraStatus = named<QGroupBox>(u"fraStatus"_s, parent);
    fraStatus->setFont(windowFont(true));
    lblStatus = named<QLabel>(u"lblStatus"_s, fraStatus);
    lblStatus->setFont(windowFont(true));
    lblStatus->setTextFormat(Qt::PlainText);
    lblStatus->setWordWrap(true);
    lblStatus->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    lblStatus->setMinimumHeight(64);
    auto *box = new QVBoxLayout(fraStatus);
    box->setContentsMargins(12, 10, 12, 12);
    box->addWidget(lblStatus);
    lblJournal = named<QLabel>(u"lblJournal"_s, fraStatus);
    lblJournal->setText(
        u"Update finishes it, or <a href=\"discard\">discard the unfinished update run...</a>"_s);
    lblJournal->hide();
    connect(lblJournal, &QLabel::linkActivated, this, &frmMain::discardUnfinishedRun);
    box->addWidget(lblJournal);
    return fraStatus;
}

QLayout *frmMain::buildButtons(QWidget *parent)
{
    cmdUpdate = named<QPushButton>(u"cmdUpdate"_s, parent);
    cmdRestore = named<QPushButton>(u"cmdRestore"_s, parent);
    cmdTests = named<QPushButton>(u"cmdTests"_s, parent);
    cmdQuit = named<QPushButton>(u"cmdQuit"_s, parent);
    for (QPushButton *b : {cmdUpdate, cmdRestore, cmdTests, cmdQuit})
        b->setMinimumSize(112, 30);
    // Nothing to update or restore before a connection; the test mode shows its button.
    cmdUpdate->setEnabled(false);
    cmdRestore->setEnabled(false);
    cmdTests->hide();

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(cmdTests);
    buttons->addStretch(1);
    buttons->addWidget(cmdUpdate);
    buttons->addWidget(cmdRestore);
    buttons->addWidget(cmdQuit);
    return buttons;
}

void frmMain::SetTexts()
{
    setWindowTitle(AppInfo::productTitle() + u" ("_s + AppInfo::versionText() + u")"_s);
    fraConnect->setTitle(u"Connection"_s);
    lblComPort->setText(u"COM-Port:"_s);
    showConnectCommand(false);
    cmdRetry->setText(u"Reload all"_s);
    cmdRetry->setToolTip(cmdRetry->text());
    fraStatus->setTitle(u"Status / Instruction"_s);
    cmdUpdate->setText(u"Update"_s);
    cmdUpdate->setToolTip(u"Update to new version"_s);
    cmdRestore->setText(u"Restore Data"_s);
    cmdRestore->setToolTip(u"Restore parameters to VARIMOsentry"_s);
    cmdTests->setText(u"Update to version..."_s);
    cmdTests->setToolTip(u"Test: Update to any version..."_s);
    cmdQuit->setText(u"Quit"_s);
    cmdQuit->setToolTip(u"Disconnect and exit program"_s);
}

void frmMain::showConnectCommand(bool connected)
{
    cmdConnect->setText(connected ? u"Disconnect"_s : u"Connect"_s);
    cmdConnect->setToolTip(connected ? u"Disconnect VARIMOsentry from COM port"_s
                                     : u"Connect VARIMOsentry to COM port"_s);
}

// --- Start and state -----------------------------------------------------------------------

void frmMain::fillPorts()
{
    const QStringList ports = m_setup.listPorts();
    cmbPorts->addItems(ports);
    m_portsAvailable = !ports.isEmpty();
    for (QWidget *w : std::initializer_list<QWidget *> {cmbPorts, cmdConnect, cmdRetry})
        w->setEnabled(m_portsAvailable);
    if (!m_portsAvailable) {
        ShowStatus(Eligibility::noPortText(), Eligibility::eError);
        return;
    }
    cmbPorts->setCurrentIndex(0);
    const QString lastPort = m_workspace.settings().comPort;
    if (!lastPort.isEmpty())
        cmbPorts->setEditText(lastPort);
    ShowStatus(Eligibility::instructionLines(), Eligibility::eNormal);
}

void frmMain::startEngine()
{
    // The engine shares the settings and the log with the window.
    m_update = new frmUpdate(this);
    m_operator.setWindows(this, m_update);
    m_engine =
        std::make_unique<Engine>(m_setup.link, m_operator,
                                 SessionFiles {&m_workspace.ini(), &m_workspace.log(),
                                               m_workspace.dataDir(), m_workspace.programDir()});
    connect(m_engine.get(), &Engine::jobFinished, this, &frmMain::onJobFinished);
    connect(m_engine.get(), &Engine::statusTextChanged, m_update, &frmUpdate::setStatusText);
    connect(m_engine.get(), &Engine::currentActionChanged, m_update, &frmUpdate::SetCurrentAction);
    connect(m_engine.get(), &Engine::transferProgressChanged, m_update,
            &frmUpdate::showTransferProgress);
    connect(m_engine.get(), &Engine::succeeded, m_update, &frmUpdate::showSuccess);
    connect(m_engine.get(), &Engine::jobEvent, m_update, &frmUpdate::showJobEvent);
    connect(m_update, &QDialog::finished, this, [this] {
        auto then = std::move(m_afterRun);
        m_afterRun = nullptr;
        // Closing: no command follows the run.
        if (then && !m_closing)
            then(m_update->Result());
    });
}

void frmMain::ShowStatus(const QString &text, int statusKind)
{
    m_statusText = text;
    m_statusKind = statusKind;
    lblStatus->setText(labelTextOf(text).replace(u"\r\n"_s, u"\n"_s));
    setTextColor(lblStatus,
                 statusKind == Eligibility::eError       ? Qt::red
                     : statusKind == Eligibility::eBlack ? Qt::black
                                                         : Qt::blue);
    lblStatus->repaint();
}

void frmMain::showBoards()
{
    CurrentControler->Init(m_current, true);
    NewControler->Init(m_fresh, false);
}

void frmMain::CheckUpdateFiles()
{
    const Eligibility::Verdict files = m_workspace.CheckUpdateFiles(m_current, m_fresh);
    showBoards();
    if (!files.message.isEmpty()) {
        cmdUpdate->setEnabled(false);
        ShowStatus(files.message, files.kind);
    }
}

void frmMain::SetConnectionState(bool connected)
{
    m_connected = connected;
    const Eligibility::Verdict verdict =
        m_workspace.SetConnectionState(m_current, m_fresh, connected, m_portValid, m_comPort);
    showConnectCommand(connected);
    // Without an instrument there is nothing to restore to.
    if (!connected)
        cmdRestore->setEnabled(false);
    // An unfinished run is finished by Update, whatever the boards' versions say now.
    const bool unfinished = connected && !m_unfinishedRun.isEmpty();
    cmdUpdate->setEnabled(verdict.updateEnabled || unfinished);
    if (unfinished)
        ShowStatus(m_unfinishedRun, Eligibility::eError);
    else
        ShowStatus(verdict.message, verdict.kind);
    lblJournal->setVisible(unfinished);
    showBoards();
}

void frmMain::discardUnfinishedRun()
{
    const auto answer = QMessageBox::question(
        this, AppInfo::productTitle(),
        u"Discard the unfinished update run? The boards keep what they have now, and Update no "
        "longer finishes the run from the backup made before it."_s,
        QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    if (answer != QMessageBox::Yes || m_busy)
        return;
    startCommand(Job::discardJournal());
}

void frmMain::settle()
{
    m_busy = false;
    emit idle();
}

void frmMain::startCommand(const Job &job)
{
    m_busy = true;
    for (QWidget *w : std::initializer_list<QWidget *> {cmdQuit, cmdConnect, cmbPorts, cmdRetry,
                                                        cmdUpdate, cmdRestore})
        w->setEnabled(false);
    runJob(job);
}

void frmMain::runJob(const Job &job)
{
    m_engine->run({job, m_current, m_fresh});
}

void frmMain::onJobFinished(const EngineOutcome &outcome)
{
    switch (outcome.job.kind) {
    case Job::Kind::Connect:
        if (!m_closing)
            onConnectFinished(outcome);
        break;
    case Job::Kind::Disconnect:
        // Reload all: the connect queued behind this disconnect decides what the window shows.
        if (!m_closing && m_engine->pendingJobs() == 0) {
            m_portValid = outcome.portValid;
            m_connected = false;
            finishCommand();
        }
        break;
    case Job::Kind::DiscardJournal:
        m_unfinishedRun.clear();
        finishCommand();
        break;
    default:
        m_update->runFinished(outcome.result.succeeded());
        break;
    }
    // Closing: the window goes once the instrument is released, after every job asked for.
    if (m_closing && !m_closed && m_engine->pendingJobs() == 0) {
        m_workspace.Stop();
        m_closed = true;
        close();
    }
}

// --- Connect and Disconnect ----------------------------------------------------------------

void frmMain::cmdConnect_Click()
{
    if (!m_connected)
        ConnectAndIdentify();
    else
        startCommand(Job::disconnect());
}

void frmMain::ConnectAndIdentify()
{
    QApplication::setOverrideCursor(Qt::WaitCursor);
    ShowStatus(Eligibility::connectingText(cmbPorts->currentText()));
    m_connected = false;
    startCommand(Job::connectTo(cmbPorts->currentText()));
}

void frmMain::onConnectFinished(const EngineOutcome &outcome)
{
    const Connection::Result &result = outcome.connection;
    m_current = outcome.current;
    m_portValid = outcome.portValid;
    m_comPort = outcome.comPort;
    m_connected = result.boardsRead;
    m_unfinishedRun = result.unfinishedRun;

    if (result.bootloaderBoard) {
        // A board waits in its bootloader: update it at once. A success ends disconnected; a
        // failure goes through Reload all, which connects afresh (the port had opened).
        startRun(Job::singleBoard(*result.bootloaderBoard), [this](bool succeeded) {
            if (succeeded) {
                finishCommand();
                return;
            }
            QApplication::restoreOverrideCursor();
            m_connected = true;
            cmdRetry_Click();
        });
        return;
    }
    if (result.boardsRead && !result.serialNumber.isEmpty()) {
        m_backupFileName = result.backupFileName;
        cmdRestore->setEnabled(result.backupExists);
    }
    finishCommand();
}

void frmMain::finishCommand()
{
    QApplication::restoreOverrideCursor();
    cmdQuit->setEnabled(true);
    // Connected or not, the port commands follow the ports there are (a connection needs one).
    for (QWidget *w : std::initializer_list<QWidget *> {cmbPorts, cmdConnect, cmdRetry})
        w->setEnabled(m_portsAvailable);
    SetConnectionState(m_connected);
    settle();
}

// --- Update, Restore Data, Reload all, Quit ------------------------------------------------

void frmMain::startRun(const Job &job, std::function<void(bool)> then)
{
    m_busy = true;
    m_afterRun = std::move(then);
    m_update->SetMode(job.kind);
    m_update->open();
    runJob(job);
}

void frmMain::cmdUpdate_Click()
{
    startRun(Job::update(m_workspace.AllowDowngrade(), m_checkBackup),
             [this](bool) { cmdRetry_Click(); });
}

void frmMain::cmdRestore_Click()
{
    startRun(Job::restore(m_backupFileName), [this](bool) { cmdRetry_Click(); });
}

void frmMain::cmdRetry_Click()
{
    m_workspace.LoadFirmwareFiles(m_fresh);
    CheckUpdateFiles();
    if (!m_connected) {
        settle();
        return;
    }
    runJob(Job::disconnect());
    ConnectAndIdentify();
}

void frmMain::closeEvent(QCloseEvent *event)
{
    if (m_closed) {
        event->accept();
        return;
    }
    // The instrument is released on the engine thread first; the window closes when it is done.
    event->ignore();
    if (m_closing)
        return;
    m_closing = true;
    setEnabled(false);
    runJob(Job::disconnect());
}

// --- Test mode -----------------------------------------------------------------------------

bool frmMain::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyRelease) {
        auto *key = static_cast<QKeyEvent *>(event);
        auto *widget = qobject_cast<QWidget *>(watched);
        if (widget && widget->window() == this && key->key() == Qt::Key_T &&
            (key->modifiers() & Qt::ControlModifier) && !key->isAutoRepeat()) {
            Form_KeyUp();
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void frmMain::Form_KeyUp()
{
    // No dialog on top of a job that is still running.
    if (m_busy || m_closing)
        return;
    if (!cmdTests->isHidden()) {
        cmdTests->hide();
        m_workspace.resetAllowDowngrade();
        CheckUpdateFiles();
        return;
    }
    m_busy = true;
    auto *password = new frmTestPswd(this);
    openDialog(password, this, [this, password] {
        if (!password->Accepted()) {
            settle();
            return;
        }
        cmdTests->show();
        m_workspace.setAllowDowngrade(true);
        CheckUpdateFiles();
        cmdTests_Click();
    });
}

void frmMain::cmdTests_Click()
{
    m_busy = true;
    auto *choice = new frmBackup(m_workspace.programDir(), this);
    choice->Init(m_fresh[BoardKind::Cpu].BinFileName(), m_fresh[BoardKind::Main].BinFileName(),
                 m_fresh[BoardKind::Meas].BinFileName());
    openDialog(choice, this, [this, choice] {
        if (choice->Accepted())
            takeTestFiles(*choice);
        settle();
    });
}

void frmMain::takeTestFiles(const frmBackup &choice)
{
    for (const BoardKind kind : kPanelOrder) {
        const QString file = choice.testFile(kind);
        if (!file.isEmpty())
            m_workspace.LoadFirmwareFile(kind, file, m_fresh[kind]);
    }
    m_checkBackup = choice.chkXML->isChecked();
    CheckUpdateFiles();
    if (m_connected)
        SetConnectionState(true);
}
