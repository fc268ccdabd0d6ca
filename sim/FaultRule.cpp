#include "FaultRule.h"

#include <QHash>
#include <QMap>
#include <limits>

using namespace Qt::StringLiterals;

FaultRule FaultRule::ignoreTelegram(const QByteArray &telegram, int count, int nth)
{
    FaultRule r;
    r.action = Action::Silent;
    r.telegram = telegram;
    r.count = count;
    r.nth = nth;
    return r;
}

FaultRule FaultRule::silence(qint64 atMs, qint64 forMs)
{
    FaultRule r;
    r.action = Action::Silent;
    r.window = true;
    r.atMs = atMs;
    r.forMs = forMs;
    return r;
}

FaultRule FaultRule::answerInstead(const QByteArray &telegram, const QByteArray &text, int count,
                                   int nth)
{
    FaultRule r;
    r.action = Action::Answer;
    r.telegram = telegram;
    r.text = text;
    r.count = count;
    r.nth = nth;
    return r;
}

FaultRule FaultRule::nakPacket(int packet, int times)
{
    FaultRule r;
    r.action = Action::Nak;
    r.packet = packet;
    r.count = times;
    return r;
}

FaultRule FaultRule::dropBytes(Direction direction, qint64 byte, int count)
{
    FaultRule r;
    r.action = Action::Drop;
    r.direction = direction;
    r.byte = byte;
    r.count = count;
    return r;
}

FaultRule FaultRule::corruptBytes(Direction direction, qint64 byte, int count)
{
    FaultRule r = dropBytes(direction, byte, count);
    r.action = Action::Corrupt;
    return r;
}

FaultRule FaultRule::unplugAfterTelegram(int nth, const QByteArray &telegram)
{
    FaultRule r;
    r.action = Action::Unplug;
    r.nth = nth;
    r.telegram = telegram;
    return r;
}

FaultRule FaultRule::unplugAfterPacket(int packet)
{
    FaultRule r;
    r.action = Action::Unplug;
    r.packet = packet;
    return r;
}

namespace {

const QMap<QByteArray, FaultRule::Action> &actionNames()
{
    static const QMap<QByteArray, FaultRule::Action> names {
        {"silent", FaultRule::Action::Silent},   {"answer", FaultRule::Action::Answer},
        {"nak", FaultRule::Action::Nak},         {"drop", FaultRule::Action::Drop},
        {"corrupt", FaultRule::Action::Corrupt}, {"unplug", FaultRule::Action::Unplug},
    };
    return names;
}

QByteArrayList allowedKeys(FaultRule::Action action)
{
    switch (action) {
    case FaultRule::Action::Silent:
        return {"telegram", "nth", "count", "at", "for"};
    case FaultRule::Action::Answer:
        return {"text", "telegram", "nth", "count"};
    case FaultRule::Action::Nak:
        return {"packet", "count"};
    case FaultRule::Action::Drop:
    case FaultRule::Action::Corrupt:
        return {"dir", "byte", "count"};
    case FaultRule::Action::Unplug:
        return {"telegram", "nth", "packet"};
    }
    return {};
}

// Splits at blanks outside double quotes and resolves the escapes. False on a bad escape or an
// open quote.
bool tokenize(const QByteArray &text, QByteArrayList *tokens, QString *error)
{
    QByteArray current;
    bool inToken = false;
    bool quoted = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        if (c == '"') {
            quoted = !quoted;
            inToken = true;
            continue;
        }
        if (!quoted && (c == ' ' || c == '\t')) {
            if (inToken)
                *tokens << current;
            current.clear();
            inToken = false;
            continue;
        }
        inToken = true;
        if (c != '\\') {
            current.append(c);
            continue;
        }
        if (++i >= text.size()) {
            *error = u"a \\ at the end"_s;
            return false;
        }
        switch (text.at(i)) {
        case 'r':
            current.append('\r');
            break;
        case 'n':
            current.append('\n');
            break;
        case 't':
            current.append('\t');
            break;
        case 'x': {
            const QByteArray hex = text.mid(i + 1, 2);
            bool ok = false;
            const int value = hex.toInt(&ok, 16);
            if (hex.size() != 2 || !ok) {
                *error = u"\\x needs two hex digits"_s;
                return false;
            }
            current.append(char(value));
            i += 2;
            break;
        }
        default:
            current.append(text.at(i));
        }
    }
    if (quoted) {
        *error = u"a quote is not closed"_s;
        return false;
    }
    if (inToken)
        *tokens << current;
    return true;
}

QByteArray quoted(const QByteArray &value)
{
    QByteArray out = "\"";
    for (char c : value) {
        const quint8 b = quint8(c);
        if (c == '"' || c == '\\')
            out += '\\' + QByteArray(1, c);
        else if (b < 0x20 || b >= 0x7F)
            out += "\\x" + QByteArray::number(b, 16).rightJustified(2, '0');
        else
            out += c;
    }
    return out + '"';
}

} // namespace

