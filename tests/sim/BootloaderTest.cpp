#include "FirmwareImage.h"
#include "SimDriver.h"
#include "link/cCRC.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

namespace {

const QByteArray kAck(1, char(0x06));
const QByteArray kNak(1, char(0x15));
const QByteArray kMainImage = FirmwareImage::make(BoardKind::Main, "1.03", "8");

InstrumentState withMode(BoardKind kind, BoardMode mode, int route = 0)
{
    InstrumentState state = InstrumentState::defaults();
    state.board(kind).mode = mode;
    state.route = route;
    return state;
}

// Brings a board into its bootloader the way the updater does ("BOT;$" through its bootloader
// side) and reads its announcement and first request.
void enterBootloader(SimDriver &sim, const char *select = "DHR;4", const char *says = "BLSP;1")
{
    ASSERT_EQ(sim.ask(select), select);
    sim.write("BOT;$\r\n");
    const QByteArray got = sim.readFor(4000);
    ASSERT_TRUE(got.startsWith("BOT;$\r\n" + QByteArray(says) + "\r\nC")) << got.data();
}

TEST(SimFlash, MainBoardTakesAnImageRestartsIntoItAndForgetsItsParameters)
{
    SimDriver sim;
    const SimTiming timing = sim.instrument().timing();
    enterBootloader(sim);
    EXPECT_EQ(sendImage(sim, kMainImage), QByteArray(113, char(0x06)));
    EXPECT_EQ(sim.instrument().lastImage(BoardKind::Main), kMainImage);
    EXPECT_EQ(sim.talk("KVT=", timing.restartDelayMs / 2), ""); // restarting
    sim.readFor(timing.restartDelayMs);
    // Factory values, but read-only ones stay.
    EXPECT_EQ(sim.talk("KVT=KVT;Vm2PS;1.03;8 CH=CH;10.0 SER=SER;42"), "");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Meas, "HVO"), "850"); // another board's
}

TEST(SimFlash, MeasuringModuleAnnouncesItsBootloaderThroughItsBootloaderSide)
{
    SimDriver sim;
    enterBootloader(sim, "DHR;3", "BLMM;1");
}

