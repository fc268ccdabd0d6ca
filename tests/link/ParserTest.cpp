#include "link/UpdaterError.h"
#include "link/cCRC.h"
#include "link/cParser.h"
#include "shell/cLog.h"
#include "support/Files.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <tuple>

using namespace Qt::StringLiterals;

namespace {

TEST(Crc, MatchesTheXmodemCheckValuesOverTextsArraysAndAppendedText)
{
    // 0xFF enters as 255, not sign-extended.
    const std::tuple<QByteArray, qint32, qint32> cases[] = {
        {"123456789", 0, 12739}, {"KVT", 0, 21300}, {"E;1", 0, 2368}, {"A", 0, 0x58E5},
        {"\xff", 0, 0x1EF0},     {"", 0, 0},        {"", 4711, 4711}};
    for (const auto &[text, startVal, expected] : cases) {
        EXPECT_EQ(cCRC::crc16FromString(text, startVal), expected) << text.data();
        if (text.isEmpty())
            continue;
        // Inside a larger array, from lowBound on; appended as its decimal digits, not padded.
        EXPECT_EQ(cCRC::crc16("xx" + text + "yy", 2, qint32(text.size()), startVal), expected);
        EXPECT_EQ(cCRC::appendCrcToString(text), text + QByteArray::number(expected));
        // The start value chains blocks.
        EXPECT_EQ(cCRC::crc16FromString(text.mid(1), cCRC::crc16FromString(text.left(1), startVal)),
                  expected);
    }
    // Length zero runs off the array: refused like any range beyond it.
    EXPECT_THROW(cCRC::crc16("123456789", 0, 0), UpdaterError);
    EXPECT_THROW(cCRC::crc16("123456789", 9, 1), UpdaterError);
    EXPECT_THROW(cCRC::crc16(QByteArray(), 0, 1), UpdaterError);
}

class ParserTest : public ::testing::Test
{
protected:
    QString writeImage(int size)
    {
        QByteArray bytes(size, '\0');
        for (int i = 0; i < size; ++i)
            bytes[i] = char((i * 7 + 3) & 0xFF); // every byte value, high bit included
        image = bytes;
        return writeFile(dir.filePath(u"image%1.bin"_s.arg(size)), bytes);
    }

    // SOH, number, its complement, the 128 data bytes, the CRC high byte first.
    QByteArray packet(quint8 number, const QByteArray &data)
    {
        const qint32 crc = cCRC::crc16FromString(data);
        return QByteArray(1, '\x01') + char(number) + char(255 - number) + data + char(crc >> 8) +
            char(crc & 0xFF);
    }

    QTemporaryDir dir;
    QByteArray image;
    cParser parser;
};

TEST_F(ParserTest, PacketsCarryTheImageAndEndInEotAShortLastOneOverwritesItsLastByte)
{
    EXPECT_EQ(parser.OpenFile(writeImage(256)), 256);
    EXPECT_EQ(parser.GetTelegram(1, 128, 255), packet(255, image.left(128)));
    EXPECT_EQ(parser.GetTelegram(129, 128, 0), packet(0, image.mid(128)));
    EXPECT_EQ(parser.GetTelegram(257, 128, 3), QByteArray(1, '\x04'));

    // A short last packet: file byte 129 at position 4, 0x1A from position 5 to 130 (file byte 130
    // is gone), 0 at 131.
    parser.OpenFile(writeImage(130));
    const QByteArray data = image.mid(128, 1) + QByteArray(126, '\x1a') + '\0';
    EXPECT_EQ(parser.GetTelegram(129, 128, 2), packet(2, data));
    // A last packet of one byte: that byte is replaced too.
    parser.OpenFile(writeImage(129));
    EXPECT_EQ(parser.GetTelegram(129, 128, 2), packet(2, QByteArray(127, '\x1a') + '\0'));
}

TEST_F(ParserTest, OpenFileLogsAndReportsProblems)
{
    cLog log;
    log.Init(dir.filePath(u"log.txt"_s));
    log.Setlogging(true);
    parser.Init(&log);

    const QString empty = writeImage(0);
    EXPECT_EQ(parser.OpenFile(empty), 0);
    EXPECT_THROW(parser.OpenFile(dir.filePath(u"missing.bin"_s)), UpdaterError);
    const QString full = writeImage(128);
    EXPECT_EQ(parser.OpenFile(full), 128);

    const QList<QByteArray> lines = contentOf(log.path()).split('\n');
    ASSERT_GE(lines.size(), 2);
    EXPECT_TRUE(lines[0].endsWith(" : Error : " + empty.toLatin1() + " not opened\r"));
    EXPECT_TRUE(lines[1].endsWith(" : " + full.toLatin1() + " opened for parsing\r"));
}

} // namespace
