#include "FirmwareImage.h"
#include "ParameterCatalog.h"
#include "SimDriver.h"
#include "link/cCRC.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

namespace {

const QByteArray kAck(1, char(0x06));
const QByteArray kNak(1, char(0x15));

InstrumentState withMode(BoardKind kind, BoardMode mode, bool imageValid = true, int route = 0)
{
    InstrumentState state = InstrumentState::defaults();
    state.board(kind).mode = mode;
    state.board(kind).imageValid = imageValid;
    state.route = route;
    return state;
}

// Brings the Main Board into its bootloader the way the updater does and reads its requests.
void enterMainBootloader(SimDriver &sim)
{
    ASSERT_EQ(sim.ask("DHR;4"), "DHR;4");
    sim.write("BOT;$\r\n");
    const QByteArray got = sim.readFor(4000);
    ASSERT_TRUE(got.startsWith("BOT;$\r\nBLSP;1\r\nC")) << got.data();
}

TEST(SimFlash, MainBoardTakesAnImageRestartsIntoItAndForgetsItsParameters)
{
    SimDriver sim;
    const SimTiming timing = sim.instrument().timing();
    enterMainBootloader(sim);
    const QByteArray image = FirmwareImage::make(BoardKind::Main, "1.03", "8");

    const QByteArray answers = sendImage(sim, image);
    EXPECT_EQ(answers, QByteArray(113, char(0x06)));
    EXPECT_EQ(sim.instrument().lastImage(BoardKind::Main), image);
    EXPECT_EQ(sim.ask("KVT", timing.restartDelayMs / 2), ""); // restarting
    sim.readFor(timing.restartDelayMs);
    EXPECT_EQ(sim.ask("KVT"), "KVT;Vm2PS;1.03;8");
    EXPECT_EQ(sim.ask("CH"), "CH;10.0"); // factory value
    EXPECT_EQ(sim.ask("SER"), "SER;42"); // read-only values stay
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Meas, "HVO"),
              "850"); // other boards keep theirs
}

TEST(SimFlash, CpuBoardUpdateModeTakesItsImageAndRestartsAtItself)
{
    SimDriver sim;
    sim.ask("DHR;2");
    sim.instrument().press(PanelKey::ResetZero);
    sim.instrument().press(PanelKey::UpdateMode);
    EXPECT_EQ(sim.readFor(1000), "KVT;BLCPU;1\r\n");
    EXPECT_EQ(sim.ask("KVT"), "KVT;BLCPU;1");
    EXPECT_EQ(sim.ask("DHR;0"), "DHR;0");
    EXPECT_EQ(sim.readFor(1000), "KVT;BLCPU;1\r\n");
    sim.write("F\r\n");
    EXPECT_EQ(sim.readFor(2500), "CCC"); // the first soon, then one a second
    EXPECT_EQ(sim.ask("DHR;0"), "C"); // text is ignored now

    const QByteArray image = FirmwareImage::make(BoardKind::Cpu, "2.01", "17");
    EXPECT_EQ(sendImage(sim, image), QByteArray(8064 + 1, char(0x06)));
    sim.readFor(sim.instrument().timing().restartDelayMs + 10);
    EXPECT_EQ(sim.ask("KVT"), "KVT;VARIMOsentry;2.01;17");
    EXPECT_EQ(sim.ask("DUV;0"), "DUV;0;0;" + QByteArray::number(cCRC::crc16FromString("DUV;0;0;")));
}

struct BadBlock
{
    const char *what;
    std::function<QByteArray(const QByteArray &block2)> mangle;
    QByteArray answer;
};

TEST(SimFlash, ReceiverRefusesBadBlocksAndKeepsARepeatOnce)
{
    const QByteArray image = FirmwareImage::make(BoardKind::Main, "1.03", "8");
    const QByteArray first = xmodemBlock(1, image.left(128));
    const QByteArray second = xmodemBlock(2, image.mid(128, 128));
    const BadBlock cases[] = {
        {"CRC", [](QByteArray b) { return b.replace(50, 1, "\x55"); }, kNak},
        {"complement", [](QByteArray b) { return b.replace(2, 1, "\x00"); }, kNak},
        {"number", [](const QByteArray &) { return xmodemBlock(3, QByteArray(128, 'x')); }, kNak},
        {"repeat", [&](const QByteArray &) { return first; }, kAck},
    };
    for (const BadBlock &c : cases) {
        SCOPED_TRACE(c.what);
        SimDriver sim;
        enterMainBootloader(sim);
        sim.write(first);
        ASSERT_EQ(sim.readUntil(kAck, 1000).right(1), kAck);
        sim.write(c.mangle(second));
        EXPECT_EQ(sim.readFor(1000), c.answer);
        // The transfer goes on with block 2 and ends with the exact image.
        for (qsizetype at = 128, n = 2; at < image.size(); at += 128, ++n) {
            sim.write(xmodemBlock(quint8(n), image.mid(at, 128)));
            ASSERT_EQ(sim.readUntil(kAck, 1000), kAck) << n;
        }
        sim.write("\x04");
        EXPECT_EQ(sim.readFor(100), kAck);
        EXPECT_EQ(sim.instrument().lastImage(BoardKind::Main), image);
    }
}