TEST(SimFlash, CpuBoardUpdateModeTakesItsImageAndRestartsAtItself)
{
    SimDriver sim;
    sim.ask("DHR;2");
    EXPECT_EQ(sim.readFor(3000), ""); // the running board says nothing unasked
    sim.instrument().press(PanelKey::ResetZero);
    sim.instrument().press(PanelKey::UpdateMode);
    EXPECT_EQ(sim.readFor(1000), "KVT;BLCPU;1\r\n");
    EXPECT_EQ(sim.talk("KVT=KVT;BLCPU;1 DHR;0"), "");
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

TEST(SimFlash, ReceiverRefusesBadBlocksAndKeepsARepeatOnce)
{
    const QByteArray first = xmodemBlock(1, kMainImage.left(128));
    const QByteArray second = xmodemBlock(2, kMainImage.mid(128, 128));
    const std::pair<QByteArray, QByteArray> cases[] = {
        {QByteArray(second).replace(50, 1, "\x55"), kNak}, // CRC
        {QByteArray(second).replace(2, 1, QByteArray(1, '\0')), kNak}, // complement
        {xmodemBlock(3, QByteArray(128, 'x')), kNak}, // number
        {first, kAck}, // a repeat
    };
    for (const auto &[block, answer] : cases) {
        SimDriver sim;
        enterBootloader(sim);
        sim.write(first);
        ASSERT_EQ(sim.readUntil(kAck, 1000).right(1), kAck);
        sim.write(block);
        EXPECT_EQ(sim.readFor(1000), answer);
        // The transfer goes on with block 2 and ends with the exact image.
        EXPECT_EQ(sendImage(sim, kMainImage.mid(128), 2), QByteArray(112, char(0x06)));
        EXPECT_EQ(sim.instrument().lastImage(BoardKind::Main), kMainImage);
    }
}

TEST(SimFlash, ImageOfTheWrongSizeOrBoardIsRefusedAndTheBoardAsksAgain)
{
    QByteArray damaged = kMainImage;
    damaged[damaged.size() - 1] = char(~damaged.back());
    const QByteArray images[] = {
        kMainImage.left(kMainImage.size() - 128), kMainImage + QByteArray(128, '\0'),
        FirmwareImage::make(BoardKind::Meas, "1.21", "4").left(kMainImage.size()),
        QByteArray(kMainImage.size(), '\0'), damaged};
    for (const QByteArray &image : images) {
        SimDriver sim;
        enterBootloader(sim);
        EXPECT_EQ(sendImage(sim, image).back(), char(0x06)); // EOT is acknowledged
        EXPECT_EQ(sim.readFor(3000).count('C'), 3); // back to asking
        EXPECT_FALSE(sim.instrument().state().board(BoardKind::Main).imageValid);
        EXPECT_EQ(sim.instrument().state().board(BoardKind::Main).firmware, "1.02");
    }
}

TEST(SimFlash, PartialBlockIsRefusedAfterTheGapAndABrokenTransferLeavesNoImage)
{
    SimDriver sim;
    const SimTiming timing = sim.instrument().timing();
    enterBootloader(sim);
    sim.write(xmodemBlock(1, kMainImage.left(128)).left(100));
    EXPECT_EQ(sim.readFor(timing.blockGapTimeoutMs + 100), kNak);
    sim.write(xmodemBlock(1, kMainImage.left(128)));
    EXPECT_EQ(sim.readFor(100), kAck);
    // The sender gives up: after the idle time the board asks again; switched off and on it
    // starts its bootloader, silent until its bootloader side is selected.
    EXPECT_TRUE(sim.readFor(timing.receiveIdleTimeoutMs + 1500).endsWith('C'));
    sim.instrument().press(PanelKey::ResetZero);
    sim.instrument().press(PanelKey::Power);
    sim.readFor(timing.bootTimeMs);
    EXPECT_EQ(sim.talk("DHR;2 KVT= DHR;4"), "");
    EXPECT_EQ(sim.readFor(3000), "CCC");
}

TEST(SimFlash, CpuBootloaderLeftWaitingAnswersE1ToAllButF)
{
    SimDriver sim(withMode(BoardKind::Cpu, BoardMode::Requesting));
    sim.readUntil("C", 1000);
    sim.write(xmodemBlock(1, FirmwareImage::make(BoardKind::Cpu, "2.01", "17").left(128)));
    EXPECT_EQ(sim.readUntil(kAck, 1000), kAck);
    sim.readFor(sim.instrument().timing().receiveIdleTimeoutMs + 100);
    EXPECT_EQ(sim.talk("DHR;0=E;1 KVT=E;1 SER=E;1"), "");
    sim.instrument().press(PanelKey::ResetZero);
    sim.instrument().press(PanelKey::Power);
    sim.readFor(sim.instrument().timing().bootTimeMs);
    EXPECT_EQ(sim.talk("DHR;0=E;1"), ""); // no image: the bootloader again, waiting
    sim.write("F\r\n");
    EXPECT_EQ(sim.readFor(1500), "CC");
}

// What the updater's board identification keys off, for the states a board is found in that no
// transfer above leaves it in.
TEST(SimIdentification, EveryStateGivesItsAnswer)
{
    const std::pair<InstrumentState, const char *> cases[] = {
        // CPU Board in update mode: the identity is the bootloader's; F starts the requests.
        {withMode(BoardKind::Cpu, BoardMode::UpdateMode),
         "DHR;0 KVT=KVT;BLCPU;1 F=C DHR;0=C KVT=C"},
        // CPU bootloader requesting: any telegram gets a "C" within a read.
        {withMode(BoardKind::Cpu, BoardMode::Requesting), "DHR;0=C KVT=C"},
        // Measuring Module requesting: its "C" comes through the application side too.
        {withMode(BoardKind::Meas, BoardMode::Requesting, 1), "DHR;1 KVT=C"},
    };
    for (const auto &[state, script] : cases)
        EXPECT_EQ(SimDriver(state).talk(script), "") << script;
}

// The images' sizes and headers are what the flashes above take.
TEST(SimFirmwareImage, FileNamesMatchTheDefaultPatterns)
{
    const char *patterns[] = {"^FW_CPU-BOARD_V201-017_CRC\\d+\\.bin$",
                              "^FW_MESSMODUL_121-4_CRC\\d+\\.bin$",
                              "^FW_MAINBOARD_103_CRC\\d+\\.bin$"};
    for (BoardKind kind : kAllBoards) {
        const FirmwareImage::Version v = FirmwareImage::defaultNewVersion(kind);
        const QString name = FirmwareImage::fileName(
            kind, v.firmware, v.build, FirmwareImage::make(kind, v.firmware, v.build));
        EXPECT_TRUE(QRegularExpression(QString::fromLatin1(patterns[boardIndex(kind)]))
                        .match(name)
                        .hasMatch())
            << name.toStdString();
    }
}

} // namespace
