#include "frmMain.h"

#include "AppInfo.h"
#include "Eligibility.h"
#include "Pictures.h"
#include "boards/FirmwareFiles.h"
#include "gui/userControler.h"
#include "gui/InstructionDialogs.h"
#include "gui/frmBackup.h"
#include "gui/frmTestPswd.h"
#include "gui/frmUpdate.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

const QString kSettings = u"Settings"_s;

QFont segoe(qreal points = 9.75, bool bold = false)
{
    QFont font(u"Segoe UI"_s);
    font.setPointSizeF(points);
    font.setBold(bold);
    return font;
}

Eligibility::Boards boardsOf(BoardSet &set)
{
    return {&set[cControler::eCPU], &set[cControler::eMain], &set[cControler::eMeas]};
}

} // namespace

frmMain::frmMain(const frmMainSetup &setup, QWidget *parent)
    : QMainWindow(parent)
    , m_setup(setup)
    , m_workspace({setup.programDir, setup.dataDir})
{
    setObjectName(u"frmMain"_s);
    for (const qint32 kind : {cControler::eCPU, cControler::eMeas, cControler::eMain}) {
        m_current[kind].setControler(kind);
        m_new[kind].setControler(kind);
    }
    buildControls();
    Form_Load();
}

frmMain::~frmMain()
{
    // Closing without the window's close (the program is torn down): still note the end.
    writeClosingLines();
    m_operator.releaseAll();
    m_engine->stop();
    QApplication::instance()->removeEventFilter(this);
}