TEST(SimFlash, ImageOfTheWrongSizeOrBoardIsRefusedAndTheBoardAsksAgain)
{
    const QByteArray good = FirmwareImage::make(BoardKind::Main, "1.03", "8");
    const QByteArray images[] = {
        good.left(good.size() - 128), good + QByteArray(128, '\0'),
        FirmwareImage::make(BoardKind::Meas, "1.21", "4").left(good.size()),
        QByteArray(good.size(), '\0')};
    for (const QByteArray &image : images) {
        SimDriver sim;
        enterMainBootloader(sim);
        const QByteArray answers = sendImage(sim, image);
        EXPECT_EQ(answers.back(), char(0x06)); // EOT is acknowledged
        EXPECT_EQ(sim.readFor(3000).count('C'), 3); // back to asking
        EXPECT_FALSE(sim.instrument().state().board(BoardKind::Main).imageValid);
        EXPECT_EQ(sim.instrument().state().board(BoardKind::Main).firmware, "1.02");
    }
}

TEST(SimFlash, PartialBlockIsRefusedAfterTheGapAndABrokenTransferLeavesNoImage)
{
    SimDriver sim;
    const SimTiming timing = sim.instrument().timing();
    enterMainBootloader(sim);
    const QByteArray image = FirmwareImage::make(BoardKind::Main, "1.03", "8");
    sim.write(xmodemBlock(1, image.left(128)).left(100));
    EXPECT_EQ(sim.readFor(timing.blockGapTimeoutMs + 100), kNak);
    sim.write(xmodemBlock(1, image.left(128)));
    EXPECT_EQ(sim.readFor(100), kAck);
    // The sender gives up: after the idle time the board asks again; switched off and on it
    // starts its bootloader, silent until its bootloader side is selected.
    EXPECT_TRUE(sim.readFor(timing.receiveIdleTimeoutMs + 1500).endsWith('C'));
    sim.instrument().press(PanelKey::ResetZero);
    sim.instrument().press(PanelKey::Power);
    sim.readFor(timing.bootTimeMs);
    EXPECT_EQ(sim.ask("DHR;2"), "DHR;2");
    EXPECT_EQ(sim.ask("KVT"), "");
    EXPECT_EQ(sim.ask("DHR;4"), "DHR;4");
    EXPECT_EQ(sim.readFor(3000), "CCC");
}

TEST(SimFlash, CpuBootloaderLeftWaitingAnswersE1ToAllButF)
{
    SimDriver sim(withMode(BoardKind::Cpu, BoardMode::Requesting));
    const QByteArray image = FirmwareImage::make(BoardKind::Cpu, "2.01", "17");
    sim.readUntil("C", 1000);
    sim.write(xmodemBlock(1, image.left(128)));
    EXPECT_EQ(sim.readUntil(kAck, 1000), kAck);
    sim.readFor(sim.instrument().timing().receiveIdleTimeoutMs + 100);
    for (const char *t : {"DHR;0", "KVT", "SER"})
        EXPECT_EQ(sim.ask(t), "E;1") << t;
    sim.instrument().press(PanelKey::ResetZero);
    sim.instrument().press(PanelKey::Power);
    sim.readFor(sim.instrument().timing().bootTimeMs);
    EXPECT_EQ(sim.ask("DHR;0"), "E;1"); // no image: the bootloader again, waiting
    sim.write("F\r\n");
    EXPECT_EQ(sim.readFor(1500), "CC");
}

