#include "FirmwareFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace modHelper {

namespace {

// A file-name wildcard ("*" any text, "?" one character) as a whole-name, case-insensitive
// expression; every other character stands for itself.
QRegularExpression wildcard(const QString &pattern)
{
    // Every "*" and "?" comes out of escape() as "\*" and "\?", the only places where a backslash
    // stands before them.
    const QString expression =
        QRegularExpression::escape(pattern).replace(u"\\*"_s, u".*"_s).replace(u"\\?"_s, u"."_s);
    return QRegularExpression(QRegularExpression::anchoredPattern(expression),
                              QRegularExpression::CaseInsensitiveOption |
                                  QRegularExpression::DotMatchesEverythingOption);
}

} // namespace

QString PatternPrefix(const QString &pattern)
{
    const qsizetype version = pattern.indexOf(u"XXX"_s);
    return version < 0 ? pattern : pattern.left(version);
}

QString FindNewestFile(const QString &dir, const QString &pattern)
{
    const QStringList files = ListFiles(dir, PatternPrefix(pattern), kFirmwareExtension.toString());
    return files.isEmpty() ? QString() : files.back();
}

QStringList ListFiles(const QString &dir, const QString &prefix, const QString &extension)
{
    QString pattern = prefix.trimmed().isEmpty() ? u"*."_s : u"*"_s + prefix + u"*."_s;
    pattern += extension.isEmpty() ? u"*"_s : extension;
    QStringList names =
        QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Unsorted).filter(wildcard(pattern));
    SortStrings(names);
    return names;
}

QString VersionFromFileName(const QString &fileName, const QString &pattern)
{
    QString rest = fileName;
    const QString prefix = PatternPrefix(pattern);
    if (!prefix.isEmpty())
        rest.remove(prefix, Qt::CaseInsensitive);
    rest = rest.trimmed();
    if (rest.size() < 3)
        return {};
    return rest.left(1) + u'.' + rest.mid(1, 2);
}

void SortStrings(QStringList &list)
{
    std::sort(list.begin(), list.end(),
              [](const QString &a, const QString &b) { return a.toUpper() < b.toUpper(); });
}

QString SplitPath(const QString &path, bool directory)
{
    qsizetype separator = path.lastIndexOf(u'\\');
#ifndef Q_OS_WIN
    separator = std::max(separator, path.lastIndexOf(u'/'));
#endif
    return directory ? path.left(separator + 1) : path.mid(separator + 1);
}

bool FileExists(const QString &path)
{
    return !path.isEmpty() && QFileInfo(path).isFile();
}

} // namespace modHelper
