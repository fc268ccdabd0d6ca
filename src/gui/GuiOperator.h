#pragma once

#include "gui/ThreadHandover.h"
#include "link/Operator.h"

#include <QObject>
#include <QPointer>
#include <condition_variable>
#include <functional>
#include <mutex>

class QWidget;
class frmUpdate;

// The operator as the windows are: the engine calls it on the engine thread, the dialog is shown
// on the GUI thread, and the engine thread waits until the operator has pressed OK. The general
// instruction dialog goes through the update window (which pauses its animation meanwhile) when
// that window is up; every dialog is modal over the update window, or over the main window when
// no run is going on. Once released (the program is closing), every call that would wait for
// the operator ends the job instead: it throws OperatorCancel.
//
// Lives on the GUI thread; messageBox and instruction are called from the engine thread (on the
// GUI thread they would wait for a dialog that is never shown).
class GuiOperator : public QObject, public Operator
{
    Q_OBJECT

public:
    explicit GuiOperator(QObject *parent = nullptr);

    void setWindows(QWidget *mainWindow, frmUpdate *updateWindow);

    void messageBox(const QString &text) override;
    void instruction(Instruction kind, const QStringList &lines) override;
    // The engine has its own thread; the windows never wait for it.
    void letEventsRun() override { }

    // Ends every wait at once, and every later call at once: the program is closing.
    void releaseAll();

private:
    using Done = std::function<void()>;
    using Show = std::function<void(Done done)>;

    void showAndWait(Show show);
    QWidget *dialogParent() const;

    QPointer<QWidget> m_main;
    QPointer<frmUpdate> m_update;
    // Standard rather than Qt primitives: the system's Qt is not built with ThreadSanitizer, which
    // then cannot see a QWaitCondition hand the mutex back and forth.
    std::mutex m_mutex;
    std::condition_variable m_answered;
    // Where the engine thread's dialog requests arrive (lives on the GUI thread).
    handover::Inbox *m_inbox;
    bool m_released = false;
};
