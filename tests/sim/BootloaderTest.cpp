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

TEST(SimFlash, PeripheralBoardsRunAGoodImageAndAskAgainAfterABrokenTransfer)
{
    SimDriver sim;
    const QByteArray otherBoards = sim.instrument().parameter(BoardKind::Meas, "HVO");
    enterBootloader(sim);
    EXPECT_EQ(sendBlocks(sim, xmodemBlocks(kMainImage)), QByteArray(113, char(0x06)));
    EXPECT_EQ(sim.instrument().lastImage(BoardKind::Main), kMainImage);
    // Silent while restarting; then factory values, but read-only ones stay.
    EXPECT_EQ(sim.talk("KVT=", sim.instrument().timing().restartDelayMs / 2), "");
    sim.readFor(sim.instrument().timing().restartDelayMs);
    EXPECT_EQ(sim.talk("KVT=KVT;Vm2PS;1.03;8 CH=CH;10.0 SER=SER;42"), "");
    EXPECT_EQ(sim.instrument().parameter(BoardKind::Meas, "HVO"), otherBoards);

    // The Measuring Module's sender gives up: after the idle time the board asks again; switched
    // off and on it starts its bootloader, silent until its bootloader side is selected.
    SimDriver meas;
    enterBootloader(meas, "DHR;3", "BLMM;1");
    meas.write(xmodemBlock(1, kMainImage.left(128)));
    EXPECT_EQ(meas.readFor(100), kAck);
    EXPECT_TRUE(meas.readFor(meas.instrument().timing().receiveIdleTimeoutMs + 1500).endsWith('C'));
    EXPECT_EQ(meas.talk("!reset-zero !power @1000 DHR;1 KVT= DHR;3"), "");
    EXPECT_EQ(meas.readFor(3000), "CCC");
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
    EXPECT_EQ(sendBlocks(sim, xmodemBlocks(image)), QByteArray(8064 + 1, char(0x06)));
    sim.readFor(sim.instrument().timing().restartDelayMs + 10);
    EXPECT_EQ(sim.talk("KVT=KVT;VARIMOsentry;2.01;17 DUV;0=DUV;0;0;" +
                       QByteArray::number(cCRC::crc16FromString("DUV;0;0;"))),
              "");
}

// Each row sends its blocks, then the EOT (see sendImage); a bad block is refused, a repeat kept
// once. A whole image of the board is run; any other is refused, and the board asks again.
TEST(SimFlash, ReceiverRunsOnlyAWholeImageOfItsBoard)
{
    const QByteArray first = xmodemBlock(1, kMainImage.left(128));
    const QByteArray second = xmodemBlock(2, kMainImage.mid(128, 128));
    QByteArray damaged = kMainImage;
    damaged[damaged.size() - 1] = char(~damaged.back());
    const QByteArrayList rest = xmodemBlocks(kMainImage.mid(128), 2);
    const std::tuple<QByteArrayList, QByteArray, bool> rows[] = {
        {QByteArrayList {first, QByteArray(second).replace(50, 1, "\x55")} + rest, kNak, true},
        {QByteArrayList {first, QByteArray(second).replace(2, 1, QByteArray(1, '\0'))} + rest, kNak,
         true},
        {QByteArrayList {first, xmodemBlock(3, QByteArray(128, 'x'))} + rest, kNak, true},
        {QByteArrayList {first, first} + rest, kAck, true},
        {QByteArrayList {first, second.left(100)} + rest, kNak, true}, // the rest after the gap
        {xmodemBlocks(kMainImage.left(kMainImage.size() - 128)), kAck, false},
        {xmodemBlocks(kMainImage + QByteArray(128, '\0')), kAck, false},
        {xmodemBlocks(FirmwareImage::make(BoardKind::Meas, "1.21", "4").left(kMainImage.size())),
         kAck, false},
        {xmodemBlocks(QByteArray(kMainImage.size(), '\0')), kAck, false},
        {xmodemBlocks(damaged), kAck, false},
    };
    for (const auto &[sent, refused, runs] : rows) {
        SimDriver sim;
        enterBootloader(sim);
        QByteArray answers(sent.size() + 1, char(0x06));
        answers[1] = refused[0];
        EXPECT_EQ(sendBlocks(sim, sent), answers);
        const BoardState &main = sim.instrument().board(BoardKind::Main);
        EXPECT_EQ(main.imageValid, runs);
        EXPECT_EQ(main.firmware, runs ? "1.03" : "1.02");
        EXPECT_TRUE(!runs || sim.instrument().lastImage(BoardKind::Main) == kMainImage);
        EXPECT_EQ(sim.readFor(3000).count('C'), runs ? 0 : 3);
    }
}

} // namespace
