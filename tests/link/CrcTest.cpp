#include "link/cCRC.h"
#include "link/UpdaterError.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

struct CrcCase
{
    const char *text;
    qint32 startVal;
    qint32 expected;
};

class CrcOfText : public ::testing::TestWithParam<CrcCase>
{
};

TEST_P(CrcOfText, MatchesTheXmodemCheckValues)
{
    const CrcCase c = GetParam();
    const QByteArray text(c.text);
    EXPECT_EQ(cCRC::crc16FromString(text, c.startVal), c.expected);
    if (!text.isEmpty()) { // over the same bytes as an array it gives the same value
        EXPECT_EQ(cCRC::crc16(text, 0, qint32(text.size()), c.startVal), c.expected);
    }
}

INSTANTIATE_TEST_SUITE_P(CheckValues, CrcOfText,
                         ::testing::Values(CrcCase {"123456789", 0, 12739},
                                           CrcCase {"KVT", 0, 21300}, CrcCase {"", 0, 0},
                                           CrcCase {"", 4711, 4711}, CrcCase {"A", 0, 0x58E5}));

TEST(Crc, StartValueChainsBlocks)
{
    const QByteArray first("XUX;QJR4");
    const QByteArray second("TW;\xb0\xff", 5);
    const qint32 whole = cCRC::crc16FromString(first + second);
    EXPECT_EQ(cCRC::crc16FromString(second, cCRC::crc16FromString(first)), whole);

    const QByteArray bytes = first + second;
    const qint32 head = cCRC::crc16(bytes, 0, qint32(first.size()));
    EXPECT_EQ(cCRC::crc16(bytes, qint32(first.size()), qint32(second.size()), head), whole);
}

TEST(Crc, BytesAbove127AreUnsigned)
{
    // 0xFF must enter the CRC as 255, not as a sign-extended -1.
    EXPECT_EQ(cCRC::crc16(QByteArray(1, char(0xFF)), 0, 1), 0x1EF0);
}

TEST(Crc, RangeInsideAnArray)
{
    const QByteArray bytes("xx123456789yy");
    EXPECT_EQ(cCRC::crc16(bytes, 2, 9), 12739);
}

TEST(Crc, LengthZeroRunsOffTheArrayAndFailsCleanly)
{
    const QByteArray bytes("123456789");
    EXPECT_THROW(cCRC::crc16(bytes, 0, 0), UpdaterError);
    EXPECT_THROW(cCRC::crc16(bytes, 9, 1), UpdaterError);
    EXPECT_THROW(cCRC::crc16(QByteArray(), 0, 1), UpdaterError);
}

TEST(Crc, AppendCrcToString)
{
    EXPECT_EQ(cCRC::appendCrcToString("KVT"), QByteArray("KVT21300"));
    // No padding: a small CRC keeps its few digits.
    const QByteArray text("XUX;QJR4TW;");
    EXPECT_EQ(cCRC::appendCrcToString(text),
              text + QByteArray::number(cCRC::crc16FromString(text)));
}

} // namespace
