#include "TerminalOperator.h"

#include "Console.h"
#include "support/Pty.h"

#include <cstdio>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Instruction = Operator::Instruction;

const QStringList kNoConnection = {u"ERROR: No connection to VARIMOsentry"_s,
                                   u"Restart VARIMOsentry by pressing the POWER KEY."_s,
                                   u"Continue with OK."_s, QString(), QString()};

std::optional<OperatorAbort::Reason> reasonOf(const std::function<void()> &prompt)
{
    try {
        prompt();
    } catch (const OperatorAbort &e) {
        return e.reason();
    }
    return std::nullopt;
}

// With --yes, a prompt that keeps coming back without the run moving forward is answered
// kRounds times; the next showing ends the run.
TEST(TerminalOperator, YesGivesUpOnTheFourthRoundUnlessTheRunMovedOn)
{
    const struct
    {
        const char *script; // i: the instruction, m: a message box, p: progress of the run
        int abortsAt; // index of the prompt that ends the run, -1 for none
    } cases[] = {{"iiii", 3}, {"iiipiii", -1}, {"iiimmmi", 6}, {"mmmm", 3}};
    for (const auto &tc : cases) {
        FILE *file = std::tmpfile();
        Console console(file, file, file);
        TerminalOperator op(console, true);
        int aborted = -1;
        const QByteArray script(tc.script);
        for (int i = 0; i < script.size() && aborted < 0; ++i) {
            const auto reason = reasonOf([&] {
                if (script[i] == 'i')
                    op.instruction(Instruction::General, kNoConnection);
                else if (script[i] == 'm')
                    op.messageBox(u"Leave VARIMOsentry setup menu and press OK"_s);
                else
                    op.noteProgress();
            });
            if (reason) {
                EXPECT_EQ(*reason, OperatorAbort::Reason::GaveUp) << tc.script;
                aborted = i;
            }
        }
        EXPECT_EQ(aborted, tc.abortsAt) << tc.script;
        std::fclose(file);
    }
}

TEST(TerminalOperator, WithoutTerminalOrYesAPromptIsAnErrorAndStaysOne)
{
    FILE *file = std::tmpfile();
    Console console(file, file, file);
    TerminalOperator op(console, false);
    EXPECT_EQ(reasonOf([&] { op.instruction(Instruction::General, kNoConnection); }),
              OperatorAbort::Reason::NoTerminal);
    // The prompts of the clean-up end the same way, without being shown.
    EXPECT_EQ(reasonOf([&] { op.messageBox(u"again"_s); }), OperatorAbort::Reason::NoTerminal);
    EXPECT_EQ(op.promptsShown(), 1);
    std::fclose(file);
}

TEST(TerminalOperator, OnATerminalEnterAnswersAndTheEndOfInputAborts)
{
    PtyPair pty;
    ASSERT_TRUE(pty.isValid());
    FILE *in = std::fopen(pty.slavePath().toLocal8Bit().constData(), "r");
    ASSERT_NE(in, nullptr);
    FILE *out = std::tmpfile();
    {
        Console console(in, out, out);
        ASSERT_TRUE(console.inputIsTerminal());
        TerminalOperator op(console, false);
        ASSERT_TRUE(pty.write("\n"));
        EXPECT_EQ(reasonOf([&] { op.instruction(Instruction::MainBoardRestart, {u"x"_s}); }),
                  std::nullopt);
        pty.closeMaster(); // the terminal went away: the end of the input
        EXPECT_EQ(reasonOf([&] { op.instruction(Instruction::MainBoardRestart, {u"x"_s}); }),
                  OperatorAbort::Reason::EndOfInput);
    }
    std::fclose(in);
    std::fclose(out);
}

} // namespace
