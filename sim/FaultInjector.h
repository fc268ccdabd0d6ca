#pragma once

#include "FaultRule.h"

#include <QByteArrayList>
#include <vector>

// The rules in force and their counters. The instrument asks it at each point where a fault can
// strike.
//
// Owned by an Instrument on its thread.
class FaultInjector
{
public:
    enum class Fate { Pass, Ignore, Replace };

    void add(const FaultRule &rule, qint64 nowMs);
    void clear() { m_rules.clear(); }
    int ruleCount() const { return int(m_rules.size()); }

    // A telegram arrived. Ignore: the instrument never saw it. Replace: answer *replacement
    // instead. *unplug: pull the adapter once the answer is out. *acted names the rules that
    // struck, for the trace.
    Fate onTelegram(const QByteArray &telegram, QByteArray *replacement, bool *unplug,
                    QByteArrayList *acted);
    // A good new block arrived: true refuses it.
    bool refuseBlock(int index, QByteArrayList *acted);
    // A block was acknowledged: true pulls the adapter.
    bool unplugAfterBlock(int index, QByteArrayList *acted);
    // Whether the instrument keeps silent at this time.
    bool silentAt(qint64 nowMs) const;
    // Bytes on their way in or out, with drop and corrupt rules applied.
    QByteArray filter(FaultRule::Direction direction, const QByteArray &bytes,
                      QByteArrayList *acted);

private:
    struct Active
    {
        FaultRule rule;
        qint64 addedMs = 0;
        int matches = 0; // telegrams or arrivals matched so far
        int acted = 0; // times the rule struck
        qint64 bytesSeen = 0;
    };

    // Counts a match; true when the rule strikes on it.
    static bool strikes(Active &a);

    std::vector<Active> m_rules;
};
