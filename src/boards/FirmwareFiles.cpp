#include "FirmwareFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <algorithm>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace modHelper {

namespace {

// A file-name wildcard ("*" any text, "?" one character) as a whole-name, case-insensitive
// expression; every other character stands for itself.
QRegularExpression wildcard(const QString &strPattern)
{
    QString expression;
    for (QChar c : strPattern) {
        if (c == u'*')
            expression += u".*"_s;
        else if (c == u'?')
            expression += u'.';
        else
            expression += QRegularExpression::escape(QString(c));
    }
    return QRegularExpression(QRegularExpression::anchoredPattern(expression),
                              QRegularExpression::CaseInsensitiveOption |
                                  QRegularExpression::DotMatchesEverythingOption);
}

} // namespace

QString PatternPrefix(const QString &strPattern)
{
    const qsizetype version = strPattern.indexOf(u"XXX"_s);
    return version < 0 ? strPattern : strPattern.left(version);
}

QString FindNewestFile(const QString &strDir, const QString &strPattern)
{
    const QStringList files =
        ListFiles(strDir, PatternPrefix(strPattern), kFirmwareExtension.toString());
    return files.isEmpty() ? QString() : files.back();
}

QStringList ListFiles(const QString &strDir, const QString &strPrefix, const QString &strExtension)
{
    QString pattern = strPrefix.trimmed().isEmpty() ? u"*."_s : u"*"_s + strPrefix + u"*."_s;
    pattern += strExtension.isEmpty() ? u"*"_s : strExtension;
    const QRegularExpression match = wildcard(pattern);

    QStringList names;
    const QStringList entries = QDir(strDir).entryList(QDir::Files | QDir::Hidden, QDir::Unsorted);
    for (const QString &name : entries) {
        if (match.match(name).hasMatch())
            names.append(name);
    }
    if (names.size() > 1)
        SortStrings(names);
    return names;
}

QString VersionFromFileName(const QString &strFileName, const QString &strPattern)
{
    QString rest = strFileName;
    const QString prefix = PatternPrefix(strPattern);
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

QString SplitPath(const QString &strPath, bool bDirectory)
{
    qsizetype separator = strPath.lastIndexOf(u'\\');
#ifndef Q_OS_WIN
    separator = std::max(separator, strPath.lastIndexOf(u'/'));
#endif
    return bDirectory ? strPath.left(separator + 1) : strPath.mid(separator + 1);
}

bool FileExists(const QString &strPath)
{
    return !strPath.isEmpty() && QFileInfo(strPath).isFile();
}

} // namespace modHelper
