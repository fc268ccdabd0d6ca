#include "FirmwareImage.h"
#include "SimDriver.h"

#include <gtest/gtest.h>

namespace {

// Each good text parses, and its text form parses back to the same text; each bad one says what
// is wrong.
TEST(SimFaultText, ParsesEveryActionAndSaysWhatIsWrong)
{
    const std::pair<const char *, const char *> rows[] = {
        {"answer text=\"E;13\" telegram=DHR;4", ""},
        {"answer text=\"\\x15garbage\\r\\n\" nth=3 count=ever", ""},
        {"nak packet=5 count=2", ""},
        {"drop dir=in byte=140 count=3", ""},
        {"corrupt dir=out byte=1", ""},
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
    for (const auto &[text, says] : rows) {
        const auto parsed = FaultRule::parse(QString::fromLatin1(text));
        ASSERT_EQ(parsed.ok, !*says) << text << ": " << parsed.error.toStdString();
        EXPECT_TRUE(parsed.error.contains(QString::fromLatin1(says))) << text;
        const auto again = FaultRule::parse(QString::fromLatin1(parsed.rule.toText()));
        EXPECT_TRUE(!parsed.ok || again.rule.toText() == parsed.rule.toText()) << text;
    }
    EXPECT_EQ(FaultRule::parse(QStringLiteral("answer text=\"a b\\x7F\"")).rule.text, "a b\x7F");
}

// Each row adds one rule (which its text form gives again) to a fresh instrument and talks to it
// (see SimDriver::talk).
TEST(SimFaults, TelegramRulesDoWhatTheySay)
{
    const std::pair<const char *, QByteArray> rows[] = {
        {"silent telegram=KVT count=2", "KVT= SER=SER;42 KVT= KVT=KVT;VARIMOsentry;2.00;15"},
        {"silent telegram=DHR;2", "DHR;2= KVT=KVT;VARIMOsentry;2.00;15"}, // not taken
        {"answer text=E;13 telegram=DHR;4", "DHR;4=E;13 KVT=KVT;VARIMOsentry;2.00;15"},
        {"answer text=E;20 nth=2 count=2",
         "KVT=KVT;VARIMOsentry;2.00;15 SER=E;20 KEY;0=E;20 KEY;1"},
        {"answer text=\"\\x80\\x81;garbage\"", "SER=\x80\x81;garbage"},
        {"drop dir=in byte=2", "KVT=E;10 KVT=KVT;VARIMOsentry;2.00;15"}, // "KT"
        {"corrupt dir=out byte=1 count=2", "SER=\xAC\xBAR;42 SER=SER;42"},
        {"silent", "KVT= SER="},
        {"silent at=1000 for=2000", "SER=SER;42 @1000 SER= @1000 SER=SER;42"},
        // The adapter goes after the answer, and nothing passes until it is plugged in again.
        {"unplug nth=2",
         "KVT=KVT;VARIMOsentry;2.00;15 SER=SER;42 @10 SER= close open= !plug open "
         "SER=SER;42"},
    };
    for (const auto &[rule, script] : rows) {
        SimDriver sim;
        const auto parsed = FaultRule::parse(QString::fromLatin1(rule));
        ASSERT_TRUE(parsed.ok) << parsed.error.toStdString();
        EXPECT_EQ(FaultRule::parse(QString::fromLatin1(parsed.rule.toText())).rule.toText(),
                  parsed.rule.toText());
        sim.instrument().addFault(parsed.rule);
        EXPECT_EQ(sim.talk(script), "") << rule;
    }
}

// Rules on blocks: a refused packet (each block tried up to three times), the adapter pulled.
TEST(SimFaults, PacketRulesDoWhatTheySay)
{
    const QByteArray image = FirmwareImage::make(BoardKind::Main, "1.03", "8").left(4 * 128);
    const std::pair<FaultRule, QByteArray> rows[] = {
        {FaultRule::nakPacket(3, 2), "\x06|\x06|\x15\x15\x06|\x06|"},
        {FaultRule::unplugAfterPacket(2), QByteArray("\x06|\x06|\0\0\0|\0\0\0|", 12)},
    };
    for (const auto &[rule, answers] : rows) {
        SimDriver sim;
        sim.instrument().addFault(rule);
        ASSERT_EQ(sim.talk("DHR;4 BOT;$"), "");
        sim.readFor(2000);
        QByteArray got;
        for (qsizetype at = 0, n = 1; at < image.size(); at += 128, ++n) {
            for (int i = 0; i < 3 && !got.endsWith('\x06'); ++i) {
                sim.write(xmodemBlock(quint8(n), image.mid(at, 128)));
                const QByteArray answer = sim.readFor(100);
                got += answer.isEmpty() ? QByteArray(1, '\0') : answer;
            }
            got += '|';
        }
        EXPECT_EQ(got, answers);
    }
}

} // namespace
