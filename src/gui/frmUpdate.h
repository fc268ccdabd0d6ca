#pragma once

#include "update/Job.h"

#include <QDialog>
#include <functional>
#include <optional>

class QFrame;
class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

// The update window: shows one update operation of the engine while the operator watches. The
// status line is animated by Timer1, the current action is black or red, a progress bar shows the
// bytes of a firmware transfer and the time left. It closes itself when a run fails and when a
// restore ends; after a successful update it shows "Update successfully completed" and waits for
// cmdOk. The operator cannot close it while the run is going on.
//
// Lives on the GUI thread and knows nothing of the engine: the main window feeds it the engine's
// signals and reads Result() after it has closed.
class frmUpdate : public QDialog
{
    Q_OBJECT

public:
    static constexpr int kTimerIntervalMs = 500;
    static constexpr int kMaxStatusLength = 65;

    explicit frmUpdate(QWidget *parent = nullptr);

    // Prepares the window for a run of the given job (Update, Restore or SingleBoard). Without a
    // job the window closes at once when it is shown.
    void SetMode(std::optional<Job::Kind> kind);
    bool Result() const { return m_result; }

    // The engine's reports. During a transfer each packet's progress brings the current-action
    // line and the progress bar; any other current action ends the bar.
    void setStatusText(const QString &text);
    void SetCurrentAction(const QString &text, bool isError);
    void showTransferProgress(const TransferProgress &progress);
    // The restart wait after a transfer counts down below the transfer's last line.
    void showJobEvent(const JobEvent &event);
    void showSuccess();
    void runFinished(bool result);

    // The general instruction dialog with five lines; the animation pauses until it is closed,
    // then onClosed runs.
    void ShowMessage(const QStringList &lines, std::function<void()> onClosed);

    // One tick of the animation: ". " appended, back to the status text past 65 characters.
    void Timer1_Timer();

    QLabel *lblStatus;
    QLabel *lblStatus2;
    QLabel *lblCurrentAction;
    QFrame *Frame1;
    QProgressBar *progressBar;
    QLabel *lblProgress;
    QPushButton *cmdOk;
    QTimer *Timer1;

    static QString progressText(const TransferProgress &progress);

protected:
    void showEvent(QShowEvent *event) override;
    void reject() override;

private:
    void buildFrame();
    void buildButtons();
    void setTransferVisible(bool visible);

    std::optional<Job::Kind> m_kind;
    bool m_result = false;
    bool m_running = false;
    QString m_statusText;
};