void frmMain::buildControls()
{
    setWindowTitle(AppInfo::productTitle());
    setFont(segoe());
    auto *central = new QWidget(this);
    setCentralWidget(central);

    Image1 = new QLabel(central);
    Image1->setObjectName(u"Image1"_s);
    Image1->setPixmap(Pictures::instrumentPicture(QSize(132, 84), devicePixelRatioF()));
    Image1->setFixedSize(132, 84);

    fraConnect = new QGroupBox(u"Connection"_s, central);
    fraConnect->setObjectName(u"fraConnect"_s);
    fraConnect->setFont(segoe(9.75, true));
    lblComPort = new QLabel(u"COM-Port:"_s, fraConnect);
    lblComPort->setObjectName(u"lblComPort"_s);
    cmbPorts = new QComboBox(fraConnect);
    cmbPorts->setObjectName(u"cmbPorts"_s);
    cmbPorts->setEditable(true);
    cmbPorts->setInsertPolicy(QComboBox::NoInsert);
    cmbPorts->setEditText(u"Combo1"_s);
    cmbPorts->setMinimumWidth(170);
    cmdConnect = new QPushButton(u"Connect"_s, fraConnect);
    cmdConnect->setObjectName(u"cmdConnect"_s);
    cmdConnect->setMinimumWidth(110);
    cmdRetry = new QToolButton(fraConnect);
    cmdRetry->setObjectName(u"cmdRetry"_s);
    cmdRetry->setText(u"Reload all"_s);
    cmdRetry->setIcon(Pictures::reloadIcon());
    cmdRetry->setIconSize(QSize(22, 22));
    cmdRetry->setToolButtonStyle(Qt::ToolButtonIconOnly);
    cmdRetry->setAutoRaise(false);
    cmdRetry->setFixedSize(34, 30);
    for (QWidget *w : std::initializer_list<QWidget *> {lblComPort, cmbPorts, cmdConnect, cmdRetry})
        w->setFont(segoe());
    auto *connectRow = new QHBoxLayout(fraConnect);
    connectRow->setContentsMargins(12, 10, 12, 12);
    connectRow->setSpacing(8);
    connectRow->addWidget(lblComPort);
    connectRow->addWidget(cmbPorts, 1);
    connectRow->addWidget(cmdConnect);
    connectRow->addWidget(cmdRetry);

    fraStatus = new QGroupBox(u"Status / Instruction"_s, central);
    fraStatus->setObjectName(u"fraStatus"_s);
    fraStatus->setFont(segoe(9.75, true));
    lblStatus = new QLabel(u"VARIMOsentry firmware update! DO NOT DISTURB!"_s, fraStatus);
    lblStatus->setObjectName(u"lblStatus"_s);
    lblStatus->setFont(segoe(9.75, true));
    lblStatus->setTextFormat(Qt::PlainText);
    lblStatus->setWordWrap(true);
    lblStatus->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    lblStatus->setMinimumHeight(64);
    auto *statusBox = new QVBoxLayout(fraStatus);
    statusBox->setContentsMargins(12, 10, 12, 12);
    statusBox->addWidget(lblStatus);

    CurrentControler = new userControler(central);
    CurrentControler->setObjectName(u"CurrentControler"_s);
    NewControler = new userControler(central);
    NewControler->setObjectName(u"NewControler"_s);

    cmdUpdate = new QPushButton(u"Update"_s, central);
    cmdUpdate->setObjectName(u"cmdUpdate"_s);
    cmdUpdate->setToolTip(u"Update to new version"_s);
    cmdRestore = new QPushButton(u"Restore"_s, central);
    cmdRestore->setObjectName(u"cmdRestore"_s);
    cmdRestore->setToolTip(u"Restore parameters"_s);
    cmdTests = new QPushButton(u"Update to version..."_s, central);
    cmdTests->setObjectName(u"cmdTests"_s);
    cmdTests->setToolTip(u"Test: Update to any version..."_s);
    cmdQuit = new QPushButton(u"Quit"_s, central);
    cmdQuit->setObjectName(u"cmdQuit"_s);
    cmdQuit->setToolTip(u"Disconnect and exit program"_s);
    for (QPushButton *b : {cmdUpdate, cmdRestore, cmdTests, cmdQuit})
        b->setMinimumSize(112, 30);

    auto *top = new QHBoxLayout;
    top->setSpacing(14);
    top->addWidget(Image1, 0, Qt::AlignVCenter);
    top->addWidget(fraConnect, 1);

    auto *panels = new QHBoxLayout;
    panels->setSpacing(14);
    panels->addWidget(CurrentControler, 1);
    panels->addWidget(NewControler, 1);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(cmdTests);
    buttons->addStretch(1);
    buttons->addWidget(cmdUpdate);
    buttons->addWidget(cmdRestore);
    buttons->addWidget(cmdQuit);

    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(12);
    layout->addLayout(top);
    layout->addWidget(fraStatus, 1);
    layout->addLayout(panels);
    layout->addLayout(buttons);
    resize(640, 450);

    connect(cmdConnect, &QPushButton::clicked, this, &frmMain::cmdConnect_Click);
    connect(cmdRetry, &QToolButton::clicked, this, &frmMain::cmdRetry_Click);
    connect(cmdUpdate, &QPushButton::clicked, this, &frmMain::cmdUpdate_Click);
    connect(cmdRestore, &QPushButton::clicked, this, &frmMain::cmdRestore_Click);
    connect(cmdQuit, &QPushButton::clicked, this, &frmMain::cmdQuit_Click);
    connect(cmdTests, &QPushButton::clicked, this, &frmMain::cmdTests_Click);
}

