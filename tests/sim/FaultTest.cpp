#include "FirmwareImage.h"
#include "SimDriver.h"

#include <gtest/gtest.h>

namespace {

// The simulator's text inputs: fault rules, and state files (starting with "{" or "["). Each bad
// one says what is wrong. (That what parses gives the same text again is the fuzz target's.)
TEST(SimTexts, BadRulesAndStateFilesSayWhatIsWrong)
{
    const std::pair<const char *, const char *> rows[] = {
        {"answer text=\"E;13\" telegram=DHR;4", ""},
        {"answer text=\"\\x15garbage\\r\\n\" nth=3 count=ever", ""},
        {"unplug telegram=BOT;$", ""},
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
        {"{}", ""}, // everything missing: the default instrument
        {"{", "not JSON"},
        {"[]", "not an object"},
        {R"({"serialNumber": 40000})", "serialNumber"},
        {R"({"route": 7})", "route"},
        {R"({"boards": {"gpu": {}}})", "boards.gpu"},
        {R"({"boards": {"main": {"values": {"XYZ": "1"}}}})", "XYZ is not a parameter"},
        {R"({"boards": {"cpu": {"mode": "bootloader-idle"}}})", "boards.cpu.mode"},
        {R"({"boards": {"main": {"mode": "update-mode"}}})", "boards.main.mode"},
        {R"({"boards": {"main": {"values": {"CH": "\u20ac"}}}})", "Latin-1"},
        {R"({"boards": {"main": {"name": 5}}})", "boards.main.name"},
    };
    for (const auto &[text, says] : rows) {
        QString error;
        if (*text == '{' || *text == '[')
            error = StateFile::fromJson(text).error;
        else
            error = FaultRule::parse(QString::fromLatin1(text)).error;
        EXPECT_EQ(error.isEmpty(), !*says) << text << ": " << error.toStdString();
        EXPECT_TRUE(error.contains(QString::fromLatin1(says))) << text;
    }
    EXPECT_EQ(FaultRule::parse(QStringLiteral("answer text=\"a b\\x7F\"")).rule.text, "a b\x7F");
    EXPECT_FALSE(StateFile::load(QStringLiteral("/nonexistent/state.json")).ok);
}

// Each row adds one rule to a fresh instrument and talks to it (see SimDriver::talk).
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
        sim.instrument().addFault(parsed.rule);
        EXPECT_EQ(sim.talk(script), "") << rule;
    }
}

// Rules on blocks (see sendBlocks): a refused packet, the adapter pulled after a packet.
TEST(SimFaults, PacketRulesDoWhatTheySay)
{
    const QByteArrayList blocks =
        xmodemBlocks(FirmwareImage::make(BoardKind::Main, "1.03", "8").left(4 * 128));
    const std::tuple<FaultRule, QByteArrayList, QByteArray> rows[] = {
        {FaultRule::nakPacket(3, 2), blocks.mid(0, 3) + blocks.mid(2, 1) + blocks.mid(2),
         "\x06\x06\x15\x15\x06\x06\x06"},
        {FaultRule::unplugAfterPacket(2), blocks, QByteArray("\x06\x06\0\0\0", 5)},
    };
    for (const auto &[rule, sent, answers] : rows) {
        SimDriver sim;
        sim.instrument().addFault(rule);
        ASSERT_EQ(sim.talk("DHR;4 BOT;$"), "");
        sim.readFor(2000);
        EXPECT_EQ(sendBlocks(sim, sent), answers);
    }
}

} // namespace
