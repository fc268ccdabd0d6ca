#include "link/Clock.h"
#include "shell/cLog.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class LogTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
        log.Setlogging(true);
    }

    QByteArray content()
    {
        QFile f(log.path());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QTemporaryDir dir;
    VirtualClock clock {QDateTime(QDate(2026, 11, 23), QTime(14, 3, 7))};
    cLog log {&clock};
};

TEST_F(LogTest, EntriesAreWrittenInTheLogFormatAndAppended)
{
    // indent, additional tabs, blank lines (before when negative), the entry
    const std::tuple<quint8, std::optional<int>, std::optional<int>, const char *> cases[] = {
        {0, {}, {}, "14:03:07 : Telegram sent : KVT\r\n"},
        {3, 0, {}, "14:03:07 : \t\t\tTelegram sent : KVT\r\n"},
        {3, 2, {}, "14:03:07 : \t\t\t\t\tTelegram sent : KVT\r\n"},
        {0, {}, -2, "\r\n\r\n14:03:07 : Telegram sent : KVT\r\n"},
        {0, {}, 2, "14:03:07 : Telegram sent : KVT\r\n\r\n\r\n"},
    };
    for (const auto &[indent, additionalTabs, newline, expected] : cases) {
        QFile::remove(log.path());
        log.SetTabs(indent);
        ASSERT_TRUE(log.UpdateLog(u"Telegram sent : KVT"_s, additionalTabs, newline));
        EXPECT_EQ(content(), QByteArray(expected));
    }
    // The next entry is appended, at its own time, with its bytes above 127 as they are.
    clock.sleepMs(61000);
    log.UpdateLog(u"    Received  : "_s + QString::fromLatin1("DUV;3;12\xb0;99"));
    EXPECT_EQ(content(),
              QByteArray("14:03:07 : Telegram sent : KVT\r\n\r\n\r\n"
                         "14:04:08 :     Received  : DUV;3;12\xb0;99\r\n"));
}

TEST_F(LogTest, DisabledLoggingDoesNotTouchTheFile)
{
    log.Setlogging(false); // writes "..." while still on
    log.Setlogging(false); // already off: nothing more
    EXPECT_EQ(content(), QByteArray("14:03:07 : ...\r\n"));
    QFile::remove(log.path());
    ASSERT_TRUE(log.UpdateLog(u"packet"_s));
    EXPECT_FALSE(QFile::exists(log.path()));

    log.Setlogging(true);
    log.UpdateLog(u"back"_s);
    EXPECT_EQ(content(), QByteArray("14:03:07 : back\r\n"));
}

TEST_F(LogTest, WritesThatCannotHappenReachTheCaller)
{
    cLog inMissingFolder;
    inMissingFolder.Init(dir.filePath(u"no/such/folder/log.txt"_s));
    inMissingFolder.Setlogging(true);
    EXPECT_FALSE(inMissingFolder.UpdateLog(u"x"_s));
    EXPECT_TRUE(inMissingFolder.errorString().contains(u"no/such/folder"_s));
}

} // namespace
