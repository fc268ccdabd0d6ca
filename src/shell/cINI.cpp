#include "cINI.h"

#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QSaveFile>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

struct ParsedFile
{
    QList<QByteArray> lines;
    QByteArray eol = "\r\n";
    bool endsWithEol = true;
};

ParsedFile splitLines(const QByteArray &content)
{
    ParsedFile f;
    if (content.isEmpty())
        return f;
    if (!content.contains("\r\n") && content.contains('\n'))
        f.eol = "\n";
    f.endsWithEol = content.endsWith('\n');
    f.lines = QByteArray(content).replace("\r\n", "\n").split('\n');
    if (f.endsWithEol)
        f.lines.removeLast();
    return f;
}

// The section name of a line "[name]", if it is one.
std::optional<QByteArray> sectionOf(const QByteArray &line)
{
    const QByteArray t = line.trimmed();
    const qsizetype close = t.indexOf(']');
    if (!t.startsWith('[') || close < 0)
        return std::nullopt;
    return t.mid(1, close - 1).trimmed();
}

// The key and value of a line "key=value", if it is one (comments and blank lines are not).
bool keyValueOf(const QByteArray &line, QByteArray *key, QByteArray *value)
{
    const QByteArray t = line.trimmed();
    if (t.isEmpty() || t.startsWith(';') || t.startsWith('#') || t.startsWith('['))
        return false;
    const qsizetype eq = t.indexOf('=');
    if (eq < 0)
        return false;
    *key = t.left(eq).trimmed();
    *value = t.mid(eq + 1).trimmed();
    return true;
}

bool sameName(const QByteArray &a, const QString &b)
{
    return QString::fromLatin1(a).compare(b, Qt::CaseInsensitive) == 0;
}

QString unquoted(QString v)
{
    v = v.trimmed();
    if (v.size() >= 2 && (v.front() == u'"' || v.front() == u'\'') && v.back() == v.front())
        v = v.mid(1, v.size() - 2);
    return v;
}

// Where an entry stands: the line of its section (the first of that name), the last line of that
// section that is not blank, and the entry's own line; -1 for what is not there.
struct Place
{
    qsizetype section = -1;
    qsizetype lastLine = -1;
    qsizetype entry = -1;
};

Place locate(const ParsedFile &f, const QString &sectionName, const QString &entryName)
{
    Place place;
    for (qsizetype i = 0; i < f.lines.size(); ++i) {
        if (const auto section = sectionOf(f.lines[i])) {
            if (place.section >= 0)
                break;
            if (sameName(*section, sectionName)) {
                place.section = i;
                place.lastLine = i;
            }
            continue;
        }
        if (place.section < 0)
            continue;
        QByteArray key, value;
        if (!f.lines[i].trimmed().isEmpty())
            place.lastLine = i;
        if (keyValueOf(f.lines[i], &key, &value) && sameName(key, entryName)) {
            place.entry = i;
            break;
        }
    }
    return place;
}

// Puts newLine in place of the entry's line, or appends it to its section, or appends the
// section with it.
void setLine(ParsedFile &f, const QString &sectionName, const QString &entryName,
             const QByteArray &newLine)
{
    const Place place = locate(f, sectionName, entryName);
    if (place.entry >= 0) {
        f.lines[place.entry] = newLine;
    } else if (place.section >= 0) {
        f.lines.insert(place.lastLine + 1, newLine);
    } else {
        f.lines.append('[' + sectionName.toLatin1() + ']');
        f.lines.append(newLine);
        f.endsWithEol = true;
    }
}

} // namespace

QString cINI::GetValue(const QString &sectionName, const QString &entryName,
                       const QString &defaultValue) const
{
    QString result = defaultValue.trimmed();
    QFile file(m_path);
    if (!m_path.isEmpty() && file.open(QIODevice::ReadOnly)) {
        const ParsedFile f = splitLines(file.readAll());
        const qsizetype line = locate(f, sectionName, entryName).entry;
        QByteArray key, value;
        if (line >= 0 && keyValueOf(f.lines[line], &key, &value))
            result = unquoted(QString::fromLatin1(value));
    }
    return result.left(kMaxValueLength);
}

bool cINI::GetBoolValue(const QString &sectionName, const QString &entryName,
                        bool defaultValue) const
{
    return GetValue(sectionName, entryName, defaultValue ? u"1"_s : u"0"_s) != u"0"_s;
}

qint32 cINI::GetIntValue(const QString &sectionName, const QString &entryName,
                         qint32 defaultValue) const
{
    bool ok = false;
    const qint32 n = GetValue(sectionName, entryName, QString::number(defaultValue)).toInt(&ok);
    return ok ? n : defaultValue;
}

bool cINI::SetValue(const QString &sectionName, const QString &entryName, const QString &newValue)
{
    m_error.clear();
    if (m_path.isEmpty()) {
        m_error = u"no settings file set"_s;
        return false;
    }
    // A file made read-only stays as it is, also for root, who could replace it.
    const QFileInfo info(m_path);
    constexpr auto kAnyWrite =
        QFileDevice::WriteOwner | QFileDevice::WriteGroup | QFileDevice::WriteOther;
    if (info.exists() && !(info.permissions() & kAnyWrite)) {
        m_error = u"the settings file %1 is read-only"_s.arg(m_path);
        return false;
    }
    QByteArray content;
    {
        QFile file(m_path);
        if (file.exists()) {
            if (!file.open(QIODevice::ReadOnly)) {
                m_error = u"cannot read %1: %2"_s.arg(m_path, file.errorString());
                return false;
            }
            content = file.readAll();
        }
    }
    ParsedFile f = splitLines(content);
    setLine(f, sectionName, entryName, entryName.toLatin1() + '=' + newValue.toLatin1());
    QByteArray out = f.lines.join(f.eol);
    if (f.endsWithEol || !content.isEmpty())
        out += f.eol;

    QSaveFile save(m_path);
    // Unbuffered, so a write that fails (a full disk) is seen before the commit replaces the file.
    if (!save.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || save.write(out) != out.size() ||
        !save.commit()) {
        m_error = u"cannot write %1: %2"_s.arg(m_path, save.errorString());
        return false;
    }
    return true;
}
