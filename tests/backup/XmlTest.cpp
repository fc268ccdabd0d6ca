#include "backup/BackupDiff.h"
#include "backup/cXML.h"
#include "link/UpdaterError.h"
#include "support/SimFixture.h"

using namespace Qt::StringLiterals;

namespace {

QList<QByteArray> telegrams(const cXML &xml, const QString &board)
{
    QList<QByteArray> list;
    xml.GetTelegramsFromXML(board, list);
    return list;
}

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

// Files in the rig's program folder.
class XmlTest : public SimFixture
{
protected:
    // The document of a file with this content.
    cXML load(const QByteArray &content) const
    {
        writeFile(path(u"in.xml"_s), content);
        cXML xml;
        EXPECT_TRUE(xml.OpenXMLDocument(path(u"in.xml"_s))) << qPrintable(xml.errorString());
        return xml;
    }
};

// The restore telegrams of a backup the updater wrote, how a value that differs after the save is
// named, files that are no backup (or lack a group) and a failed save: BackupRestoreTest.

TEST_F(XmlTest, KeepsAttributeOrderRestoresByPositionAndCarriesEveryByteXmlCan)
{
    const cXML handWritten =
        load("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VARIMOsentry>\n <Mainboard>\n"
             "  <Value Telegram=\"CH\" Unit=\"mm\">5</Value>\n"
             "  <Value Unit=\"mm\" Telegram=\"CH\">5</Value>\n"
             "  <Value Telegram=\"CN\"></Value><Value Telegram=\"CA\">  </Value>\n"
             " </Mainboard>\n <CPUboard><Protected/><User>\n"
             "  <Value id=\"2\">a</Value><Value id=\"0\">b</Value><Value id=\"1\">c</Value>\n"
             " </User></CPUboard>\n</VARIMOsentry>\n");
    EXPECT_EQ(telegrams(handWritten, u"Mainboard"_s),
              (QList<QByteArray> {"CH;mm;5", "mm;CH;5", "CN;", "CA;  "}));
    EXPECT_EQ(telegrams(handWritten, u"CPUboard"_s),
              (QList<QByteArray> {"DUV;0;a", "DUV;1;b", "DUV;2;c", "USR"}));

    // Every byte XML can carry survives the save and the load; the others are refused.
    QByteArray all = "\t\n\r";
    for (int b = 0x20; b <= 0xFF; ++b)
        all += char(b);
    cXML xml(&clock);
    xml.CreateXMLDocument(path(u"backup.xml"_s));
    xml.CreateAndSetChild(u"Mainboard"_s, {});
    QList<QByteArray> expected;
    for (const QByteArray &v :
         {all, QByteArray("]]>"), QByteArray("a\r\nb\rc\n"), QByteArray(" "), QByteArray()}) {
        xml.CreateAndSetChild(u"Value"_s, v);
        xml.SetAttribute(u"Telegram"_s, v);
        xml.SetAttribute(u"B"_s, "b");
        xml.SetParent();
        expected.append(v + ";b;" + v);
    }
    // Control bytes cannot be written to XML: refused, and the cursor stays where it was.
    EXPECT_THROW(xml.SetAttribute(u"id"_s, "\x1b"), UpdaterError);
    EXPECT_THROW(xml.CreateAndSetSibling(u"Value"_s, QByteArray("a\0b", 3)), UpdaterError);
    xml.SetAttribute(u"Firmware"_s, "1.02");
    xml.SaveXMLDoc();
    cXML read;
    ASSERT_TRUE(read.OpenXMLDocument(path(u"backup.xml"_s))) << read.errorString().toStdString();
    EXPECT_EQ(telegrams(read, u"Mainboard"_s), expected);
    EXPECT_EQ(read.GetAttrOfElement(u"/VARIMOsentry/Mainboard"_s, u"Firmware"_s), "1.02");
}

TEST_F(XmlTest, DiffFindsEveryDifferenceByGroupAndKey)
{
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
