#include "BackupDiff.h"

#include "backup/cXML.h"
#include "boards/Board.h"

#include <QHash>
#include <QSet>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace BackupDiff {

namespace {

QString shown(const std::optional<QByteArray> &bytes)
{
    const auto escape = [](char16_t c) {
        return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == u'"' || c == u'\\';
    };
    return bytes ? u'"' + escapedText(QString::fromLatin1(*bytes), escape) + u'"' : u"(missing)"_s;
}

// A named byte string: an attribute of the board, or a value under its key.
using Keyed = std::pair<QString, QByteArray>;

void compareKeyed(const QString &board, bool identity, const QList<Keyed> &first,
                  const QList<Keyed> &second, QList<Difference> &out)
{
    const QHash<QString, QByteArray> theirs(second.cbegin(), second.cend());
    QSet<QString> seen;
    for (const Keyed &p : first) {
        seen.insert(p.first);
        const auto it = theirs.constFind(p.first);
        if (it == theirs.cend())
            out.append({board, identity, p.first, p.second, std::nullopt});
        else if (*it != p.second)
            out.append({board, identity, p.first, p.second, *it});
    }
    for (const Keyed &p : second) {
        if (!seen.contains(p.first))
            out.append({board, identity, p.first, std::nullopt, p.second});
    }
}

} // namespace

QList<Difference> Compare(const cXML &first, const cXML &second)
{
    QList<Difference> out;
    for (const BoardKind kind : kUpdateOrder) {
        const QString element = QString::fromLatin1(boardFacts(kind).backupElement);
        const QString board = boardName(kind);
        const bool inFirst = first.HasBoard(element);
        const bool inSecond = second.HasBoard(element);
        if (!inFirst && !inSecond)
            continue;
        if (!inFirst || !inSecond) {
            Difference d {board, false, QString(), std::nullopt, std::nullopt};
            (inFirst ? d.first : d.second) = QByteArray("present");
            out.append(d);
            continue;
        }
        compareKeyed(board, true, first.BoardIdentity(element), second.BoardIdentity(element), out);

        const auto keyed = [](const QList<cXML::BoardValue> &values) {
            // A key that comes again is told apart by its count: "Telegram=CH [2]".
            QList<Keyed> list;
            QHash<QString, int> count;
            for (const cXML::BoardValue &v : values) {
                const QString key = v.group.isEmpty() ? v.key : v.group + u' ' + v.key;
                const int n = ++count[key];
                list.append({n == 1 ? key : u"%1 [%2]"_s.arg(key).arg(n), v.value});
            }
            return list;
        };
        compareKeyed(board, false, keyed(first.BoardValues(element)),
                     keyed(second.BoardValues(element)), out);
    }
    return out;
}

bool SameValues(const QList<Difference> &differences)
{
    return std::all_of(differences.cbegin(), differences.cend(),
                       [](const Difference &d) { return d.identity; });
}

QString Describe(const Difference &d)
{
    if (d.what.isEmpty())
        return u"%1: %2"_s.arg(
            d.board, d.first ? u"only in the first backup"_s : u"only in the second backup"_s);
    return u"%1  %2%3: %4 -> %5"_s.arg(d.board, d.identity ? u"identity "_s : QString(), d.what,
                                       shown(d.first), shown(d.second));
}

} // namespace BackupDiff
