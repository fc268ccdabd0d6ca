#pragma once

#include "link/cParser.h"

#include <QByteArray>
#include <functional>
#include <vector>

// The receiving side of XMODEM-CRC, without timing: bytes go in, decisions come out. A block is
// 0x01, number, 255 - number, 128 data bytes, CRC-16 high byte, low byte (CRC over the data).
// A good block with the expected number is kept and acknowledged; a repeat of the previous block
// (its ACK was lost or late) is acknowledged and not kept again; anything else is refused.
// 0x04 ends the transfer, 0x18 cancels it. Other bytes between blocks are text, ignored.
//
// Used by one Bootloader on the instrument's thread.
class XmodemReceiver
{
public:
    static constexpr char kSoh = cParser::kStartOfHeader;
    static constexpr char kEot = cParser::kEndOfTransmission;
    static constexpr char kAck = 0x06;
    static constexpr char kNak = 0x15;
    static constexpr char kCan = 0x18;
    static constexpr int kBlockSize = cParser::kPacketSize;
    static constexpr int kDataSize = cParser::kDataSize;
    static constexpr int kMaxTextSize = 256; // longer text keeps only its end

    struct Event
    {
        enum Type {
            Block, // a new block kept: ACK
            Repeat, // the previous block again: ACK, not kept
            Refused, // bad number, complement or CRC, or refused by the caller: NAK
            EndOfTransmission, // ACK; the transfer is complete
            Cancelled, // the sender cancelled
            Text, // bytes between blocks (a telegram the bootloader does not read)
        };
        Event(Type type, int index = 0, const QByteArray &text = {})
            : type(type)
            , index(index)
            , text(text)
        {
        }

        Type type;
        int index; // Block, Repeat, Refused: 1-based position of the block in the transfer
        QByteArray text; // Refused: why; Text: the bytes
    };

    // Asked before a good new block is kept; true refuses it (fault injection).
    using Veto = std::function<bool(int index)>;

    std::vector<Event> feed(const QByteArray &bytes, const Veto &veto = {});

    // A block began but stopped arriving: drop what came of it (the caller answers NAK).
    void dropPartialBlock() { m_block.clear(); }
    bool hasPartialBlock() const { return !m_block.isEmpty(); }

    bool started() const { return m_blocks > 0 || !m_block.isEmpty(); }
    int blocksKept() const { return m_blocks; }
    const QByteArray &data() const { return m_data; }
    void reset();

private:
    Event checkBlock(const Veto &veto);

    QByteArray m_block; // the block being received
    QByteArray m_text; // text bytes between blocks, up to CR LF
    QByteArray m_data;
    int m_blocks = 0;
};