void frmMain::Form_Load()
{
    // The window's key handler sees every key before the control that has the focus.
    QApplication::instance()->installEventFilter(this);

    InitSettingsAndLog();
    SetTexts();

    const QStringList ports = m_setup.listPorts();
    for (const QString &port : ports)
        cmbPorts->addItem(port);
    cmdTests->hide();
    const QString lastPort = m_workspace.ini().GetValue(kSettings, u"COMPort"_s, u"COM1"_s);
    m_portsAvailable = !ports.isEmpty();
    if (!m_portsAvailable) {
        cmbPorts->setEnabled(false);
        ShowStatus(u"ERROR: No COM port available"_s, Eligibility::eError);
    } else {
        cmbPorts->setCurrentIndex(0);
        if (!lastPort.isEmpty())
            cmbPorts->setEditText(lastPort);
    }
    cmdConnect->setEnabled(cmbPorts->isEnabled());
    cmdRetry->setEnabled(cmbPorts->isEnabled());
    cmdRestore->setEnabled(false);
    if (cmbPorts->isEnabled())
        ShowStatus(Eligibility::instructionLines(), Eligibility::eNormal);

    // The engine gets the settings and the log, as the update window did.
    m_update = new frmUpdate(this);
    m_operator.setWindows(this, m_update);
    m_engine = std::make_unique<Engine>(
        m_setup.link, m_operator,
        EngineFiles {&m_workspace.ini(), &m_workspace.log(), m_setup.dataDir, m_setup.programDir});
    connect(m_engine.get(), &Engine::connectFinished, this, &frmMain::onConnectFinished);
    connect(m_engine.get(), &Engine::disconnectFinished, this, &frmMain::onDisconnectFinished);
    connect(m_engine.get(), &Engine::statusTextChanged, m_update, &frmUpdate::setStatusText);
    connect(m_engine.get(), &Engine::currentActionChanged, m_update, &frmUpdate::SetCurrentAction);
    connect(m_engine.get(), &Engine::transferProgressChanged, m_update,
            &frmUpdate::showTransferProgress);
    connect(m_engine.get(), &Engine::runSucceeded, m_update, &frmUpdate::showSuccess);
    connect(m_engine.get(), &Engine::runFinished, m_update, &frmUpdate::runFinished);
    connect(m_update, &QDialog::finished, this, [this] {
        auto then = std::move(m_afterRun);
        m_afterRun = nullptr;
        if (then)
            then(m_update->Result());
    });
    m_engine->start();

    LoadFirmwareFiles();
    CheckUpdateFiles();
    m_strFileCPU = m_new[cControler::eCPU].BinFileName();
    m_strFileMain = m_new[cControler::eMain].BinFileName();
    m_strFileMeas = m_new[cControler::eMeas].BinFileName();
    CurrentControler->UpdateHeader(u"VARIMOsentry"_s);
}

void frmMain::InitSettingsAndLog()
{
    m_workspace.Start();
    m_nRetryUpdates = m_workspace.RetryUpdates();
    m_bAllowDowngrade = m_workspace.AllowDowngrade();

    m_bConnected = false;
    cmdUpdate->setEnabled(false);
    m_bCheckBackup = false;
}

void frmMain::SetTexts()
{
    setWindowTitle(AppInfo::mainWindowTitle());
    cmdUpdate->setText(u"Update"_s);
    cmdUpdate->setToolTip(u"Update to new version"_s);
    cmdConnect->setText(u"Connect"_s);
    cmdConnect->setToolTip(u"Connect VARIMOsentry to COM port"_s);
    cmdRestore->setText(u"Restore Data"_s);
    cmdRestore->setToolTip(u"Restore parameters to VARIMOsentry"_s);
    cmdQuit->setText(u"Quit"_s);
    cmdQuit->setToolTip(u"Disconnect and exit program"_s);
    cmdRetry->setToolTip(u"Reload all"_s);
    fraConnect->setTitle(u"Connection"_s);
    fraStatus->setTitle(u"Status / Instruction"_s);
    lblComPort->setText(u"COM-Port:"_s);
    CurrentControler->UpdateHeader(u"VARIMOsentry"_s);
}

void frmMain::ShowStatus(const QString &text, int statusKind)
{
    m_statusText = text;
    m_statusKind = statusKind;
    QString shown = labelTextOf(text);
    lblStatus->setText(shown.replace(u"\r\n"_s, u"\n"_s));
    QColor color(0, 0, 255);
    if (statusKind == Eligibility::eError)
        color = QColor(255, 0, 0);
    else if (statusKind == Eligibility::eBlack)
        color = QColor(0, 0, 0);
    QPalette palette = lblStatus->palette();
    palette.setColor(QPalette::WindowText, color);
    lblStatus->setPalette(palette);
    lblStatus->repaint();
}

qint16 frmMain::CompareVersions(const QString &sCurrent, const QString &sCompareTo) const
{
    return Eligibility::CompareVersions(sCurrent, sCompareTo);
}

void frmMain::LoadFirmwareFiles()
{
    for (const qint32 kind : {cControler::eCPU, cControler::eMain, cControler::eMeas})
        m_workspace.LoadFirmwareFile(kind, m_new[kind]);
}

void frmMain::CheckUpdateFiles()
{
    const Eligibility::Verdict files =
        Eligibility::CheckUpdateFiles(boardsOf(m_current), boardsOf(m_new), m_bAllowDowngrade);
    CurrentControler->Init(m_current[cControler::eCPU], m_current[cControler::eMain],
                           m_current[cControler::eMeas], true);
    NewControler->Init(m_new[cControler::eCPU], m_new[cControler::eMain], m_new[cControler::eMeas],
                       false);
    if (NewControler->IsOneInvalid()) {
        cmdUpdate->setEnabled(false);
        ShowStatus(files.message, Eligibility::eError);
    }
}

