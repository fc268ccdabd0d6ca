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

TEST_F(IniTest, ReadsLikeTheProfileFunctions)
{
    EXPECT_EQ(ini.GetValue(u"Settings"_s, u"COMPort"_s, u"DEF"_s), u"DEF"_s);
    EXPECT_FALSE(QFile::exists(ini.path()));
    // file, section, key, value read (the default is "DEF")
    const std::tuple<const char *, const char *, const char *, const char *> cases[] = {
        {"[Settings]\r\nCOMPort=COM7\r\n", "Settings", "COMPort", "COM7"},
        {"[SETTINGS]\r\ncomport=COM7\r\n", "Settings", "COMPort", "COM7"},
        {"[Settings]\r\n  COMPort =  \"COM 7\"  \r\n", "Settings", "COMPort", "COM 7"},
        {"[S]\nK='x'\n", "S", "K", "x"},
        {"[Settings]\r\nOther=1\r\n", "Settings", "COMPort", "DEF"},
        {"[Other]\r\nCOMPort=COM7\r\n", "Settings", "COMPort", "DEF"},
        {"[A]\r\nK=1\r\n[B]\r\nX=2\r\n", "B", "K", "DEF"},
        {"[S]\r\nK=\r\n", "S", "K", ""},
        {"[S]\r\n;K=1\r\nK=2\r\n", "S", "K", "2"},
        {"[S]\r\nK=1\r\nK=2\r\n", "S", "K", "1"},
        {"[S]\r\nK=a=b;c\r\n", "S", "K", "a=b;c"},
        {"[S]\r\nK=123456789012345678901234567890123456789012345678901234567890\r\n", "S", "K",
         "1234567890123456789012345678901234567890123456789"}, // cut to 49 characters
    };
    for (const auto &[file, section, key, expected] : cases) {
        writeFile(file);
        EXPECT_EQ(ini.GetValue(QString::fromLatin1(section), QString::fromLatin1(key), u"DEF"_s),
                  QString::fromLatin1(expected))
            << file;
    }
}

// A flag is false only for "0"; a number that is none gives the default.
TEST_F(IniTest, FlagsAndNumbers)
{
    const std::tuple<const char *, bool, int> cases[] = {
        {"0", false, 0},    {"1", true, 1},    {"", true, 5},   {"no", true, 5},
        {"false", true, 5}, {" 0 ", false, 0}, {"00", true, 0}, {" 7 ", true, 7}};
    for (const auto &[value, flag, number] : cases) {
        writeFile("[Settings]\r\nK=" + QByteArray(value) + "\r\n");
        EXPECT_EQ(ini.GetBoolValue(u"Settings"_s, u"K"_s, false), flag) << value;
        EXPECT_EQ(ini.GetIntValue(u"Settings"_s, u"K"_s, 5), number) << value;
    }
}

TEST_F(IniTest, SetValueCreatesFileAndSectionAndKeepsEveryOtherLineAsItWas)
{
    ASSERT_TRUE(ini.SetValue(u"Settings"_s, u"COMPort"_s, u"COM7"_s));
    EXPECT_EQ(readFile(), QByteArray("[Settings]\r\nCOMPort=COM7\r\n"));

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
