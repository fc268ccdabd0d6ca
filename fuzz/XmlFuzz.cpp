// The backup document: any file opens without harm, and what is saved opens again the same; no
// value of a file that the restore accepts puts a byte below 0x20 on the wire. (That each value
// comes back byte for byte is the XML test's.)

#include "FuzzSupport.h"
#include "backup/cBackup.h"
#include "backup/cXML.h"
#include "link/UpdaterError.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QStringList kBoards = {u"Mainboard"_s, u"Measureboard"_s, u"CPUboard"_s};

// The restore telegrams of every board, or "!" for a board that has none.
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

} // namespace

// Opens the file, saves what was read, opens that again: both documents agree board by board
// and in their telegrams, and a second save writes the same bytes as the first.
FUZZ_TARGET(content)
{
    const QString source = fuzz::scratchFile(u"in.xml"_s, content);
    const QString firstFile = fuzz::scratchFile(u"first.xml"_s);
    const QString secondFile = fuzz::scratchFile(u"second.xml"_s);
    cXML first;
    first.CreateXMLDocument(firstFile);
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
    first.SaveXMLDoc(); // a loaded document holds nothing the writer refuses

    cXML second;
    second.CreateXMLDocument(secondFile);
    FUZZ_CHECK(second.OpenXMLDocument(firstFile));
    for (const QString &board : kBoards) {
        const QString difference = first.FirstDifference(second, board);
        FUZZ_CHECK(difference.isEmpty() || difference.endsWith(u"missing in both documents"_s));
    }
    FUZZ_CHECK(telegramsOf(second) == telegrams);
    second.SaveXMLDoc();
    FUZZ_CHECK(fuzz::contentOf(secondFile) == fuzz::contentOf(firstFile));
}
