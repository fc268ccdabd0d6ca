#include "frmUpdate.h"

#include "InstructionDialogs.h"
#include "shell/AppInfo.h"

#include <QApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

frmUpdate::frmUpdate(QWidget *parent)
    : QDialog(parent)
    , lblStatus(named<QLabel>(u"lblStatus"_s, this))
    , lblStatus2(named<QLabel>(u"lblStatus2"_s, this))
    , lblCurrentAction(named<QLabel>(u"lblCurrentAction"_s, this))
    , Frame1(named<QFrame>(u"Frame1"_s, this))
    , progressBar(named<QProgressBar>(u"progressBar"_s, this))
    , lblProgress(named<QLabel>(u"lblProgress"_s, this))
    , cmdOk(named<QPushButton>(u"cmdOk"_s, u"OK"_s, this))
    , Timer1(named<QTimer>(u"Timer1"_s, this))
{
    setUpDialog(this, u"frmUpdate"_s, AppInfo::productTitle());
    setWindowFlag(Qt::WindowCloseButtonHint, false);
    setModal(true);
    buildFrame();
    buildButtons();
    setFixedSize(580, 270);

    Timer1->setInterval(kTimerIntervalMs);
    connect(Timer1, &QTimer::timeout, this, &frmUpdate::Timer1_Timer);
    connect(cmdOk, &QPushButton::clicked, this, &QDialog::accept);
    SetMode(std::nullopt);
}

void frmUpdate::buildFrame()
{
    Frame1->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
    lblStatus->setFont(windowFont(true));
    lblStatus->setTextFormat(Qt::PlainText);
    lblStatus->setMinimumHeight(24);
    lblCurrentAction->setTextFormat(Qt::PlainText);
    lblCurrentAction->setWordWrap(true);
    lblCurrentAction->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    lblCurrentAction->setMinimumHeight(44);
    progressBar->setTextVisible(true);
    progressBar->setFormat(u"%p %"_s);
    lblProgress->setTextFormat(Qt::PlainText);

    auto *frameLayout = new QVBoxLayout(Frame1);
    frameLayout->setContentsMargins(14, 12, 14, 12);
    frameLayout->setSpacing(8);
    frameLayout->addWidget(lblStatus);
    frameLayout->addWidget(lblCurrentAction);
    frameLayout->addWidget(progressBar);
    frameLayout->addWidget(lblProgress);
    frameLayout->addStretch(1);
}

void frmUpdate::buildButtons()
{
    lblStatus2->setTextFormat(Qt::PlainText);
    lblStatus2->setAlignment(Qt::AlignCenter);

    cmdOk->setDefault(true);
    cmdOk->setMinimumWidth(100);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdOk);
    buttons->addStretch(1);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 14);
    layout->setSpacing(12);
    layout->addWidget(Frame1, 1);
    layout->addWidget(lblStatus2, 0, Qt::AlignHCenter);
    layout->addLayout(buttons);
}

void frmUpdate::SetMode(std::optional<Job::Kind> kind)
{
    m_kind = kind;
    m_result = false;
    m_running = kind.has_value();
    m_statusText.clear();
    lblStatus->clear();
    lblCurrentAction->clear();
    setTextColor(lblCurrentAction, Qt::black);
    lblStatus2->setText(u"DO NOT INTERRUPT THE UPDATE PROCESS!"_s);
    lblStatus2->setFont(lblStatus->font());
    setTextColor(lblStatus2, QColor(192, 0, 0));
    Frame1->show();
    cmdOk->hide();
    setTransferVisible(false);
}

void frmUpdate::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    if (!m_kind) {
        // Nobody said what to do: the window goes away at once.
        QTimer::singleShot(0, this, [this] { done(QDialog::Rejected); });
        return;
    }
    Timer1->start();
    QApplication::setOverrideCursor(Qt::BusyCursor);
}

void frmUpdate::reject()
{
    // Escape and the window frame (whose close asks reject) cannot interrupt a run.
    if (!m_running)
        QDialog::reject();
}

void frmUpdate::setStatusText(const QString &text)
{
    m_statusText = text;
    lblStatus->setText(text);
    lblStatus->repaint();
}

void frmUpdate::Timer1_Timer()
{
    QString text = lblStatus->text() + u". "_s;
    if (text.size() > kMaxStatusLength)
        text = m_statusText;
    lblStatus->setText(text);
    lblStatus->repaint();
}

void frmUpdate::SetCurrentAction(const QString &text, bool isError)
{
    lblCurrentAction->setText(text);
    setTextColor(lblCurrentAction, isError ? Qt::red : Qt::black);
    // The bar belongs to the packets of a running transfer, which come as progress.
    setTransferVisible(false);
    lblCurrentAction->repaint();
}

QString frmUpdate::progressText(const TransferProgress &progress)
{
    QString text = u"%L1 of %L2 bytes"_s.arg(progress.bytesSent).arg(progress.bytesTotal);
    if (progress.remainingMs >= 0) {
        const qint64 seconds = (progress.remainingMs + 999) / 1000;
        text += u"  \u2013  %1:%2 remaining"_s.arg(seconds / 60)
                    .arg(seconds % 60, 2, 10, QLatin1Char('0'));
    }
    if (progress.packetsRetried > 0)
        text += u"  \u2013  %1 repeated"_s.arg(progress.packetsRetried);
    return text;
}

void frmUpdate::showTransferProgress(const TransferProgress &progress)
{
    lblCurrentAction->setText(progress.text);
    setTextColor(lblCurrentAction, Qt::black);
    progressBar->setRange(0, 1000);
    progressBar->setValue(
        progress.bytesTotal > 0 ? int(progress.bytesSent * 1000 / progress.bytesTotal) : 0);
    progressBar->setFormat(u"%1 %"_s.arg(progressBar->value() / 10));
    lblProgress->setText(progressText(progress));
    setTransferVisible(true);
}

void frmUpdate::showJobEvent(const JobEvent &event)
{
    if (event.stage != Stage::RestartWait || event.secondsLeft < 0 || !event.board)
        return;
    progressBar->setVisible(false);
    lblProgress->setText(restartWaitText(*event.board, event.secondsLeft));
    lblProgress->setVisible(true);
}

void frmUpdate::setTransferVisible(bool visible)
{
    progressBar->setVisible(visible);
    lblProgress->setVisible(visible);
}

void frmUpdate::showSuccess()
{
    lblStatus2->setText(updateSucceededText());
    lblStatus2->setFont(windowFont(true, 12));
    lblStatus2->adjustSize();
    setTextColor(lblStatus2, Qt::black);
    lblStatus->clear();
    Frame1->hide();
    cmdOk->show();
    cmdOk->setFocus();
    Timer1->stop();
}

void frmUpdate::runFinished(bool result)
{
    m_result = result;
    m_running = false;
    Timer1->stop();
    QApplication::restoreOverrideCursor();
    // A failed run and a restore close the window; a successful update waits for cmdOk.
    if (!result || m_kind == Job::Kind::Restore)
        done(result ? QDialog::Accepted : QDialog::Rejected);
}

void frmUpdate::ShowMessage(const QStringList &lines, std::function<void()> onClosed)
{
    Timer1->stop();
    auto *dialog = new frmMsgGeneral(this);
    dialog->Init(lines.value(0), lines.value(1), lines.value(2), lines.value(3), lines.value(4));
    openDialog(dialog, this, [this, onClosed] {
        if (m_running)
            Timer1->start();
        onClosed();
    });
}
