#include "TerminalOperator.h"

#include "Console.h"
#include "support/Pty.h"

#include <QFile>
#include <cstdio>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Instruction = Operator::Instruction;

// A console whose ends are temporary files: no terminal anywhere.
class Captured
{
public:
    Captured()
        : in(std::tmpfile())
        , out(std::tmpfile())
        , console(in, out, out)
    {
    }
    ~Captured()
    {
        std::fclose(in);
        std::fclose(out);
    }
    QString text()
    {
        std::fflush(out);
        std::rewind(out);
        QByteArray bytes;
        char buf[4096];
        while (const size_t n = std::fread(buf, 1, sizeof buf, out))
            bytes.append(buf, qsizetype(n));
        return QString::fromLocal8Bit(bytes);
    }

    FILE *in;
    FILE *out;
    Console console;
};

const QStringList kNoConnection = {u"ERROR: No connection to VARIMOsentry"_s,
                                   u"Reset VARIMOsentry by pressing RESET && ZERO buttons "
                                   "simultaneously."_s,
                                   u"Restart VARIMOsentry by pressing the POWER KEY."_s,
                                   u"Continue with OK."_s, QString()};

std::optional<OperatorAbort::Reason> reasonOf(const std::function<void()> &prompt)
{
    try {
        prompt();
    } catch (const OperatorAbort &e) {
        return e.reason();
    }
    return std::nullopt;
}

TEST(TerminalOperator, YesPrintsEachPromptWithItsAmpersandsAndAnswersOk)
{
    Captured c;
    TerminalOperator op(c.console, true);
    op.instruction(Instruction::General, kNoConnection);
    const QString text = c.text();
    EXPECT_TRUE(text.contains(u"Reset VARIMOsentry by pressing RESET & ZERO buttons"_s))
        << qPrintable(text);
    EXPECT_FALSE(text.contains(u"&&"_s));
    EXPECT_TRUE(text.contains(u"OK (--yes)"_s));
    EXPECT_FALSE(op.abort());
}

// With --yes, a prompt that keeps coming back without the run moving forward is answered
// kRounds times; the next showing ends the run.
TEST(TerminalOperator, YesGivesUpOnTheFourthRoundUnlessTheRunMovedOn)
{
    const struct
    {
        const char *what;
        const char *script; // i: the instruction, m: a message box, p: progress of the run
        int abortsAt; // index in script of the prompt that ends the run, -1 for none
    } cases[] = {
        {"the same instruction four times", "iiii", 3},
        {"progress in between counts afresh", "iiipiii", -1},
        {"a message box counts on its own", "iiimmmi", 6},
        {"the setup-menu box four times", "mmmm", 3},
    };
    for (const auto &tc : cases) {
        Captured c;
        TerminalOperator op(c.console, true);
        int aborted = -1;
        const QByteArray script(tc.script);
        for (int i = 0; i < script.size() && aborted < 0; ++i) {
            const auto reason = reasonOf([&] {
                if (script[i] == 'i')
                    op.instruction(Instruction::General, kNoConnection);
                else if (script[i] == 'm')
                    op.messageBox(u"Leave VARIMOsentry setup menu and press OK"_s, u"t"_s);
                else
                    op.noteProgress();
            });
            if (reason) {
                EXPECT_EQ(*reason, OperatorAbort::eGaveUp) << tc.what;
                aborted = i;
            }
        }
        EXPECT_EQ(aborted, tc.abortsAt) << tc.what;
        EXPECT_EQ(bool(op.abort()), tc.abortsAt >= 0) << tc.what;
    }
}

TEST(TerminalOperator, WithoutTerminalOrYesAPromptIsAnErrorAndStaysOne)
{
    Captured c;
    TerminalOperator op(c.console, false);
    EXPECT_EQ(reasonOf([&] { op.instruction(Instruction::General, kNoConnection); }),
              OperatorAbort::eNoTerminal);
    EXPECT_TRUE(c.text().contains(u"ERROR: No connection to VARIMOsentry"_s));
    // The clean-up's prompts end the same way, without being shown again.
    EXPECT_EQ(reasonOf([&] { op.messageBox(u"again"_s, u"t"_s); }), OperatorAbort::eNoTerminal);
    EXPECT_FALSE(c.text().contains(u"again"_s));
    EXPECT_EQ(op.promptsShown(), 1);
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
                  OperatorAbort::eEndOfInput);
    }
    std::fclose(in);
    std::fclose(out);
}

TEST(TerminalOperator, AWaitEndsTheRunWhenThePortHasGoneAway)
{
    Captured c;
    TerminalOperator op(c.console, true);
    bool gone = false;
    int checks = 0;
    op.setLineCheck(
        [&] {
            ++checks;
            return gone;
        },
        u"/dev/ttyUSB0"_s);
    op.letEventsRun();
    EXPECT_EQ(checks, 1);
    op.setLineCheck(
        [&] {
            ++checks;
            return true;
        },
        u"/dev/ttyUSB0"_s);
    try {
        op.letEventsRun();
        FAIL() << "no abort";
    } catch (const OperatorAbort &e) {
        EXPECT_EQ(e.reason(), OperatorAbort::eLineGone);
        EXPECT_TRUE(e.message().contains(u"/dev/ttyUSB0"_s));
    }
}

} // namespace
