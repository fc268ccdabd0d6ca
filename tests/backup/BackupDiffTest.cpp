#include "backup/BackupDiff.h"

#include "backup/cXML.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// A backup as the backup step writes it, with one value of each board that a case may change.
QByteArray backupText(const QByteArray &mainFirmware, const QByteArray &ch,
                      const QByteArray &measUser, const QByteArray &cpuProtected,
                      const QByteArray &extra = {})
{
    return "<VARIMOsentry DocumentVersion=\"1.0\" Created=\"x\">"
           "<Mainboard Name=\"Vm2PS\" Firmware=\"" +
        mainFirmware + "\" Build=\"7\"><Value Telegram=\"SER\">42</Value><Value Telegram=\"CH\">" +
        ch + "</Value>" + extra +
        "</Mainboard>"
        "<Measureboard Name=\"Vm2MM\" Firmware=\"1.20\" Build=\"3\">"
        "<Protected><Value Telegram=\"CEF;0;0\">1.5</Value></Protected>"
        "<User><Value Telegram=\"CEF;0;0\">" +
        measUser +
        "</Value></User></Measureboard>"
        "<CPUboard Name=\"VARIMO\" Firmware=\"2.00\" Build=\"1\">"
        "<Protected><Value id=\"0\">" +
        cpuProtected +
        "</Value></Protected><User><Value id=\"0\">u</Value></User></CPUboard>"
        "</VARIMOsentry>";
}

struct DiffCase
{
    const char *name; // the case's name in the test list
    const char *what;
    QByteArray second;
    bool sameValues;
    QStringList lines;
};

class Diff : public ::testing::TestWithParam<DiffCase>
{
};

TEST_P(Diff, FindsEveryDifferenceByGroupAndKey)
{
    const DiffCase &tc = GetParam();
    QTemporaryDir dir;
    const auto load = [&](const QString &name, const QByteArray &text) {
        QFile file(dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
        file.close();
        cXML xml;
        EXPECT_TRUE(xml.OpenXMLDocument(file.fileName())) << qPrintable(xml.errorString());
        return xml;
    };
    const cXML first = load(u"a.xml"_s, backupText("1.02", "12.5", "7", "p"));
    const cXML second = load(u"b.xml"_s, tc.second);

    const QList<BackupDiff::Difference> found = BackupDiff::Compare(first, second);
    QStringList lines;
    for (const BackupDiff::Difference &d : found)
        lines.append(BackupDiff::Describe(d));
    EXPECT_EQ(lines, tc.lines) << tc.what;
    EXPECT_EQ(BackupDiff::SameValues(found), tc.sameValues) << tc.what;
}

INSTANTIATE_TEST_SUITE_P(
    Backups, Diff,
    ::testing::Values(
        DiffCase {"Same", "the same document", backupText("1.02", "12.5", "7", "p"), true, {}},
        DiffCase {"IdentityOnly",
                  "an update changes only the identity",
                  backupText("1.03", "12.5", "7", "p"),
                  true,
                  {u"Main Board  identity Firmware: \"1.02\" -> \"1.03\""_s}},
        DiffCase {"ValueOfEachBoard",
                  "values of each board, keyed by group and telegram or index",
                  backupText("1.02", "12.6", "8", "q"),
                  false,
                  {u"Main Board  Telegram=CH: \"12.5\" -> \"12.6\""_s,
                   u"Measuring Module  User Telegram=CEF;0;0: \"7\" -> \"8\""_s,
                   u"CPU Board  Protected id=0: \"p\" -> \"q\""_s}},
        DiffCase {"ValueOnlyInSecond",
                  "a value only the second has, with bytes shown escaped",
                  backupText("1.02", "12.5", "7", "p",
                             "<Value Telegram=\"CA\">\xc2\xb0&#xd;&quot;</Value>"),
                  false,
                  {u"Main Board  Telegram=CA: (missing) -> \"\u00b0\\x0d\\x22\""_s}},
        DiffCase {"BoardMissing",
                  "a board missing",
                  "<VARIMOsentry><Mainboard Name=\"Vm2PS\" Firmware=\"1.02\" Build=\"7\">"
                  "<Value Telegram=\"SER\">42</Value><Value Telegram=\"CH\">12.5</Value>"
                  "</Mainboard></VARIMOsentry>",
                  false,
                  {u"Measuring Module: only in the first backup"_s,
                   u"CPU Board: only in the first backup"_s}}),
    [](const ::testing::TestParamInfo<DiffCase> &info) { return std::string(info.param.name); });

} // namespace
