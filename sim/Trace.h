#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QFile>
#include <QString>
#include <memory>
#include <vector>

// Everything the instrument received and sent, with its time: kept in memory for exact sequence
// assertions and, when a file is given, written line by line as a log.
//
// Log lines: "   12.345 < DHR;0" (received), "   12.350 > DHR;0" (sent), "   12.400 * key
// reset-zero" (what happened). Bytes outside printable ASCII are written as \xHH.
//
// Owned by an Instrument on its thread.
class Trace
{
public:
    struct Entry
    {
        enum Kind {
            Received, // a telegram (without CR LF)
            Block, // an XMODEM block or EOT received: text "block 3", "repeat 3", "EOT", ...
            Sent, // an answer (without CR LF), an announcement, "C", ACK (0x06), NAK (0x15)
            Event, // a key, power, flash, fault, the line opened or closed
        };
        qint64 timeMs;
        Kind kind;
        QByteArray text;
    };

    Trace();
    ~Trace();

    void add(qint64 timeMs, Entry::Kind kind, const QByteArray &text);
    const std::vector<Entry> &entries() const { return m_entries; }
    void clear() { m_entries.clear(); }

    // The texts of one kind, in order.
    QByteArrayList texts(Entry::Kind kind) const;
    // Received and sent texts as "< text" and "> text" lines (events left out), for comparing a
    // whole exchange at once.
    QByteArrayList exchange() const;

    // Also writes every entry from now on to this file (appending). False when it cannot be opened.
    bool setLogFile(const QString &path);

    static QByteArray printable(const QByteArray &bytes);
    static QByteArray format(const Entry &entry);

private:
    std::vector<Entry> m_entries;
    std::unique_ptr<QFile> m_log;
};
