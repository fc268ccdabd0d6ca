#pragma once

#include <QString>

// Where the link's lower layers write their log entries (telegrams, answers, file steps). The
// updater's log file implements it; tests may collect the entries instead.
//
// Implementations say on which threads they may be called.
class LogSink
{
public:
    virtual ~LogSink() = default;
    // Writes one entry at the current indentation; false when it could not be written.
    virtual bool UpdateLog(const QString &entry) = 0;
};
