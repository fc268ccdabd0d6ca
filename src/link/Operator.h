#pragma once

#include <QString>
#include <QStringList>

// Everything the protocol asks of a person: the message box of the setup menu, the instruction
// dialogs that tell which keys to press, and the chance for the windows to run pending events
// during long waits. The windows, the terminal front end and the tests each implement it.
//
// The engine calls it from the engine thread; an implementation that shows windows must hand the
// call to the GUI thread and block until the operator has answered.
class Operator
{
public:
    // The instruction dialogs of an update run.
    enum class Instruction {
        CpuUpdateMode, // frmMsgCPU: reset, then switch the CPU Board into its update mode
        MainBoardRestart, // frmMsgMainBoard: reset and restart after the Main Board restore
        General, // frmMsgGeneral: five lines given by the caller
    };

    virtual ~Operator() = default;

    // A message box with an OK button only, titled with the product's name; returns when the
    // operator pressed OK.
    virtual void messageBox(const QString &text) = 0;

    // An instruction dialog; returns when the operator pressed OK. lines holds the dialog's lines
    // as the system's texts ("&&" stands for one "&" on screen); for General exactly five lines,
    // some of them possibly empty.
    virtual void instruction(Instruction kind, const QStringList &lines) = 0;

    // Lets the windows run pending events (repaint, animate) during a long wait. The engine runs on
    // its own thread, so for the windows this is only a point where a job may notice a request to
    // stop; implementations may do nothing.
    virtual void letEventsRun() = 0;
};

// The operator ended a job instead of answering (no terminal to ask, the terminal closed, the same
// prompt came back too often, the program is closing). Thrown by an Operator from any of its
// calls; deliberately not a std::exception, so that no failure handler on the way catches it: only
// the job's own boundary (Session::run) turns it into a cancelled result.
class OperatorCancel
{
public:
    explicit OperatorCancel(const QString &message)
        : m_message(message)
    {
    }
    virtual ~OperatorCancel() = default;
    QString message() const { return m_message; }

private:
    QString m_message;
};

// The fixed lines of the instruction dialogs.
namespace InstructionText {
inline const QString kReset =
    QStringLiteral("Reset VARIMOsentry by pressing RESET && ZERO buttons simultaneously.");
inline const QString kPower = QStringLiteral("Restart VARIMOsentry by pressing the POWER KEY.");
inline const QString kWaitForDisplay =
    QStringLiteral("Wait a few seconds until the measured value display is shown.");
inline const QString kContinue = QStringLiteral("Continue with OK.");
inline const QString kCheckConnection = QStringLiteral("Check connection to VARIMOsentry.");
inline const QString kTryRestoreAgain =
    QStringLiteral("Try again to restore parameters with Restore Data - button.");
inline QStringList cpuUpdateMode()
{
    return {kReset, QStringLiteral("Switch VARIMOsentry to the Update Mode as follows:"),
            QStringLiteral("Press and hold the RANGE && SETUP buttons simultaneously, press the "
                           "POWER KEY for one second and then release the RANGE && SETUP buttons "
                           "when the power LED is blinking."),
            kContinue};
}
inline QStringList mainBoardRestart()
{
    return {kReset, kPower, kWaitForDisplay, kContinue};
}
} // namespace InstructionText
