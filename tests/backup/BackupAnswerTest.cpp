#include "backup/cBackup.h"
#include "link/cCRC.h"

#include <gtest/gtest.h>

namespace {

QByteArray withCrc(const QByteArray &text)
{
    return text + QByteArray::number(cCRC::crc16FromString(text));
}

TEST(ExtractValue, CutsTheEchoAndOptionallyTheTail)
{
    const struct
    {
        const char *telegram, *answer;
        bool tail;
        const char *value;
    } cases[] = {{"CEF;1;2", "CEF;1;2;17", false, "17"},
                 {"HVC;2", "HVC;2;1200;77", false, "1200;77"}, // a checksum field stays
                 {"CH", "CH;", false, ""},
                 {"DPV;5", "DPV;5;12.5;", true, "12.5"},
                 {"DPV;5", "DPV;5;a;b;", true, "a;b"}, // a value may hold ";"
                 {"DUV;0", "DUV;0;;", true, ""}};
    for (const auto &c : cases)
        EXPECT_EQ(cBackup::ExtractValue(c.telegram, c.answer, c.tail), QByteArray(c.value))
            << c.telegram << " / " << c.answer;
}

TEST(CheckAnswerCrc, AcceptsOnlyTheExactDecimalCrc)
{
    QByteArray good = withCrc("DPV;3;12\xb0;C;");
    EXPECT_TRUE(cBackup::CheckAnswerCrc(good));
    EXPECT_EQ(good, QByteArray("DPV;3;12\xb0;C;")); // shortened to end in ";"

    const QByteArray text = "DUV;7;4711;";
    const qint32 crc = cCRC::crc16FromString(text);
    const struct
    {
        QByteArray answer;
        bool ok;
    } cases[] = {
        {text + QByteArray::number(crc + 1), false},
        {text + "0" + QByteArray::number(crc), false}, // leading zero: cut by the digit count
        {text + "x", false},
        {"DUV;7", false},
        {text + QByteArray::number(crc), true},
    };
    for (auto c : cases)
        EXPECT_EQ(cBackup::CheckAnswerCrc(c.answer), c.ok) << c.answer.constData();
}

TEST(CheckRestoreAnswer, ComparesTheEchoedCommand)
{
    const struct
    {
        const char *telegram, *answer;
        bool ok;
    } cases[] = {{"CH;5", "CH;5", true},   {"CH;5", "CH;7", true},   {"CH;5", "XY;5", false},
                 {"USR", "USR", true},     {"USR", "xxUSRxx", true}, {"USR", "US", false},
                 {"DUV;3;1", "DUV", true}, {"CH;5", "", true}};
    for (const auto &c : cases)
        EXPECT_EQ(cBackup::CheckRestoreAnswer(c.telegram, c.answer), c.ok)
            << c.telegram << " / " << c.answer;
}

TEST(AppendCrc, UnlockTelegram)
{
    const QByteArray unlock = cBackup::AppendCrc("XUX;QJR4TW;");
    EXPECT_TRUE(unlock.startsWith("XUX;QJR4TW;"));
    EXPECT_EQ(unlock.mid(11).toInt(), cCRC::crc16FromString("XUX;QJR4TW;"));
}

TEST(Catalogue, HasTheBoardsQueriesInSendingOrder)
{
    EXPECT_EQ(cBackup::MainBoardQueries().size(), 8);
    EXPECT_EQ(cBackup::MeasProtectedQueries().size(), 26);
    EXPECT_EQ(cBackup::MeasUserQueries().size(), 17);
    EXPECT_EQ(cBackup::MainBoardQueries().last(), QByteArray("CEO"));
    EXPECT_EQ(cBackup::MeasProtectedQueries().last(), QByteArray("CEO"));
}

} // namespace