// What the updater's board identification keys off, for each state a board can be found in.
TEST(SimIdentification, EveryStateGivesItsAnswer)
{
    { // CPU Board in update mode: the identity is the bootloader's; F starts the requests.
        SimDriver sim(withMode(BoardKind::Cpu, BoardMode::UpdateMode));
        EXPECT_EQ(sim.ask("DHR;0"), "DHR;0");
        EXPECT_EQ(sim.ask("KVT"), "KVT;BLCPU;1");
        EXPECT_EQ(sim.ask("F"), "C");
        EXPECT_EQ(sim.ask("DHR;0"), "C");
        EXPECT_EQ(sim.ask("KVT"), "C");
    }
    { // CPU bootloader requesting: any telegram gets a "C" within a read.
        SimDriver sim(withMode(BoardKind::Cpu, BoardMode::Requesting));
        EXPECT_EQ(sim.ask("DHR;0"), "C");
        EXPECT_TRUE(sim.ask("KVT").endsWith('C'));
    }
    { // CPU bootloader waiting: E;1 twice, then the probe F finds it within 3 s.
        SimDriver sim(withMode(BoardKind::Cpu, BoardMode::Waiting, false));
        EXPECT_EQ(sim.ask("DHR;0"), "E;1");
        EXPECT_EQ(sim.ask("KVT"), "E;1");
        sim.write("F\r\n");
        EXPECT_TRUE(sim.readFor(3000).contains('C'));
    }
    { // Measuring Module requesting: its "C" comes through the application side too.
        SimDriver sim(withMode(BoardKind::Meas, BoardMode::Requesting, true, 1));
        EXPECT_EQ(sim.ask("DHR;1").left(5), "DHR;1");
        EXPECT_TRUE(sim.ask("KVT").endsWith('C'));
    }
    { // Measuring Module without an image after switching on: silent; the probe DHR;3 wakes it.
        SimDriver sim(withMode(BoardKind::Meas, BoardMode::Idle, false));
        EXPECT_EQ(sim.ask("DHR;1"), "DHR;1");
        EXPECT_EQ(sim.ask("KVT"), "");
        sim.write("DHR;3\r\n");
        EXPECT_TRUE(sim.readFor(3000).contains('C'));
    }
    { // A Main Board whose identity lacks "Vm2PS".
        InstrumentState state = InstrumentState::defaults();
        state.board(BoardKind::Main).name = "Vm2MM";
        SimDriver sim(state);
        sim.ask("DHR;2");
        EXPECT_FALSE(sim.ask("KVT").contains("Vm2PS"));
    }
}

// What the updater's bootloader start keys off: each way a board can be brought to asking "C".
TEST(SimBootloaderStart, EveryPathIsReachable)
{
    { // Already running: "C" arrives without any telegram.
        SimDriver sim(withMode(BoardKind::Main, BoardMode::Requesting, true, 4));
        EXPECT_TRUE(sim.readFor(5000).endsWith('C'));
    }
    { // CPU Board waiting: E;1 to the select, F, then the select is answered with "C".
        SimDriver sim(withMode(BoardKind::Cpu, BoardMode::Waiting, false));
        EXPECT_EQ(sim.ask("DHR;0"), "E;1");
        sim.write("F\r\n");
        EXPECT_EQ(sim.ask("DHR;0"), "C");
    }
    { // CPU Board running: echo and silence; the keys bring the announcement; F the requests.
        SimDriver sim;
        EXPECT_EQ(sim.ask("DHR;0"), "DHR;0");
        EXPECT_EQ(sim.readFor(3000), "");
        sim.instrument().press(PanelKey::ResetZero);
        sim.instrument().press(PanelKey::UpdateMode);
        EXPECT_EQ(sim.readUntil("\r\n", 2000), "KVT;BLCPU;1\r\n");
        sim.write("F\r\n");
        EXPECT_TRUE(sim.readFor(2000).contains('C'));
    }
    { // Measuring Module: BOT;$ through the bootloader side, announcement and requests.
        SimDriver sim;
        EXPECT_EQ(sim.ask("DHR;3"), "DHR;3");
        sim.write("BOT;$\r\n");
        const QByteArray got = sim.readFor(4000);
        EXPECT_TRUE(got.contains("BLMM;1") && got.contains('C')) << got.data();
        EXPECT_TRUE(sim.readFor(2000).contains('C'));
    }
    { // A board that does not jump: neither "C" nor the announcement.
        SimDriver sim;
        sim.instrument().addFault(FaultRule::ignoreTelegram("BOT;$", FaultRule::kForever));
        EXPECT_EQ(sim.ask("DHR;4"), "DHR;4");
        sim.write("BOT;$\r\n");
        EXPECT_EQ(sim.readFor(6000), "");
    }
}

TEST(SimFirmwareImage, FilesMatchTheDefaultPatternsAndSizes)
{
    const QRegularExpression patterns[] = {
        QRegularExpression(QStringLiteral("^FW_CPU-BOARD_V201-017_CRC\\d+\\.bin$")),
        QRegularExpression(QStringLiteral("^FW_MESSMODUL_121-4_CRC\\d+\\.bin$")),
        QRegularExpression(QStringLiteral("^FW_MAINBOARD_103_CRC\\d+\\.bin$")),
    };
    for (BoardKind kind : kAllBoards) {
        const FirmwareImage::Version v = FirmwareImage::defaultNewVersion(kind);
        const QByteArray image = FirmwareImage::make(kind, v.firmware, v.build);
        EXPECT_EQ(image.size(), imagePackets(kind) * 128);
        const QString name = FirmwareImage::fileName(kind, v.firmware, v.build, image);
        EXPECT_TRUE(patterns[boardIndex(kind)].match(name).hasMatch()) << name.toStdString();
        FirmwareImage::Header header;
        ASSERT_TRUE(FirmwareImage::parse(image, kind, &header));
        EXPECT_EQ(header.firmware, v.firmware);
        QByteArray damaged = image;
        damaged[damaged.size() - 1] = char(~damaged.back());
        EXPECT_FALSE(FirmwareImage::parse(damaged, kind, &header));
    }
}

} // namespace
