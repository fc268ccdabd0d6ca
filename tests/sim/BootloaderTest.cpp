#include "FirmwareImage.h"
#include "SimDriver.h"
#include "link/cCRC.h"

#include <gtest/gtest.h>

namespace {

const QByteArray kAck(1, char(0x06));
const QByteArray kNak(1, char(0x15));
const QByteArray kMainImage = FirmwareImage::make(BoardKind::Main, "1.03", "8");

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
    const QByteArray otherBoards = sim.instrument().parameter(BoardKind::Meas, "HVO");
    enterBootloader(sim);
    EXPECT_EQ(sendImage(sim, kMainImage), QByteArray(113, char(0x06)));
    EXPECT_EQ(sim.instrument().lastImage(BoardKind::Main), kMainImage);
    // Silent while restarting; then factory values, but read-only ones stay.
    EXPECT_EQ(sim.talk("KVT=", sim.instrument().timing().restartDelayMs / 2), "");
    sim.readFor(sim.instrument().timing().restartDelayMs);
    EXPECT_EQ(sim.talk("KVT=KVT;Vm2PS;1.03;8 CH=CH;10.0 SER=SER;42"), "");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Meas, "HVO"), otherBoards);

    SimDriver meas;
    enterBootloader(meas, "DHR;3", "BLMM;1");
}

TEST(SimFlash, CpuBoardUpdateModeTakesItsImageAndRestartsAtItself)
{
    SimDriver sim;
    sim.ask("DHR;2");
    EXPECT_EQ(sim.readFor(3000), ""); // the running board says nothing unasked
    EXPECT_EQ(sim.talk("!reset-zero !update-mode"), "");
    EXPECT_EQ(sim.readFor(1000), "KVT;BLCPU;1\r\n");
    EXPECT_EQ(sim.talk("KVT=KVT;BLCPU;1 DHR;0"), "");
    EXPECT_EQ(sim.readFor(1000), "KVT;BLCPU;1\r\n");
    sim.write("F\r\n");
    EXPECT_EQ(sim.readFor(2500), "CCC"); // the first soon, then one a second
    EXPECT_EQ(sim.ask("DHR;0"), "C"); // text is ignored now

    const QByteArray image = FirmwareImage::make(BoardKind::Cpu, "2.01", "17");
    EXPECT_EQ(sendImage(sim, image), QByteArray(8064 + 1, char(0x06)));
    sim.readFor(sim.instrument().timing().restartDelayMs + 10);
    EXPECT_EQ(sim.talk("KVT=KVT;VARIMOsentry;2.01;17 DUV;0=DUV;0;0;" +
                       QByteArray::number(cCRC::crc16FromString("DUV;0;0;"))),
              "");

    // Left waiting after a broken transfer, the CPU bootloader answers E;1 to all but F, also
    // after a restart without an image.
    InstrumentState requesting = InstrumentState::defaults();
    requesting.board(BoardKind::Cpu).mode = BoardMode::Requesting;
    SimDriver left(requesting);
    left.readUntil("C", 1000);
    left.write(xmodemBlock(1, image.left(128)));
    EXPECT_EQ(left.readUntil(kAck, 1000).right(1), kAck);
    left.readFor(left.instrument().timing().receiveIdleTimeoutMs + 100);
    EXPECT_EQ(left.talk("DHR;0=E;1 KVT=E;1 SER=E;1 !reset-zero !power @1000 DHR;0=E;1"), "");
    left.write("F\r\n");
    EXPECT_EQ(left.readFor(1500), "CC");
}

// Each row: block 1 goes in, then the row's block, then the rest of the image from block 2.
TEST(SimFlash, ReceiverRefusesBadBlocksAndKeepsARepeatOnce)
{
    const QByteArray first = xmodemBlock(1, kMainImage.left(128));
    const QByteArray second = xmodemBlock(2, kMainImage.mid(128, 128));
    const std::pair<QByteArray, QByteArray> rows[] = {
        {QByteArray(second).replace(50, 1, "\x55"), kNak}, // CRC
        {QByteArray(second).replace(2, 1, QByteArray(1, '\0')), kNak}, // complement
        {xmodemBlock(3, QByteArray(128, 'x')), kNak}, // number
        {first, kAck}, // a repeat
        {second.left(100), kNak}, // a partial block, after the gap
    };
    for (const auto &[block, answer] : rows) {
        SimDriver sim;
        enterBootloader(sim);
        sim.write(first);
        ASSERT_EQ(sim.readUntil(kAck, 1000).right(1), kAck);
        sim.write(block);
        EXPECT_EQ(sim.readFor(sim.instrument().timing().blockGapTimeoutMs + 100), answer);
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

// The sender gives up: after the idle time the board asks again; switched off and on it starts
// its bootloader, silent until its bootloader side is selected.
TEST(SimFlash, BrokenTransferLeavesTheBoardInItsBootloader)
{
    SimDriver sim;
    enterBootloader(sim);
    sim.write(xmodemBlock(1, kMainImage.left(128)));
    EXPECT_EQ(sim.readFor(100), kAck);
    EXPECT_TRUE(sim.readFor(sim.instrument().timing().receiveIdleTimeoutMs + 1500).endsWith('C'));
    EXPECT_EQ(sim.talk("!reset-zero !power @1000 DHR;2 KVT= DHR;4"), "");
    EXPECT_EQ(sim.readFor(3000), "CCC");
}

} // namespace
