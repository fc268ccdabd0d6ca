#include "AppInfo.h"

using namespace Qt::StringLiterals;

QString AppInfo::productTitle()
{
    return u"VARIMOsentry Firmware Updater"_s;
}

QString AppInfo::versionText()
{
    return u"%1.%2.%3"_s.arg(VARIMO_VERSION_MAJOR)
        .arg(VARIMO_VERSION_MINOR)
        .arg(VARIMO_VERSION_PATCH);
}