void frmMain::SetConnectionState(bool bConnected)
{
    m_bConnected = bConnected;
    if (!bConnected) {
        cmdConnect->setText(u"Connect"_s);
        cmdConnect->setToolTip(u"Connect VARIMOsentry to COM port"_s);
        cmdUpdate->setEnabled(false);
        // Without an instrument there is nothing to restore to.
        cmdRestore->setEnabled(false);
        for (const qint32 kind : {cControler::eCPU, cControler::eMain, cControler::eMeas})
            m_current[kind].setFirmware(QString());
        cmdConnect->setEnabled(cmbPorts->isEnabled());
        if (m_portValid)
            ShowStatus(Eligibility::instructionLines(), Eligibility::eNormal);
        else
            ShowStatus(u"Invalid port - enter valid RS232-port"_s, Eligibility::eNormal);
    } else {
        const Eligibility::Verdict verdict = Eligibility::CheckConnected(
            boardsOf(m_current), boardsOf(m_new), m_workspace.ini(), m_bAllowDowngrade);
        cmdUpdate->setEnabled(verdict.updateEnabled);
        ShowStatus(verdict.message, verdict.kind);
        cmdConnect->setText(u"Disconnect"_s);
        cmdConnect->setToolTip(u"Disconnect VARIMOsentry from COM port"_s);
        m_workspace.ini().SetValue(kSettings, u"COMPort"_s, m_comPort);
    }
    CheckUpdateFiles();
}

void frmMain::setBusy(bool busy)
{
    m_busy = busy;
}

void frmMain::settle()
{
    setBusy(false);
    emit idle();
}

// --- Connect and Disconnect ----------------------------------------------------------------

void frmMain::cmdConnect_Click()
{
    // Kept as it always was: the result is not used.
    (void)CompareVersions(u"2.00"_s, u"2.05"_s);
    if (!m_bConnected)
        ConnectAndIdentify();
    else
        Disconnect();
}

void frmMain::beginConnecting()
{
    setBusy(true);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    for (QWidget *w : std::initializer_list<QWidget *> {cmdQuit, cmdConnect, cmbPorts, cmdRetry,
                                                        cmdUpdate, cmdRestore})
        w->setEnabled(false);
    ShowStatus(u"Connecting VARIMOsentry to "_s + cmbPorts->currentText() + u"..."_s);
    m_bConnected = false;
}

void frmMain::ConnectAndIdentify()
{
    beginConnecting();
    m_engine->connectTo(cmbPorts->currentText());
}

void frmMain::onConnectFinished(const ConnectOutcome &outcome)
{
    if (m_closing)
        return;
    const Connection::Result &r = outcome.result;
    for (const qint32 kind : {cControler::eCPU, cControler::eMeas, cControler::eMain})
        m_current[kind] = outcome.current[kind];
    m_portValid = outcome.portValid;
    m_comPort = outcome.comPort;
    m_bConnected = r.opened;
    cmdRestore->setEnabled(false);

    if (r.bootloaderBoard >= 0) {
        // A board waits in its bootloader: update it at once. The connect ends disconnected either
        // way, so the operator connects afresh to the board running its firmware.
        startRun(UpdateRun::eModeSingleBoard, qint16(r.bootloaderBoard), [this](bool result) {
            if (!result)
                LoadFirmwareFiles();
            CheckUpdateFiles();
            m_bConnected = false;
            finishConnecting();
        });
        return;
    }

    m_bConnected = r.boardsRead;
    if (r.boardsRead && !r.serialNumber.isEmpty()) {
        m_strSerialNumber = r.serialNumber;
        CurrentControler->UpdateHeader(u"VARIMOsentry SN "_s + r.serialNumber);
        m_strBackupFileName = r.backupFileName;
        m_bConnected = true;
        if (r.backupExists)
            cmdRestore->setEnabled(true);
    }
    finishConnecting();
}

