#include "FaultInjector.h"

void FaultInjector::add(const FaultRule &rule, qint64 nowMs)
{
    m_rules.push_back({rule, nowMs});
}

bool FaultInjector::strikes(Active &a)
{
    ++a.matches;
    if (a.matches < a.rule.nth)
        return false;
    if (a.rule.count != FaultRule::kForever && a.acted >= a.rule.count)
        return false;
    ++a.acted;
    return true;
}

FaultInjector::Fate FaultInjector::onTelegram(const QByteArray &telegram, QByteArray *replacement,
                                              bool *unplug, QByteArrayList *acted)
{
    Fate fate = Fate::Pass;
    *unplug = false;
    for (Active &a : m_rules) {
        const FaultRule &r = a.rule;
        const bool telegramRule = (r.action == FaultRule::Action::Silent && !r.window) ||
            r.action == FaultRule::Action::Answer ||
            (r.action == FaultRule::Action::Unplug && r.packet == 0);
        if (!telegramRule || (!r.telegram.isEmpty() && r.telegram != telegram))
            continue;
        if (!strikes(a))
            continue;
        acted->append(r.toText());
        if (r.action == FaultRule::Action::Unplug) {
            *unplug = true;
        } else if (fate == Fate::Pass) {
            fate = r.action == FaultRule::Action::Silent ? Fate::Ignore : Fate::Replace;
            *replacement = r.text;
        }
    }
    return fate;
}

bool FaultInjector::refuseBlock(int index, QByteArrayList *acted)
{
    bool refuse = false;
    for (Active &a : m_rules) {
        if (a.rule.action != FaultRule::Action::Nak || a.rule.packet != index)
            continue;
        if (a.rule.count == FaultRule::kForever || a.acted < a.rule.count) {
            ++a.acted;
            acted->append(a.rule.toText());
            refuse = true;
        }
    }
    return refuse;
}

bool FaultInjector::unplugAfterBlock(int index, QByteArrayList *acted)
{
    for (Active &a : m_rules) {
        if (a.rule.action == FaultRule::Action::Unplug && a.rule.packet == index && a.acted == 0) {
            ++a.acted;
            acted->append(a.rule.toText());
            return true;
        }
    }
    return false;
}

bool FaultInjector::silentAt(qint64 nowMs) const
{
    for (const Active &a : m_rules) {
        const FaultRule &r = a.rule;
        if (r.action != FaultRule::Action::Silent || !r.window)
            continue;
        const qint64 from = a.addedMs + r.atMs;
        if (nowMs >= from && (r.forMs == FaultRule::kForever || nowMs < from + r.forMs))
            return true;
    }
    return false;
}

QByteArray FaultInjector::filter(FaultRule::Direction direction, const QByteArray &bytes,
                                 QByteArrayList *acted)
{
    QByteArray out = bytes;
    for (Active &a : m_rules) {
        const FaultRule &r = a.rule;
        if ((r.action != FaultRule::Action::Drop && r.action != FaultRule::Action::Corrupt) ||
            r.direction != direction)
            continue;
        QByteArray next;
        bool struck = false;
        for (char c : out) {
            ++a.bytesSeen;
            const bool hit = a.bytesSeen >= r.byte &&
                (r.count == FaultRule::kForever || a.bytesSeen < r.byte + r.count);
            struck = struck || hit;
            if (!hit)
                next.append(c);
            else if (r.action == FaultRule::Action::Corrupt)
                next.append(char(~c));
        }
        if (struck)
            acted->append(r.toText());
        out = next;
    }
    return out;
}
