#include "cLog.h"

#include "link/Clock.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace {
SystemClock g_systemClock;
}

void cLog::Init(const QString &path)
{
    QMutexLocker lock(&m_mutex);
    m_path = path;
}

QString cLog::path() const
{
    QMutexLocker lock(&m_mutex);
    return m_path;
}

bool cLog::OpenLog()
{
    QMutexLocker lock(&m_mutex);
    if (m_path.isEmpty()) {
        m_error = u"no log file set"_s;
        return false;
    }
    QFile file(m_path);
    if (!file.open(QIODevice::Append)) {
        m_error = u"cannot open log file %1: %2"_s.arg(m_path, file.errorString());
        return false;
    }
    m_enabled = true;
    return true;
}

bool cLog::UpdateLog(const QString &entry, std::optional<int> additionalTabs,
                     std::optional<int> newline)
{
    QMutexLocker lock(&m_mutex);
    return writeEntryLocked(entry, additionalTabs, newline);
}

bool cLog::writeEntryLocked(const QString &entry, std::optional<int> additionalTabs,
                            std::optional<int> newline)
{
    if (!m_enabled)
        return true;

    if (m_path.isEmpty()) {
        m_error = u"cannot write to the log: no log file set"_s;
        return false;
    }
    QFile file(m_path);
    const auto fail = [this, &file] {
        m_error = u"cannot write to the log file %1: %2"_s.arg(m_path, file.errorString());
        return false;
    };
    if (!file.open(QIODevice::Append))
        return fail();

    int indent = m_defaultIndent + additionalTabs.value_or(0);
    QByteArray text(qMax(indent, 0), '\t');
    text += entry.toLatin1();

    // Empty lines before the entry (a negative newline) or after it (a positive one).
    const int lines = newline.value_or(0);
    QByteArray out = QByteArrayLiteral("\r\n").repeated(qMax(-lines, 0));
    text += QByteArrayLiteral("\r\n").repeated(qMax(lines, 0));

    const QDateTime now = (m_clock ? m_clock : &g_systemClock)->now();
    out += now.toString(u"HH:mm:ss"_s).toLatin1() + " : " + text + "\r\n";

    if (m_echo)
        m_echo(out);
    if (file.write(out) != out.size() || !file.flush())
        return fail();
    file.close();
    if (file.error() != QFileDevice::NoError)
        return fail();
    return true;
}

void cLog::setEcho(std::function<void(const QByteArray &bytes)> echo)
{
    QMutexLocker lock(&m_mutex);
    m_echo = std::move(echo);
}

void cLog::SetTabs(quint8 count)
{
    QMutexLocker lock(&m_mutex);
    m_defaultIndent = count;
}

quint8 cLog::tabs() const
{
    QMutexLocker lock(&m_mutex);
    return m_defaultIndent;
}

bool cLog::Setlogging(bool enabled)
{
    QMutexLocker lock(&m_mutex);
    bool ok = true;
    if (!enabled)
        ok = writeEntryLocked(u"..."_s, std::nullopt, std::nullopt);
    m_enabled = enabled;
    return ok;
}

bool cLog::isLogging() const
{
    QMutexLocker lock(&m_mutex);
    return m_enabled;
}

QString cLog::errorString() const
{
    QMutexLocker lock(&m_mutex);
    return m_error;
}