FaultRule::ParseResult FaultRule::parse(const QString &text)
{
    ParseResult result;
    QByteArrayList tokens;
    if (!tokenize(text.toLatin1(), &tokens, &result.error))
        return result;
    if (tokens.isEmpty()) {
        result.error = u"empty rule"_s;
        return result;
    }
    const QByteArray actionName = tokens.takeFirst();
    if (!actionNames().contains(actionName)) {
        result.error = u"unknown action '%1' (silent, answer, nak, drop, corrupt, unplug)"_s.arg(
            QString::fromLatin1(actionName));
        return result;
    }
    FaultRule r;
    r.action = actionNames().value(actionName);
    QHash<QByteArray, QByteArray> args;
    for (const QByteArray &token : tokens) {
        const qsizetype eq = token.indexOf('=');
        if (eq <= 0) {
            result.error = u"'%1' is not key=value"_s.arg(QString::fromLatin1(token));
            return result;
        }
        args.insert(token.left(eq), token.mid(eq + 1));
    }

    for (auto it = args.cbegin(); it != args.cend(); ++it) {
        if (!allowedKeys(r.action).contains(it.key())) {
            result.error = u"'%1' does not go with %2"_s.arg(QString::fromLatin1(it.key()),
                                                             QString::fromLatin1(actionName));
            return result;
        }
    }

    // nth, count and packet are ints: a larger number would wrap (count=2147483648 became a
    // negative count).
    constexpr qint64 kIntMax = std::numeric_limits<int>::max();
    constexpr qint64 kLongMax = std::numeric_limits<qint64>::max();
    auto number = [&](const char *key, qint64 *out, qint64 min, qint64 max, bool foreverAllowed) {
        if (!args.contains(key))
            return true;
        const QByteArray v = args.value(key);
        if (foreverAllowed && v == "ever") {
            *out = kForever;
            return true;
        }
        bool ok = false;
        const qint64 n = v.toLongLong(&ok);
        if (!ok || n < min || n > max) {
            result.error = u"%1=%2: expected a number from %3 to %4%5"_s.arg(
                QString::fromLatin1(key), QString::fromLatin1(v), QString::number(min),
                QString::number(max), foreverAllowed ? u" or ever"_s : QString());
            return false;
        }
        *out = n;
        return true;
    };
    qint64 nth = 1, count = 1, packet = 0, at = 0, forMs = kForever, byte = 1;
    if (!number("nth", &nth, 1, kIntMax, false) || !number("count", &count, 1, kIntMax, true) ||
        !number("packet", &packet, 1, kIntMax, false) || !number("at", &at, 0, kLongMax, false) ||
        !number("for", &forMs, 1, kLongMax, true) || !number("byte", &byte, 1, kLongMax, false))
        return result;
    r.nth = int(nth);
    r.count = int(count);
    r.packet = int(packet);
    r.atMs = at;
    r.forMs = forMs;
    r.byte = byte;
    r.telegram = args.value("telegram");
    r.text = args.value("text");

    switch (r.action) {
    case Action::Silent:
        r.window = args.contains("at") || args.contains("for") ||
            (!args.contains("telegram") && !args.contains("nth") && !args.contains("count"));
        if (r.window &&
            (args.contains("telegram") || args.contains("nth") || args.contains("count"))) {
            result.error =
                u"silent takes either a telegram (telegram, nth, count) or a time (at, for)"_s;
            return result;
        }
        break;
    case Action::Answer:
        if (!args.contains("text")) {
            result.error = u"answer needs text=..."_s;
            return result;
        }
        break;
    case Action::Nak:
        if (r.packet == 0) {
            result.error = u"nak needs packet=N"_s;
            return result;
        }
        break;
    case Action::Drop:
    case Action::Corrupt:
        if (args.value("dir") == "in") {
            r.direction = Direction::In;
        } else if (args.value("dir") == "out") {
            r.direction = Direction::Out;
        } else {
            result.error = u"%1 needs dir=in or dir=out"_s.arg(QString::fromLatin1(actionName));
            return result;
        }
        break;
    case Action::Unplug:
        if (r.packet != 0 && (args.contains("telegram") || args.contains("nth"))) {
            result.error = u"unplug takes either a telegram (telegram, nth) or packet=N"_s;
            return result;
        }
        break;
    }
    result.ok = true;
    result.rule = r;
    return result;
}

QByteArray FaultRule::toText() const
{
    QByteArray out = actionNames().key(action);
    auto add = [&out](const char *key, const QByteArray &value) {
        out += ' ' + QByteArray(key) + '=' + value;
    };
    auto num = [](qint64 n) { return n == kForever ? QByteArray("ever") : QByteArray::number(n); };
    const bool telegramTriggered = (action == Action::Silent && !window) ||
        action == Action::Answer || (action == Action::Unplug && packet == 0);
    if (action == Action::Answer)
        add("text", quoted(text));
    if (telegramTriggered) {
        if (!telegram.isEmpty())
            add("telegram", quoted(telegram));
        add("nth", num(nth));
        if (action != Action::Unplug)
            add("count", num(count));
    }
    if (action == Action::Silent && window) {
        add("at", num(atMs));
        add("for", num(forMs));
    }
    if (action == Action::Nak || (action == Action::Unplug && packet != 0))
        add("packet", num(packet));
    if (action == Action::Nak)
        add("count", num(count));
    if (action == Action::Drop || action == Action::Corrupt) {
        add("dir", direction == Direction::In ? "in" : "out");
        add("byte", num(byte));
        add("count", num(count));
    }
    return out;
}
