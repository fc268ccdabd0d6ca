#include "link/UpdaterError.h"
#include "link/cCRC.h"
#include "link/cParser.h"
#include "shell/cLog.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class ParserTest : public ::testing::Test
{
protected:
    QString writeImage(const QByteArray &bytes)
    {
        const QString path = dir.filePath(u"image.bin"_s);
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
        return path;
    }

    static QByteArray ramp(int n)
    {
        QByteArray b(n, '\0');
        for (int i = 0; i < n; ++i)
            b[i] = char((i * 7 + 3) & 0xFF); // every byte value, high bit included
        return b;
    }

    static void expectHeaderAndCrc(const QByteArray &packet, quint8 number)
    {
        ASSERT_EQ(packet.size(), 133);
        EXPECT_EQ(quint8(packet[0]), 0x01);
        EXPECT_EQ(quint8(packet[1]), number);
        EXPECT_EQ(quint8(packet[2]), quint8(255 - number));
        const qint32 crc = cCRC::crc16FromString(packet.mid(3, 128));
        EXPECT_EQ(quint8(packet[131]), crc >> 8);
        EXPECT_EQ(quint8(packet[132]), crc & 0xFF);
    }

    QTemporaryDir dir;
    cParser parser;
};

TEST_F(ParserTest, FileOf256BytesGivesTwoPacketsThenEot)
{
    const QByteArray image = ramp(256);
    EXPECT_EQ(parser.OpenFile(writeImage(image)), 256);

    const QByteArray p1 = parser.GetTelegram(1, 128, 1);
    expectHeaderAndCrc(p1, 1);
    EXPECT_EQ(p1.mid(3, 128), image.left(128));

    const QByteArray p2 = parser.GetTelegram(129, 128, 2);
    expectHeaderAndCrc(p2, 2);
    EXPECT_EQ(p2.mid(3, 128), image.mid(128));

    EXPECT_EQ(parser.GetTelegram(257, 128, 3), QByteArray(1, '\x04'));
}

TEST_F(ParserTest, ShortLastPacketOverwritesTheLastByteAndLeavesPosition131Zero)
{
    const QByteArray image = ramp(130);
    parser.OpenFile(writeImage(image));
    const QByteArray p2 = parser.GetTelegram(129, 128, 2);
    expectHeaderAndCrc(p2, 2);
    EXPECT_EQ(p2[3], image[128]); // position 4: file byte 129
    for (int pos = 5; pos <= 130; ++pos)
        EXPECT_EQ(quint8(p2[pos - 1]), 0x1A) << "position " << pos;
    EXPECT_EQ(p2[130], '\0'); // position 131 keeps 0; file byte 130 is gone
}

TEST_F(ParserTest, PacketNumberComplementAndZeroCrc)
{
    parser.OpenFile(writeImage(QByteArray(128, '\0')));
    const QByteArray p = parser.GetTelegram(1, 128, 255);
    EXPECT_EQ(quint8(p[1]), 255);
    EXPECT_EQ(quint8(p[2]), 0);
    EXPECT_EQ(p[131], '\0');
    EXPECT_EQ(p[132], '\0');
    EXPECT_EQ(quint8(parser.GetTelegram(1, 128, 0)[2]), 255);
}

TEST_F(ParserTest, OpenFileLogsAndReportsProblems)
{
    cLog log;
    log.Init(dir.filePath(u"log.txt"_s));
    log.Setlogging(true);
    parser.Init(&log);

    const QString empty = writeImage({});
    EXPECT_EQ(parser.OpenFile(empty), 0);
    EXPECT_EQ(parser.OpenFile(QString()), 0);
    EXPECT_THROW(parser.OpenFile(dir.filePath(u"missing.bin"_s)), UpdaterError);
    const QString full = writeImage(ramp(128));
    EXPECT_EQ(parser.OpenFile(full), 128);

    QFile f(log.path());
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = f.readAll().split('\n');
    ASSERT_GE(lines.size(), 2);
    EXPECT_TRUE(lines[0].endsWith(" : Error : " + empty.toLatin1() + " not opened\r"));
    EXPECT_TRUE(lines[1].endsWith(" : " + full.toLatin1() + " opened for parsing\r"));
}

} // namespace
