#include "Trace.h"

Trace::Trace() = default;
Trace::~Trace() = default;

void Trace::add(qint64 timeMs, Entry::Kind kind, const QByteArray &text)
{
    m_entries.push_back({timeMs, kind, text});
    if (m_log) {
        m_log->write(format(m_entries.back()) + '\n');
        m_log->flush();
    }
}

QByteArrayList Trace::texts(Entry::Kind kind) const
{
    QByteArrayList out;
    for (const Entry &e : m_entries) {
        if (e.kind == kind)
            out << e.text;
    }
    return out;
}

QByteArrayList Trace::exchange() const
{
    QByteArrayList out;
    for (const Entry &e : m_entries) {
        if (e.kind == Entry::Received)
            out << "< " + e.text;
        else if (e.kind == Entry::Sent)
            out << "> " + e.text;
    }
    return out;
}

bool Trace::setLogFile(const QString &path)
{
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    m_log = std::move(file);
    return true;
}

QByteArray Trace::printable(const QByteArray &bytes)
{
    QByteArray out;
    for (char c : bytes) {
        const quint8 b = quint8(c);
        if (b >= 0x20 && b < 0x7F && c != '\\') {
            out.append(c);
        } else {
            out.append("\\x");
            out.append(QByteArray::number(b, 16).rightJustified(2, '0').toUpper());
        }
    }
    return out;
}

QByteArray Trace::format(const Entry &entry)
{
    static const char marks[] = {'<', '<', '>', '*'};
    const QByteArray time = QByteArray::number(double(entry.timeMs) / 1000.0, 'f', 3);
    return time.rightJustified(10) + ' ' + marks[entry.kind] + ' ' + printable(entry.text);
}
