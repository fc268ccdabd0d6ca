#pragma once

#include "link/LogSink.h"

#include <QMutex>
#include <QString>
#include <functional>
#include <optional>

class Clock;

// The updater's log file. Every entry opens the file for appending, writes one line and closes it
// again, so each entry is on disk when UpdateLog returns. A line is "hh:mm:ss : ", the indent as
// TAB characters, the text and CR LF; text is written as Latin-1, one byte per character, so
// telegram bytes 0-255 reach the file unchanged.
//
// Thread-safe: the windows and the engine thread write through the same object; entries appear in
// the order the calls took the lock.
class cLog : public LogSink
{
public:
    // clock: whose local time stamps the entries (the system clock when none is given).
    explicit cLog(Clock *clock = nullptr)
        : m_clock(clock)
    {
    }

    // Stores the path; opens nothing.
    void Init(const QString &path);
    QString path() const;

    // Opens the file for appending (creating it); sets logging on. False for an empty path or a
    // file that cannot be opened (errorString() says why).
    bool OpenLog();

    // Writes one entry when logging is on. additionalTabs adds to the default indent; a negative
    // newline puts that many empty lines before the entry, a positive one that many after it.
    // Returns false when the entry could not be written (errorString() says why); true also when
    // logging is off and nothing was written.
    bool UpdateLog(const QString &entry, std::optional<int> additionalTabs,
                   std::optional<int> newline = std::nullopt);
    bool UpdateLog(const QString &entry) override { return UpdateLog(entry, std::nullopt); }

    void SetTabs(quint8 count);
    quint8 tabs() const;

    // false first writes "..." (which reaches the file only when logging was on), then switches
    // logging off; true switches it on and writes nothing.
    bool Setlogging(bool enabled);
    bool isLogging() const;

    QString errorString() const;

    // Called with the bytes of every entry written to the file, as they were written (the
    // terminal front end's -v shows them). Called with the log's lock held: it must not write to
    // the log itself.
    void setEcho(std::function<void(const QByteArray &bytes)> echo);

private:
    bool writeEntryLocked(const QString &entry, std::optional<int> additionalTabs,
                          std::optional<int> newline);

    mutable QMutex m_mutex;
    Clock *m_clock = nullptr;
    std::function<void(const QByteArray &)> m_echo;
    QString m_path;
    quint8 m_defaultIndent = 0;
    bool m_enabled = false;
    QString m_error;
};
