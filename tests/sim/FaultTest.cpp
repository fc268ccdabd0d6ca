#include "FirmwareImage.h"
#include "SimDriver.h"

#include <gtest/gtest.h>

namespace {

// Each good text parses, and its text form parses back to the same text; each bad one says what
// is wrong.
TEST(SimFaultText, ParsesEveryActionAndSaysWhatIsWrong)
{
    const std::pair<const char *, const char *> cases[] = {
        {"silent telegram=KVT count=2", ""},
        {"silent", ""},
        {"silent at=1000 for=2000", ""},
        {"answer text=\"E;13\" telegram=DHR;4", ""},
        {"answer text=\"\\x15garbage\\r\\n\" nth=3 count=ever", ""},
        {"nak packet=5 count=2", ""},
        {"drop dir=in byte=140 count=3", ""},
        {"corrupt dir=out byte=1", ""},
        {"unplug nth=12", ""},
        {"unplug telegram=BOT;$", ""},
        {"unplug packet=50", ""},
        {"", "empty"},
        {"explode", "unknown action"},
        {"answer telegram=KVT", "text="},
        {"nak count=2", "packet="},
        {"drop byte=3", "dir="},
        {"silent telegram=KVT for=100", "either"},
        {"unplug packet=3 nth=2", "either"},
        {"nak packet=0", ">= 1"},
        {"silent count=soon", "number"},
        {"answer text=\"open", "quote"},
        {"answer text=\\x4", "hex"},
        {"nak packet=1 dir=in", "does not go"},
    };
    for (const auto &[text, says] : cases) {
        const auto parsed = FaultRule::parse(QString::fromLatin1(text));
        ASSERT_EQ(parsed.ok, !*says) << text << ": " << parsed.error.toStdString();
        EXPECT_TRUE(parsed.error.contains(QString::fromLatin1(says))) << text;
        const auto again = FaultRule::parse(QString::fromLatin1(parsed.rule.toText()));
        EXPECT_TRUE(!parsed.ok || again.rule.toText() == parsed.rule.toText()) << text;
    }
    EXPECT_EQ(FaultRule::parse(QStringLiteral("answer text=\"a b\\x7F\"")).rule.text, "a b\x7F");
}

// Rules on telegrams: each row adds one rule to a fresh instrument and talks to it.
TEST(SimFaults, TelegramRulesDoWhatTheySay)
{
    const std::pair<const char *, QByteArray> cases[] = {
        {"silent telegram=KVT count=2", "KVT= SER=SER;42 KVT= KVT=KVT;VARIMOsentry;2.00;15"},
        {"silent telegram=DHR;2", "DHR;2= KVT=KVT;VARIMOsentry;2.00;15"}, // not taken
        {"answer text=E;13 telegram=DHR;4", "DHR;4=E;13 KVT=KVT;VARIMOsentry;2.00;15"},
        {"answer text=E;20 nth=2 count=2",
         "KVT=KVT;VARIMOsentry;2.00;15 SER=E;20 KEY;0=E;20 KEY;1"},
        {"answer text=\"\\x80\\x81;garbage\"", "SER=\x80\x81;garbage"},
        {"drop dir=in byte=2", "KVT=E;10 KVT=KVT;VARIMOsentry;2.00;15"}, // "KT"
        {"corrupt dir=out byte=1 count=2", "SER=\xAC\xBAR;42 SER=SER;42"},
        {"silent", "KVT= SER="},
    };
    for (const auto &[rule, script] : cases) {
        SimDriver sim;
        const auto parsed = FaultRule::parse(QString::fromLatin1(rule));
        ASSERT_TRUE(parsed.ok) << parsed.error.toStdString();
        sim.instrument().addFault(parsed.rule);
        EXPECT_EQ(sim.talk(script), "") << rule;
    }
}

TEST(SimFaults, SilenceForATimeEndsOnTime)
{
    SimDriver sim;
    sim.instrument().addFault(FaultRule::silence(1000, 2000));
    EXPECT_EQ(sim.talk("SER=SER;42"), "");
    sim.readFor(1000 - int(sim.now()));
    EXPECT_EQ(sim.talk("SER="), "");
    sim.readFor(3000 - int(sim.now()));
    EXPECT_EQ(sim.talk("SER=SER;42"), "");
}

TEST(SimFaults, NakPacketRefusesThatBlockTheGivenNumberOfTimes)
{
    SimDriver sim;
    sim.instrument().addFault(FaultRule::nakPacket(3, 2));
    sim.ask("DHR;4");
    sim.write("BOT;$\r\n");
    sim.readFor(2000);
    const QByteArray image = FirmwareImage::make(BoardKind::Main, "1.03", "8");
    QByteArray answers;
    for (qsizetype at = 0, n = 1; at < 4 * 128; at += 128, ++n) {
        for (int i = 0; i < 3 && !answers.endsWith('\x06'); ++i) {
            sim.write(xmodemBlock(quint8(n), image.mid(at, 128)));
            answers += sim.readFor(100);
        }
        answers += '|';
    }
    EXPECT_EQ(answers, "\x06|\x06|\x15\x15\x06|\x06|");
}

TEST(SimFaults, UnplugPullsTheAdapterAfterTheAnswer)
{
    SimDriver sim;
    sim.instrument().addFault(FaultRule::unplugAfterTelegram(2));
    EXPECT_EQ(sim.talk("KVT=KVT;VARIMOsentry;2.00;15 SER=SER;42"), "");
    sim.readFor(10);
    EXPECT_FALSE(sim.line().isOpen());
    sim.line().close();
    EXPECT_FALSE(sim.line().open());
    sim.instrument().plug();
    ASSERT_TRUE(sim.line().open());
    EXPECT_EQ(sim.ask("SER"), "SER;42");

    SimDriver flashing;
    flashing.instrument().addFault(FaultRule::unplugAfterPacket(2));
    flashing.ask("DHR;4");
    flashing.write("BOT;$\r\n");
    flashing.readFor(2000);
    const QByteArray image = FirmwareImage::make(BoardKind::Main, "1.03", "8");
    const QByteArray answers = sendImage(flashing, image.left(3 * 128));
    EXPECT_EQ(answers.left(2), "\x06\x06");
    EXPECT_FALSE(flashing.line().isOpen());
}

} // namespace
