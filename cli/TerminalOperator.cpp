#include "TerminalOperator.h"

#include "Console.h"
#include "shell/AppInfo.h"

using namespace Qt::StringLiterals;

TerminalOperator::TerminalOperator(Console &console, bool answerYes)
    : m_console(console)
    , m_answerYes(answerYes)
{
}

void TerminalOperator::setLineCheck(std::function<bool()> gone, const QString &portName)
{
    m_lineGone = std::move(gone);
    m_portName = portName;
    m_sinceLineCheck.invalidate(); // the first wait checks at once
}

void TerminalOperator::fail(OperatorAbort::Reason reason, const QString &message)
{
    if (!m_abort)
        m_abort.emplace(reason, message);
    throw *m_abort;
}

void TerminalOperator::messageBox(const QString &text)
{
    ask({u"[%1] %2"_s.arg(AppInfo::productTitle(), text)});
}

void TerminalOperator::instruction(Instruction, const QStringList &lines)
{
    if (m_observer)
        m_observer();
    QStringList shown;
    for (const QString &line : lines) {
        // The windows' advice names their button; here the command does the same.
        if (line == InstructionText::kTryRestoreAgain)
            shown.append(u"Try again to restore the parameters with 'varimo-updater restore'."_s);
        else if (!line.isEmpty())
            shown.append(QString(line).replace(u"&&"_s, u"&"_s));
    }
    ask(shown);
}

void TerminalOperator::ask(const QStringList &lines)
{
    // Once the job has been ended, the prompts its clean-up still raises are not shown again.
    if (m_abort)
        throw *m_abort;

    const QString key = lines.join(u'\n');
    const int rounds = m_shown.value(key);
    if (m_answerYes && rounds >= kRounds) {
        fail(OperatorAbort::Reason::GaveUp,
             u"Gave up: this instruction came back %1 times without the instrument answering "
             "again: %2"_s.arg(rounds + 1)
                 .arg(lines.value(0)));
    }
    m_shown[key] = rounds + 1;
    ++m_promptsShown;

    m_console.print(u"----"_s);
    for (const QString &line : lines)
        m_console.print(line);
    if (m_answerYes) {
        m_console.print(u"---- OK (--yes)"_s);
        return;
    }
    if (!m_console.inputIsTerminal()) {
        fail(OperatorAbort::Reason::NoTerminal,
             u"The instrument needs the operator, but standard input is no terminal: run on a "
             "terminal, or answer every prompt with OK by --yes."_s);
    }
    m_console.print(u"---- Press Enter for OK."_s);
    if (!m_console.readLine())
        fail(OperatorAbort::Reason::EndOfInput, u"No answer: the input ended at a prompt."_s);
}

void TerminalOperator::letEventsRun()
{
    if (!m_lineGone ||
        (m_sinceLineCheck.isValid() && m_sinceLineCheck.elapsed() < kLineCheckIntervalMs))
        return;
    m_sinceLineCheck.start();
    if (m_lineGone())
        fail(OperatorAbort::Reason::LineGone, u"The port %1 has gone away."_s.arg(m_portName));
}
