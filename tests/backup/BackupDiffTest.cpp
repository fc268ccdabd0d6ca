#include "backup/BackupDiff.h"

#include "backup/cXML.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// A backup as the backup step writes it, with one value of each board that a case may change.
const QByteArray kBackup =
    "<VARIMOsentry DocumentVersion=\"1.0\" Created=\"x\">"
    "<Mainboard Name=\"Vm2PS\" Firmware=\"1.02\" Build=\"7\">"
    "<Value Telegram=\"SER\">42</Value><Value Telegram=\"CH\">12.5</Value></Mainboard>"
    "<Measureboard Name=\"Vm2MM\" Firmware=\"1.20\" Build=\"3\">"
    "<Protected><Value Telegram=\"CEF;0;0\">1.5</Value></Protected>"
    "<User><Value Telegram=\"CEF;0;0\">7</Value></User></Measureboard>"
    "<CPUboard Name=\"VARIMO\" Firmware=\"2.00\" Build=\"1\">"
    "<Protected><Value id=\"0\">p</Value></Protected><User><Value id=\"0\">u</Value></User>"
    "</CPUboard></VARIMOsentry>";

QByteArray edited(std::initializer_list<std::pair<const char *, const char *>> edits)
{
    QByteArray text = kBackup;
    for (const auto &[from, to] : edits)
        text.replace(from, to);
    return text;
}

TEST(Diff, FindsEveryDifferenceByGroupAndKey)
{
    QTemporaryDir dir;
    const auto load = [&](const QByteArray &text) {
        QFile file(dir.filePath(u"b.xml"_s));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
        file.close();
        cXML xml;
        EXPECT_TRUE(xml.OpenXMLDocument(file.fileName())) << qPrintable(xml.errorString());
        return xml;
    };
    const cXML first = load(kBackup);
    // the second backup, whether only identities differ, the differences
    const std::tuple<QByteArray, bool, QStringList> cases[] = {
        // An update changes only the identity.
        {edited({{"Firmware=\"1.02\"", "Firmware=\"1.03\""}}),
         true,
         {u"Main Board  identity Firmware: \"1.02\" -> \"1.03\""_s}},
        // Values of each board, keyed by group and telegram or index.
        {edited({{">12.5<", ">12.6<"}, {">7<", ">8<"}, {">p<", ">q<"}}),
         false,
         {u"Main Board  Telegram=CH: \"12.5\" -> \"12.6\""_s,
          u"Measuring Module  User Telegram=CEF;0;0: \"7\" -> \"8\""_s,
          u"CPU Board  Protected id=0: \"p\" -> \"q\""_s}},
        // A value only the second has, with its bytes shown escaped.
        {edited(
             {{"</Mainboard>", "<Value Telegram=\"CA\">\xc2\xb0&#xd;&quot;</Value></Mainboard>"}}),
         false,
         {u"Main Board  Telegram=CA: (missing) -> \"\u00b0\\x0d\\x22\""_s}},
        {kBackup.left(kBackup.indexOf("<Measureboard")) + "</VARIMOsentry>",
         false,
         {u"Measuring Module: only in the first backup"_s,
          u"CPU Board: only in the first backup"_s}},
    };
    for (const auto &[second, sameValues, expected] : cases) {
        const QList<BackupDiff::Difference> found = BackupDiff::Compare(first, load(second));
        QStringList lines;
        for (const BackupDiff::Difference &d : found)
            lines.append(BackupDiff::Describe(d));
        EXPECT_EQ(lines, expected) << second.constData();
        EXPECT_EQ(BackupDiff::SameValues(found), sameValues) << second.constData();
    }
}

} // namespace
