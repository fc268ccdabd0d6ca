#include "backup/cXML.h"
#include "link/Clock.h"
#include "link/UpdaterError.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray readFile(const QString &file)
{
    QFile f(file);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

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

// A value element with one attribute, added as the backup step adds it.
void addValue(cXML &xml, const QString &attribute, const QByteArray &name, const QByteArray &text)
{
    xml.CreateAndSetChild(u"Value"_s, text);
    xml.SetAttribute(attribute, name);
    xml.SetParent();
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

    void buildBackup(cXML &xml, const QByteArray &mainValue = "12.5")
    {
        xml.CreateXMLDocument(path());
        xml.CreateAndSetChild(u"Mainboard"_s, {});
        addValue(xml, u"Telegram"_s, "SER", "42");
        addValue(xml, u"Telegram"_s, "CH", mainValue);
        xml.CreateAndSetSibling(u"Measureboard"_s, {});
        xml.CreateAndSetChild(u"Protected"_s, {});
        addValue(xml, u"Telegram"_s, "CEF;1;2", "17");
        xml.CreateAndSetSibling(u"User"_s, {});
        addValue(xml, u"Telegram"_s, "HV", "3");
        xml.SetParent();
        xml.CreateAndSetSibling(u"CPUboard"_s, {});
        for (const auto &[group, count] : {std::pair {u"Protected"_s, 28}, {u"User"_s, 57}}) {
            xml.CreateAndSetChild(group, {});
            for (int i = 0; i < count; ++i) {
                const QByteArray n = QByteArray::number(i);
                addValue(xml, u"id"_s, n, group.left(1).toLatin1() + n);
            }
            xml.SetParent();
        }
        xml.SaveXMLDoc();
    }

    QTemporaryDir dir;
    VirtualClock clock;
};

TEST_F(XmlTest, SavedBackupGivesTheRestoreTelegramsOfEachBoard)
{
    cXML written(&clock);
    buildBackup(written);
    cXML read;
    ASSERT_TRUE(read.OpenXMLDocument(path())) << read.errorString().toStdString();
    EXPECT_EQ(read.GetAttrOfElement(u"/VARIMOsentry"_s, u"DocumentVersion"_s), "1.0");
    EXPECT_TRUE(read.GetAttrOfElement(u"/VARIMOsentry"_s, u"Created"_s).endsWith(" 09:00:00"));
    EXPECT_EQ(telegrams(read, u"Mainboard"_s), (QList<QByteArray> {"SER;42", "CH;12.5"}));
    EXPECT_EQ(telegrams(read, u"Measureboard"_s), (QList<QByteArray> {"HV;3", "CEF;1;2;17"}));
    const QList<QByteArray> cpu = telegrams(read, u"CPUboard"_s);
    ASSERT_EQ(cpu.size(), 86);
    EXPECT_EQ(cpu.mid(55, 3), (QList<QByteArray> {"DUV;55;U55", "DUV;56;U56", "DPV;0;P0"}));
    EXPECT_EQ(cpu.mid(84), (QList<QByteArray> {"DPV;27;P27", "USR"}));
}

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

TEST_F(XmlTest, FilesThatAreNoBackupSayWhy)
{
    const struct
    {
        const char *content; // nullptr: no file at all
        QString why;
    } cases[] = {
        {nullptr, u"No such file or directory"_s},
        {"", u"line 1, column 0: Premature end of document."_s},
        {"<VARIMOsentry>\n<Mainboard>\n", u"line 3, column 0: Premature end of document."_s},
        {"<Backup><Mainboard/></Backup>", u"the root element is <Backup>, not <VARIMOsentry>"_s},
        {"<VARIMOsentry>\r\n </VARIMOsentry>", u"the root element <VARIMOsentry> is empty"_s},
    };
    for (const auto &c : cases) {
        QFile::remove(path(u"in.xml"_s));
        if (c.content)
            writeFile(c.content);
        cXML xml;
        EXPECT_FALSE(xml.OpenXMLDocument(path(u"in.xml"_s))) << c.content;
        EXPECT_EQ(xml.errorString(), c.why) << c.content;
    }
}

TEST_F(XmlTest, MissingNodesAreErrorsThatNameThePath)
{
    writeFile("<VARIMOsentry><Measureboard><User/></Measureboard></VARIMOsentry>");
    cXML xml;
    ASSERT_TRUE(xml.OpenXMLDocument(path(u"in.xml"_s)));
    QList<QByteArray> list {"x"};
    EXPECT_TRUE(errorOf([&] {
                    xml.GetTelegramsFromXML(u"Measureboard"_s, list);
                }).endsWith(u"in.xml: no element /VARIMOsentry/Measureboard/Protected"_s));
    EXPECT_EQ(list, QList<QByteArray> {"x"});
    EXPECT_TRUE(errorOf([&] {
                    xml.GetValueOfElement(u"/VARIMOsentry/CPUboard"_s);
                }).endsWith(u"no element /VARIMOsentry/CPUboard"_s));
    EXPECT_TRUE(errorOf([&] {
                    xml.GetAttrOfElement(u"/VARIMOsentry/Measureboard"_s, u"Name"_s);
                }).endsWith(u"/VARIMOsentry/Measureboard has no attribute Name"_s));
    EXPECT_TRUE(errorOf([&] { xml.CheckXML(), xml.SetParent(); }).contains(u"no parent element"_s));
}

TEST_F(XmlTest, FirstDifferenceNamesTheValue)
{
    cXML a(&clock), b(&clock);
    buildBackup(a, "12.5");
    buildBackup(b, "12.6");
    EXPECT_EQ(
        a.FirstDifference(b, u"Mainboard"_s),
        u"/VARIMOsentry/Mainboard/Value[2]: text \"12.5\" here, \"12.6\" in the other document"_s);
    EXPECT_EQ(a.FirstDifference(cXML(), u"CPUboard"_s),
              u"/VARIMOsentry/CPUboard: missing in the other document"_s);
}

TEST_F(XmlTest, FailedSaveThrowsAndLeavesThePreviousFile)
{
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"taken.xml"_s));
    cXML xml(&clock);
    EXPECT_TRUE(errorOf([&] {
                    xml.CreateXMLDocument(path(u"taken.xml"_s));
                }).startsWith(u"cannot save backup file "_s + path(u"taken.xml"_s)));

    // A full disk: writes beyond a file-size limit fail, for root too.
    buildBackup(xml);
    const QByteArray before = readFile(path());
    xml.AppendToCurrent(u"Value"_s, "new");
    rlimit old {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    rlimit small = old;
    small.rlim_cur = 256;
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const QString error = errorOf([&] { xml.SaveXMLDoc(); });
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(error,
              u"cannot save backup file %1: %2"_s.arg(
                  path(), QString::fromLocal8Bit(std::strerror(EFBIG))));
    EXPECT_EQ(readFile(path()), before);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList {u"backup.xml"_s});
}

} // namespace
