#pragma once

#include "link/Operator.h"

#include <QElapsedTimer>
#include <QHash>
#include <functional>
#include <optional>

class Console;

// Why the terminal front end ended a job that waited for the operator. The session's run turns it
// into a cancelled job.
class OperatorAbort : public OperatorCancel
{
public:
    enum class Reason {
        NoTerminal, // a prompt, no terminal to answer it, and no --yes
        EndOfInput, // the terminal closed instead of answering
        GaveUp, // with --yes, the same prompt came back more than kRounds times
        LineGone, // the port went away while the job waited on it
    };

    OperatorAbort(Reason reason, const QString &message)
        : OperatorCancel(message)
        , m_reason(reason)
    {
    }
    Reason reason() const { return m_reason; }

private:
    Reason m_reason;
};

// The operator at a terminal: every prompt is printed with its lines ("&&" shown as "&") and
// waits for Enter. With --yes each prompt is answered with OK as soon as it is printed; a prompt
// that keeps coming back without the job moving forward (the port cannot be opened again, the
// instrument never answers again) is answered kRounds times, and the next time the job is ended
// by OperatorAbort. Without a terminal on standard input and without --yes a prompt is an error,
// never a wait.
//
// The session's prompts and waits end up here; the first abort is kept in abort(), and every later
// prompt (the clean-up of a job already ended) ends the same way without being shown.
//
// Used by the one thread of the terminal front end.
class TerminalOperator final : public Operator
{
public:
    static constexpr int kRounds = 3;
    static constexpr int kLineCheckIntervalMs = 500;

    TerminalOperator(Console &console, bool answerYes);

    // Shown as "[VARIMOsentry Firmware Updater] text".
    void messageBox(const QString &text) override;
    void instruction(Instruction kind, const QStringList &lines) override;
    // Where the session waits, checks (at most every kLineCheckIntervalMs) whether the port is
    // still there, when a check is set.
    void letEventsRun() override;

    // The check for a port that went away; none (the default) checks nothing.
    void setLineCheck(std::function<bool()> gone, const QString &portName);
    // The job moved forward (a packet was taken, a board finished): prompts count afresh.
    void noteProgress() { m_shown.clear(); }
    // Called before each instruction is printed (the front end ends its transfer display).
    void setInstructionObserver(std::function<void()> observer)
    {
        m_observer = std::move(observer);
    }

    // The first abort, if the job was ended by one.
    const std::optional<OperatorAbort> &abort() const { return m_abort; }
    int promptsShown() const { return m_promptsShown; }

private:
    void ask(const QStringList &lines);
    [[noreturn]] void fail(OperatorAbort::Reason reason, const QString &message);

    Console &m_console;
    bool m_answerYes;
    QHash<QString, int> m_shown; // how often each prompt came since the job last moved forward
    std::function<bool()> m_lineGone;
    QString m_portName;
    QElapsedTimer m_sinceLineCheck;
    std::function<void()> m_observer;
    std::optional<OperatorAbort> m_abort;
    int m_promptsShown = 0;
};