void frmMain::finishConnecting()
{
    QApplication::restoreOverrideCursor();
    for (QWidget *w :
         std::initializer_list<QWidget *> {cmdQuit, cmdConnect, cmbPorts, cmdRetry, cmdUpdate})
        w->setEnabled(true);
    cmbPorts->setEnabled(m_portsAvailable);
    cmdRetry->setEnabled(m_portsAvailable);
    SetConnectionState(m_bConnected);
    settle();
}

void frmMain::Disconnect()
{
    setBusy(true);
    for (QWidget *w : std::initializer_list<QWidget *> {cmdQuit, cmdConnect, cmbPorts, cmdRetry,
                                                        cmdUpdate, cmdRestore})
        w->setEnabled(false);
    m_engine->disconnectFrom();
}

void frmMain::onDisconnectFinished(bool portValid)
{
    m_bConnected = false;
    m_portValid = portValid;
    if (m_closing) {
        writeClosingLines();
        m_closed = true;
        close();
        return;
    }
    cmdQuit->setEnabled(true);
    cmbPorts->setEnabled(m_portsAvailable);
    cmdRetry->setEnabled(m_portsAvailable);
    SetConnectionState(false);
    settle();
}

// --- Update, Restore Data, Reload all, Quit ------------------------------------------------

void frmMain::startRun(qint16 mode, qint16 board, std::function<void(bool)> then)
{
    setBusy(true);
    UpdateJob job;
    job.mode = mode;
    job.board = board;
    job.current = m_current;
    job.fresh = m_new;
    job.backupFileName = m_strBackupFileName;
    job.checkBackup = m_bCheckBackup;
    m_afterRun = std::move(then);
    m_update->SetMode(mode);
    m_update->open();
    m_engine->runUpdate(job);
}

void frmMain::cmdUpdate_Click()
{
    startRun(UpdateRun::eModeFull, 0, [this](bool result) {
        if (result)
            CheckUpdateFiles();
        cmdRetry_Click();
    });
}

void frmMain::cmdRestore_Click()
{
    startRun(UpdateRun::eModeRestore, -1, [this](bool) { cmdRetry_Click(); });
}

void frmMain::cmdRetry_Click()
{
    LoadFirmwareFiles();
    CheckUpdateFiles();
    if (m_bConnected) {
        beginConnecting();
        m_engine->reconnect(cmbPorts->currentText());
        return;
    }
    settle();
}

void frmMain::cmdQuit_Click()
{
    close();
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
    m_engine->disconnectFrom();
}

void frmMain::writeClosingLines()
{
    if (m_closingLinesWritten)
        return;
    m_closingLinesWritten = true;
    m_workspace.Stop();
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
        m_bAllowDowngrade = m_workspace.ini().GetBoolValue(kSettings, u"AllowDowngrade"_s, false);
        CheckUpdateFiles();
        return;
    }
    setBusy(true);
    auto *password = new frmTestPswd(this);
    password->setAttribute(Qt::WA_DeleteOnClose);
    connect(password, &QDialog::finished, this, [this, password] {
        if (password->Accepted()) {
            cmdTests->show();
            m_bAllowDowngrade = true;
            CheckUpdateFiles();
            cmdTests_Click();
        } else {
            CheckUpdateFiles();
            settle();
        }
    });
    password->open();
}

void frmMain::cmdTests_Click()
{
    setBusy(true);
    auto *choice = new frmBackup(m_setup.programDir, this);
    choice->setAttribute(Qt::WA_DeleteOnClose);
    choice->Init(m_new[cControler::eCPU].BinFileName(), m_new[cControler::eMain].BinFileName(),
                 m_new[cControler::eMeas].BinFileName());
    connect(choice, &QDialog::finished, this, [this, choice] {
        if (choice->Accepted()) {
            const std::pair<qint32, QString> chosen[] = {{cControler::eCPU, choice->sTestCPUBin},
                                                         {cControler::eMain, choice->sTestMainBin},
                                                         {cControler::eMeas, choice->sTestMeasBin}};
            for (const auto &[kind, file] : chosen) {
                if (!file.isEmpty())
                    m_new[kind].InitFromBinFile(m_setup.programDir, file, m_workspace.Pattern(kind),
                                                kind);
            }
            m_bCheckBackup = choice->bCheckBackup;
            CheckUpdateFiles();
            if (m_bConnected)
                SetConnectionState(true);
        }
        settle();
    });
    choice->open();
}
