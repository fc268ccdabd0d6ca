// The backup document: any file opens without harm, and what is saved opens again the same; no
// value of a file that the restore accepts puts a byte below 0x20 on the wire.
//
// An input starting with the byte 0x01 builds a document from its fields (values of every byte)
// and checks that each value comes back byte for byte; any other input is a file to be opened.

#include "FuzzSupport.h"
#include "backup/cBackup.h"
#include "backup/cXML.h"
#include "link/UpdaterError.h"

#include <QFile>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QStringList kBoards = {u"Mainboard"_s, u"Measureboard"_s, u"CPUboard"_s};

QString fileIn(const QString &name)
{
    return fuzz::scratchFolder().filePath(name);
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The restore telegrams of every board, or "!" + the error for a board that has none.
QList<QByteArray> telegramsOf(const cXML &xml)
{
    QList<QByteArray> all;
    for (const QString &board : kBoards) {
        QList<QByteArray> telegrams;
        try {
            xml.GetTelegramsFromXML(board, telegrams);
        } catch (const UpdaterError &) {
            telegrams = {QByteArrayLiteral("!")};
        }
        all += telegrams;
        all.append(QByteArrayLiteral("|"));
    }
    return all;
}

// Opens the file, saves what was read, opens that again: both documents agree board by board
// and in their telegrams, and a second save writes the same bytes as the first.
void openSaveOpen(const QByteArray &content)
{
    const QString source = fileIn(u"in.xml"_s);
    {
        QFile file(source);
        FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        FUZZ_CHECK(file.write(content) == content.size());
    }
    cXML first;
    first.CreateXMLDocument(fileIn(u"first.xml"_s));
    if (!first.OpenXMLDocument(source)) {
        FUZZ_CHECK(!first.errorString().isEmpty());
        return;
    }
    const QList<QByteArray> telegrams = telegramsOf(first);
    // A restore sends these telegrams one line each: a control byte would end or split one.
    if (cBackup::CheckBackupFile(source).error.isEmpty()) {
        for (const QByteArray &telegram : telegrams) {
            FUZZ_CHECK(telegram.size() <= cBackup::kMaxTelegramBytes);
            FUZZ_CHECK(std::none_of(telegram.cbegin(), telegram.cend(),
                                    [](char c) { return quint8(c) < 0x20; }));
        }
    }
    try {
        first.SaveXMLDoc();
    } catch (const UpdaterError &) {
        // A name or text that XML cannot carry again (a loaded document holds none; kept for
        // what the writer refuses).
        return;
    }

    cXML second;
    second.CreateXMLDocument(fileIn(u"second.xml"_s));
    FUZZ_CHECK(second.OpenXMLDocument(fileIn(u"first.xml"_s)));
    for (const QString &board : kBoards) {
        const QString difference = first.FirstDifference(second, board);
        FUZZ_CHECK(difference.isEmpty() || difference.endsWith(u"missing in both documents"_s));
    }
    FUZZ_CHECK(telegramsOf(second) == telegrams);
    second.SaveXMLDoc();
    FUZZ_CHECK(contentOf(fileIn(u"second.xml"_s)) == contentOf(fileIn(u"first.xml"_s)));
}

// Builds a backup-shaped document whose values are the input's fields, saves it and opens it
// again: every value that may be stored comes back byte for byte.
void buildSaveOpen(const QByteArray &input)
{
    const QList<QByteArray> values = input.split('\x01');
    cXML xml;
    xml.CreateXMLDocument(fileIn(u"built.xml"_s));
    xml.CreateAndSetChild(u"Mainboard"_s, {});
    QList<QByteArray> expected;
    for (const QByteArray &value : values) {
        const QByteArray telegram = value.left(3);
        try {
            xml.CreateAndSetChild(u"Value"_s, value);
        } catch (const UpdaterError &) {
            // Refused: a byte below 0x20 other than TAB, LF and CR.
            FUZZ_CHECK(std::any_of(value.cbegin(), value.cend(), [](char c) {
                return quint8(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
            }));
            continue;
        }
        xml.SetAttribute(u"Telegram"_s, telegram);
        xml.SetParent();
        expected.append(telegram + ';' + value);
    }
    xml.SaveXMLDoc();

    cXML again;
    FUZZ_CHECK(again.OpenXMLDocument(fileIn(u"built.xml"_s)));
    QList<QByteArray> telegrams;
    again.GetTelegramsFromXML(u"Mainboard"_s, telegrams);
    FUZZ_CHECK(telegrams == expected);
    FUZZ_CHECK(again.FirstDifference(xml, u"Mainboard"_s).isEmpty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FUZZ_CHECK(fuzz::scratchFolder().isValid());
    const QByteArray input = fuzz::bytes(data, size);
    if (input.startsWith('\x01'))
        buildSaveOpen(input.mid(1));
    else
        openSaveOpen(input);
    return 0;
}
