// The settings file: any content reads without harm, a value read is never longer than 49
// characters, and a value written reads back as written.
//
// Input: section LF key LF value LF file content.

#include "FuzzSupport.h"
#include "shell/cINI.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Names a line of the file cannot mistake for something else.
bool plainName(const QString &name)
{
    return !name.trimmed().isEmpty() && std::all_of(name.cbegin(), name.cend(), [](QChar c) {
        return c.isLetterOrNumber() && c.unicode() < 0x80;
    });
}

} // namespace

FUZZ_TARGET(input)
{
    const QList<QByteArray> parts = fuzz::fields(input, 4);
    const QString section = QString::fromLatin1(parts[0]);
    const QString key = QString::fromLatin1(parts[1]);
    const QString value = QString::fromLatin1(parts[2]);
    const QString path = fuzz::scratchFile(u"VarimoSentry_Updater.ini"_s, parts[3]);

    cINI ini;
    ini.Init(path);
    const QString longDefault = u"  a default far longer than the forty-nine characters a read "
                                "returns  "_s;
    const QString read = ini.GetValue(section, key, longDefault);
    FUZZ_CHECK(read.size() <= cINI::kMaxValueLength);
    const qint32 number = ini.GetIntValue(section, key, -7);
    if (number != -7)
        FUZZ_CHECK(read.toInt() == number);
    FUZZ_CHECK(ini.GetBoolValue(section, key, true) == (read != u"0"_s));

    if (!plainName(section) || !plainName(key) || value.contains(u'\r') || value.contains(u'\n'))
        return;
    FUZZ_CHECK(ini.SetValue(section, key, value));
    const QString back = ini.GetValue(section, key, longDefault);
    const QString trimmed = value.trimmed();
    if (!trimmed.startsWith(u'"') && !trimmed.startsWith(u'\''))
        FUZZ_CHECK(back == trimmed.left(cINI::kMaxValueLength));
    else
        FUZZ_CHECK(back.size() <= cINI::kMaxValueLength);
}
