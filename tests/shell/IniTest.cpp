#include "shell/cINI.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class IniTest : public ::testing::Test
{
protected:
    void SetUp() override { ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s)); }

    void writeFile(const QByteArray &content)
    {
        QFile f(ini.path());
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(content);
    }

    QByteArray readFile()
    {
        QFile f(ini.path());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QTemporaryDir dir;
    cINI ini;
};

TEST_F(IniTest, MissingFileGivesDefaultsAndCreatesNothing)
{
    EXPECT_EQ(ini.GetValue(u"Settings"_s, u"COMPort"_s, u"COM1"_s), u"COM1"_s);
    EXPECT_FALSE(ini.GetBoolValue(u"Settings"_s, u"AllowDowngrade"_s, false));
    EXPECT_TRUE(ini.GetBoolValue(u"Settings"_s, u"LogParserTele"_s, true));
    EXPECT_EQ(ini.GetIntValue(u"Settings"_s, u"XModemWaitTime"_s, 1), 1);
    EXPECT_FALSE(QFile::exists(ini.path()));
}

struct ReadCase
{
    const char *what;
    const char *file;
    const char *section;
    const char *key;
    const char *expected; // default is "DEF"
};

class IniRead : public IniTest, public ::testing::WithParamInterface<ReadCase>
{
};

TEST_P(IniRead, ReadsLikeTheProfileFunctions)
{
    const ReadCase c = GetParam();
    writeFile(c.file);
    EXPECT_EQ(ini.GetValue(QString::fromLatin1(c.section), QString::fromLatin1(c.key), u"DEF"_s),
              QString::fromLatin1(c.expected))
        << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IniRead,
    ::testing::Values(
        ReadCase {"plain", "[Settings]\r\nCOMPort=COM7\r\n", "Settings", "COMPort", "COM7"},
        ReadCase {"case-insensitive names", "[SETTINGS]\r\ncomport=COM7\r\n", "Settings", "COMPort",
                  "COM7"},
        ReadCase {"blanks and quotes removed", "[Settings]\r\n  COMPort =  \"COM 7\"  \r\n",
                  "Settings", "COMPort", "COM 7"},
        ReadCase {"single quotes too", "[S]\nK='x'\n", "S", "K", "x"},
        ReadCase {"unix line ends", "[S]\nK=v\n", "S", "K", "v"},
        ReadCase {"missing key", "[Settings]\r\nOther=1\r\n", "Settings", "COMPort", "DEF"},
        ReadCase {"missing section", "[Other]\r\nCOMPort=COM7\r\n", "Settings", "COMPort", "DEF"},
        ReadCase {"key of another section", "[A]\r\nK=1\r\n[B]\r\nX=2\r\n", "B", "K", "DEF"},
        ReadCase {"present but empty", "[S]\r\nK=\r\n", "S", "K", ""},
        ReadCase {"comment lines are no keys", "[S]\r\n;K=1\r\nK=2\r\n", "S", "K", "2"},
        ReadCase {"first of two keys", "[S]\r\nK=1\r\nK=2\r\n", "S", "K", "1"},
        ReadCase {"value holding = and ;", "[S]\r\nK=a=b;c\r\n", "S", "K", "a=b;c"},
        ReadCase {"cut to 49 characters",
                  "[S]\r\nK=123456789012345678901234567890123456789012345678901234567890\r\n", "S",
                  "K", "1234567890123456789012345678901234567890123456789"}),
    [](const auto &info) { return "case" + std::to_string(info.index); });

TEST_F(IniTest, BoolIsFalseOnlyForZero)
{
    const struct
    {
        const char *value;
        bool expected;
    } cases[] = {{"0", false},    {"1", true},    {"", true},  {"no", true},
                 {"false", true}, {" 0 ", false}, {"00", true}};
    for (const auto &c : cases) {
        writeFile("[Settings]\r\nAllowDowngrade=" + QByteArray(c.value) + "\r\n");
        EXPECT_EQ(ini.GetBoolValue(u"Settings"_s, u"AllowDowngrade"_s, false), c.expected)
            << "value '" << c.value << "'";
    }
}

TEST_F(IniTest, BadNumbersFallBackToTheDefault)
{
    writeFile("[Settings]\r\nXModemWaitTime=fast\r\nRetryUpdates= 7 \r\n");
    EXPECT_EQ(ini.GetIntValue(u"Settings"_s, u"XModemWaitTime"_s, 1), 1);
    EXPECT_EQ(ini.GetIntValue(u"Settings"_s, u"RetryUpdates"_s, 5), 7);
}

TEST_F(IniTest, SetValueCreatesFileAndSection)
{
    ASSERT_TRUE(ini.SetValue(u"Settings"_s, u"COMPort"_s, u"COM7"_s));
    EXPECT_EQ(readFile(), QByteArray("[Settings]\r\nCOMPort=COM7\r\n"));
    EXPECT_EQ(ini.GetValue(u"Settings"_s, u"COMPort"_s, u"COM1"_s), u"COM7"_s);
}

TEST_F(IniTest, SetValueKeepsEveryOtherLineAsItWas)
{
    writeFile("; settings of the updater\r\n"
              "[Settings]\r\n"
              "COMPort = COM3   ; old\r\n"
              "AllowDowngrade=0\r\n"
              "\r\n"
              "[Mainboard]\r\n"
              "File=FW_MAINBOARD_XXX_CRC\r\n");
    ASSERT_TRUE(ini.SetValue(u"settings"_s, u"comport"_s, u"COM7"_s));
    ASSERT_TRUE(ini.SetValue(u"Settings"_s, u"LastBackupFileName"_s, u"b.xml"_s));
    ASSERT_TRUE(ini.SetValue(u"Messmodul"_s, u"FWMin"_s, u"1.30"_s));
    EXPECT_EQ(readFile(),
              QByteArray("; settings of the updater\r\n"
                         "[Settings]\r\n"
                         "comport=COM7\r\n"
                         "AllowDowngrade=0\r\n"
                         "LastBackupFileName=b.xml\r\n"
                         "\r\n"
                         "[Mainboard]\r\n"
                         "File=FW_MAINBOARD_XXX_CRC\r\n"
                         "[Messmodul]\r\n"
                         "FWMin=1.30\r\n"));
}

TEST_F(IniTest, SetValueThatCannotBeWrittenFailsWithAReason)
{
    // A folder where the file should be: no user, root included, can write there.
    ASSERT_TRUE(QDir().mkpath(ini.path()));
    EXPECT_FALSE(ini.SetValue(u"Settings"_s, u"COMPort"_s, u"COM7"_s));
    EXPECT_TRUE(ini.errorString().contains(ini.path()));
}

} // namespace
