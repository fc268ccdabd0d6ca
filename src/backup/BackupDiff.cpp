#include "BackupDiff.h"

#include "backup/cXML.h"

#include <QHash>
#include <QSet>

using namespace Qt::StringLiterals;

namespace BackupDiff {

namespace {

struct BoardName
{
    QString element;
    QString shown;
};

const BoardName kBoards[] = {
    {u"Mainboard"_s, u"Main Board"_s},
    {u"Measureboard"_s, u"Measuring Module"_s},
    {u"CPUboard"_s, u"CPU Board"_s},
};

QString valueKey(const cXML::BoardValue &v)
{
    return v.group.isEmpty() ? v.key : v.group + u' ' + v.key;
}

QString shown(const std::optional<QByteArray> &bytes)
{
    if (!bytes)
        return u"(missing)"_s;
    QString out = u"\""_s;
    for (const char ch : *bytes) {
        const auto b = static_cast<unsigned char>(ch);
        if (b < 0x20 || (b >= 0x7F && b < 0xA0) || b == '"' || b == '\\')
            out += u"\\x%1"_s.arg(uint(b), 2, 16, QLatin1Char('0'));
        else
            out += QChar(char16_t(b));
    }
    return out + u'"';
}

template<typename Pair>
void compareKeyed(const QString &board, bool identity, const QList<Pair> &first,
                  const QList<Pair> &second, QList<Difference> &out)
{
    QHash<QString, QByteArray> theirs;
    for (const Pair &p : second)
        theirs.insert(p.first, p.second);
    QSet<QString> seen;
    for (const Pair &p : first) {
        seen.insert(p.first);
        const auto it = theirs.constFind(p.first);
        if (it == theirs.cend())
            out.append({board, identity, p.first, p.second, std::nullopt});
        else if (*it != p.second)
            out.append({board, identity, p.first, p.second, *it});
    }
    for (const Pair &p : second) {
        if (!seen.contains(p.first))
            out.append({board, identity, p.first, std::nullopt, p.second});
    }
}

} // namespace

QList<Difference> Compare(const cXML &first, const cXML &second)
{
    QList<Difference> out;
    for (const BoardName &board : kBoards) {
        const bool inFirst = first.HasBoard(board.element);
        const bool inSecond = second.HasBoard(board.element);
        if (!inFirst && !inSecond)
            continue;
        if (!inFirst || !inSecond) {
            Difference d {board.shown, false, QString(), std::nullopt, std::nullopt};
            (inFirst ? d.first : d.second) = QByteArray("present");
            out.append(d);
            continue;
        }
        compareKeyed(board.shown, true, first.BoardIdentity(board.element),
                     second.BoardIdentity(board.element), out);

        using Keyed = std::pair<QString, QByteArray>;
        const auto keyed = [](const QList<cXML::BoardValue> &values) {
            // A key that comes again is told apart by its count: "Telegram=CH [2]".
            QList<Keyed> list;
            QHash<QString, int> count;
            for (const cXML::BoardValue &v : values) {
                const QString key = valueKey(v);
                const int n = ++count[key];
                list.append({n == 1 ? key : u"%1 [%2]"_s.arg(key).arg(n), v.value});
            }
            return list;
        };
        compareKeyed(board.shown, false, keyed(first.BoardValues(board.element)),
                     keyed(second.BoardValues(board.element)), out);
    }
    return out;
}

bool SameValues(const QList<Difference> &differences)
{
    for (const Difference &d : differences) {
        if (!d.identity)
            return false;
    }
    return true;
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
