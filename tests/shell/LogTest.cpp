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

struct EntryCase
{
    const char *what;
    quint8 defaultIndent;
    std::optional<int> additionalTabs;
    std::optional<int> newline;
    const char *expected;
};

class LogEntry : public LogTest, public ::testing::WithParamInterface<EntryCase>
{
};

TEST_P(LogEntry, IsWrittenInTheLogFormat)
{
    const EntryCase c = GetParam();
    log.SetTabs(c.defaultIndent);
    ASSERT_TRUE(log.UpdateLog(u"Telegram sent : KVT"_s, c.additionalTabs, c.newline));
    EXPECT_EQ(content(), QByteArray(c.expected)) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LogEntry,
    ::testing::Values(
        EntryCase {"plain", 0, {}, {}, "14:03:07 : Telegram sent : KVT\r\n"},
        EntryCase {
            "default indent plus additional", 1, 1, {}, "14:03:07 : \t\tTelegram sent : KVT\r\n"},
        EntryCase {
            "additional 0 keeps the default", 3, 0, {}, "14:03:07 : \t\t\tTelegram sent : KVT\r\n"},
        EntryCase {"three plus two", 3, 2, {}, "14:03:07 : \t\t\t\t\tTelegram sent : KVT\r\n"},
        EntryCase {"blank lines before", 0, {}, -2, "\r\n\r\n14:03:07 : Telegram sent : KVT\r\n"},
        EntryCase {"blank lines after", 0, {}, 2, "14:03:07 : Telegram sent : KVT\r\n\r\n\r\n"}),
    [](const auto &info) { return "case" + std::to_string(info.index); });

TEST_F(LogTest, AppendsEntriesAndKeepsBytesAbove127)
{
    log.UpdateLog(u"VarimoSentry_Updater started..."_s);
    clock.sleepMs(61000);
    log.UpdateLog(u"    Received  : "_s + QString::fromLatin1("DUV;3;12\xb0;99"));
    EXPECT_EQ(content(),
              QByteArray("14:03:07 : VarimoSentry_Updater started...\r\n"
                         "14:04:08 :     Received  : DUV;3;12\xb0;99\r\n"));
}

TEST_F(LogTest, DisabledLoggingDoesNotTouchTheFile)
{
    log.Setlogging(false); // writes "..." while still on
    ASSERT_TRUE(log.UpdateLog(u"packet"_s));
    log.Setlogging(false); // already off: nothing more
    EXPECT_EQ(content(), QByteArray("14:03:07 : ...\r\n"));

    QFile::remove(log.path());
    log.UpdateLog(u"packet"_s);
    EXPECT_FALSE(QFile::exists(log.path()));

    log.Setlogging(true);
    log.UpdateLog(u"back"_s);
    EXPECT_EQ(content(), QByteArray("14:03:07 : back\r\n"));
}

TEST_F(LogTest, WritesThatCannotHappenReachTheCaller)
{
    cLog noPath;
    EXPECT_FALSE(noPath.OpenLog());
    noPath.Setlogging(true);
    EXPECT_FALSE(noPath.UpdateLog(u"x"_s));
    EXPECT_FALSE(noPath.errorString().isEmpty());

    cLog inMissingFolder;
    inMissingFolder.Init(dir.filePath(u"no/such/folder/log.txt"_s));
    inMissingFolder.Setlogging(true);
    EXPECT_FALSE(inMissingFolder.UpdateLog(u"x"_s));
    EXPECT_TRUE(inMissingFolder.errorString().contains(u"no/such/folder"_s));
}

} // namespace
