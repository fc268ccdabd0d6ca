#include "backup/cXML.h"
#include "link/Clock.h"
#include "link/UpdaterError.h"

#include <QFile>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QList<QByteArray> telegrams(const cXML &xml, const QString &board)
{
    QList<QByteArray> list;
    xml.GetTelegramsFromXML(board, list);
    return list;
}

QString errorOf(const std::function<void()> &call)
{
    try {
        call();
    } catch (const UpdaterError &e) {
        return e.message();
    }
    return {};
}

class XmlTest : public ::testing::Test
{
protected:
    QString path(const QString &name = u"backup.xml"_s) const { return dir.filePath(name); }

    void writeFile(const QByteArray &content)
    {
        QFile f(path(u"in.xml"_s));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(content);
    }

    QTemporaryDir dir;
    VirtualClock clock;
};

// The restore telegrams of a backup the updater wrote, how a value that differs after the save is
// named, files that are no backup (or lack a group) and a failed save: BackupRestoreTest.

TEST_F(XmlTest, HandWrittenFileKeepsAttributeOrderAndRestoresByPosition)
{
    writeFile("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VARIMOsentry>\n <Mainboard>\n"
              "  <Value Telegram=\"CH\" Unit=\"mm\">5</Value>\n"
              "  <Value Unit=\"mm\" Telegram=\"CH\">5</Value>\n"
              "  <Value Telegram=\"CN\"></Value><Value Telegram=\"CA\">  </Value>\n"
              " </Mainboard>\n <CPUboard><Protected/><User>\n"
              "  <Value id=\"2\">a</Value><Value id=\"0\">b</Value><Value id=\"1\">c</Value>\n"
              " </User></CPUboard>\n</VARIMOsentry>\n");
    cXML xml;
    ASSERT_TRUE(xml.OpenXMLDocument(path(u"in.xml"_s)));
    EXPECT_EQ(telegrams(xml, u"Mainboard"_s),
              (QList<QByteArray> {"CH;mm;5", "mm;CH;5", "CN;", "CA;  "}));
    EXPECT_EQ(telegrams(xml, u"CPUboard"_s),
              (QList<QByteArray> {"DUV;0;a", "DUV;1;b", "DUV;2;c", "USR"}));
}

TEST_F(XmlTest, EveryByteXmlCanCarrySurvivesSaveAndLoadAndTheOthersAreRefused)
{
    QByteArray all = "\t\n\r";
    for (int b = 0x20; b <= 0xFF; ++b)
        all += char(b);
    cXML xml(&clock);
    xml.CreateXMLDocument(path());
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
    EXPECT_TRUE(errorOf([&] { xml.SetAttribute(u"id"_s, "\x1b"); }).contains(u"0x1b"_s));
    EXPECT_TRUE(errorOf([&] {
                    xml.CreateAndSetSibling(u"Value"_s, QByteArray("a\0b", 3));
                }).contains(u"0x00"_s));
    xml.SetAttribute(u"Firmware"_s, "1.02");
    xml.SaveXMLDoc();
    cXML read;
    ASSERT_TRUE(read.OpenXMLDocument(path())) << read.errorString().toStdString();
    EXPECT_EQ(telegrams(read, u"Mainboard"_s), expected);
    EXPECT_EQ(read.GetValueOfElement(u"/VARIMOsentry/Mainboard/Value"_s), all);
    EXPECT_EQ(read.GetAttrOfElement(u"/VARIMOsentry/Mainboard"_s, u"Firmware"_s), "1.02");
}

} // namespace
