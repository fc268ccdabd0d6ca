#pragma once

#include "link/Operator.h"

#include <functional>
#include <vector>

// An operator for tests: records every prompt and answers it at once with OK, after running an
// optional reaction (for example pressing keys on the simulated instrument).
class ScriptedOperator : public Operator
{
public:
    struct Prompt
    {
        enum Kind { MessageBox, Instruction } kind;
        Operator::Instruction instruction = Operator::Instruction::General;
        QStringList lines; // the message box's text as one line, or the dialog's lines
    };

    using Reaction = std::function<void(const Prompt &)>;

    void messageBox(const QString &text) override
    {
        record({Prompt::MessageBox, Instruction::General, {text}});
    }
    void instruction(Instruction kind, const QStringList &lines) override
    {
        record({Prompt::Instruction, kind, lines});
    }
    void letEventsRun() override { }

    // Called for every prompt before it is answered.
    void setReaction(Reaction reaction) { m_reaction = std::move(reaction); }

    std::vector<Prompt> prompts;

private:
    void record(Prompt prompt)
    {
        prompts.push_back(std::move(prompt));
        if (m_reaction)
            m_reaction(prompts.back());
    }
    Reaction m_reaction;
};
