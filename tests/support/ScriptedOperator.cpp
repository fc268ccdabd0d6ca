#include "ScriptedOperator.h"

void ScriptedOperator::messageBox(const QString &text)
{
    record({Prompt::MessageBox, Instruction::General, {text}});
}

void ScriptedOperator::instruction(Instruction kind, const QStringList &lines)
{
    record({Prompt::Instruction, kind, lines});
}

void ScriptedOperator::record(Prompt prompt)
{
    prompts.push_back(prompt);
    if (m_reaction)
        m_reaction(prompts.back());
}
