// What firmware file names say: the version, the pattern's prefix, a path's parts, and the order
// of a list of names.
//
// Input: file name LF pattern LF names to sort, one a line.

#include "FuzzSupport.h"
#include "boards/FirmwareFiles.h"

#include <algorithm>

using namespace Qt::StringLiterals;

FUZZ_TARGET(input)
{
    const QList<QByteArray> parts = fuzz::fields(input, 3);
    const QString fileName = QString::fromLatin1(parts[0]);
    const QString pattern = QString::fromLatin1(parts[1]);

    const QString version = modHelper::VersionFromFileName(fileName, pattern);
    FUZZ_CHECK(version.isEmpty() || (version.size() == 4 && version.at(1) == u'.'));

    const QString prefix = modHelper::PatternPrefix(pattern);
    FUZZ_CHECK(pattern.startsWith(prefix) && !prefix.contains(u"XXX"_s));

    const QString directory = modHelper::SplitPath(fileName, true);
    const QString name = modHelper::SplitPath(fileName, false);
    FUZZ_CHECK(directory + name == fileName);
    FUZZ_CHECK(!name.contains(u'\\') && !name.contains(u'/'));
    FUZZ_CHECK(directory.isEmpty() || directory.endsWith(u'\\') || directory.endsWith(u'/'));

    QStringList names;
    for (const QByteArray &line : parts[2].split('\n'))
        names.append(QString::fromLatin1(line));
    QStringList sorted = names;
    modHelper::SortStrings(sorted);
    FUZZ_CHECK(
        std::is_sorted(sorted.cbegin(), sorted.cend(), [](const QString &a, const QString &b) {
            return a.toUpper() < b.toUpper();
        }));
    FUZZ_CHECK(std::is_permutation(sorted.cbegin(), sorted.cend(), names.cbegin(), names.cend()));
}
