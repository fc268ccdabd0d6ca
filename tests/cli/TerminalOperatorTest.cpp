#include "TerminalOperator.h"

#include "Console.h"
#include "support/Pty.h"

#include <cstdio>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Instruction = Operator::Instruction;

std::optional<OperatorAbort::Reason> reasonOf(const std::function<void()> &prompt)
{
    try {
        prompt();
    } catch (const OperatorAbort &e) {
        return e.reason();
    }
    return std::nullopt;
}

// Without a terminal every prompt is an error, the prompts of the clean-up too, shown or not.
// With --yes, a prompt that keeps coming back without the run moving forward is answered kRounds
// times; the next showing ends the run.
TEST(TerminalOperator, WithoutTerminalAPromptIsAnErrorAndYesGivesUpOnTheFourthRound)
{
    const struct
    {
        const char *script; // i: the instruction, m: a message box, p: progress of the run
        bool yes;
        int abortsAt; // index of the first prompt that ends the run, -1 for none
        int shown;
    } cases[] = {{"iiii", true, 3, 3},
                 {"iiipiii", true, -1, 6},
                 {"iiimmmi", true, 6, 6},
                 {"mmmm", true, 3, 3},
                 {"im", false, 0, 1}};
    // The windows' advice names their button; the terminal names the command.
    const QStringList kRestoreFailed = {u"ERROR: Restore failed"_s,
                                        InstructionText::kTryRestoreAgain, u"Continue with OK."_s,
                                        QString(), QString()};
    for (const auto &tc : cases) {
        FILE *file = std::tmpfile();
        Console console(file, file, file);
        TerminalOperator op(console, tc.yes);
        int aborted = -1;
        const QByteArray script(tc.script);
        for (int i = 0; i < script.size(); ++i) {
            const auto reason = reasonOf([&] {
                if (script[i] == 'i')
                    op.instruction(Instruction::General, kRestoreFailed);
                else if (script[i] == 'm')
                    op.messageBox(u"Leave VARIMOsentry setup menu and press OK"_s);
                else
                    op.noteProgress();
            });
            if (reason) {
                EXPECT_EQ(*reason,
                          tc.yes ? OperatorAbort::Reason::GaveUp
                                 : OperatorAbort::Reason::NoTerminal)
                    << tc.script;
                aborted = aborted < 0 ? i : aborted;
            }
        }
        EXPECT_EQ(aborted, tc.abortsAt) << tc.script;
        EXPECT_EQ(op.promptsShown(), tc.shown) << tc.script;
        QByteArray shown(4096, 0);
        std::fflush(file);
        std::rewind(file);
        shown.truncate(qsizetype(std::fread(shown.data(), 1, shown.size(), file)));
        EXPECT_EQ(shown.contains("the parameters with 'varimo-updater restore'."), script[0] == 'i')
            << shown.constData();
        std::fclose(file);
    }
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
