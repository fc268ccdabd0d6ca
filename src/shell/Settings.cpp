#include "Settings.h"

#include "cINI.h"

using namespace Qt::StringLiterals;

namespace {
const QString kSection = u"Settings"_s;
const QString kComPort = u"COMPort"_s;
const QString kLastBackupFileName = u"LastBackupFileName"_s;
const QString kXModemWaitTime = u"XModemWaitTime"_s;
const QString kDefaultBackupFileName = u"VarimoSentry_Backup.xml"_s;
constexpr qint32 kDefaultRetryUpdates = 5;
} // namespace

Settings Settings::read(const cINI &ini)
{
    Settings s;
    s.comPort = ini.GetValue(kSection, kComPort, u"COM1"_s);
    s.backupFileName = ini.GetValue(kSection, u"BackupFileName"_s, kDefaultBackupFileName);
    s.lastBackupFileName = ini.GetValue(kSection, kLastBackupFileName, kDefaultBackupFileName);
    s.logParserTele = ini.GetBoolValue(kSection, u"LogParserTele"_s, true);
    s.xmodemWaitTimeMs = ini.GetIntValue(kSection, kXModemWaitTime, 1);
    const qint32 retries = ini.GetIntValue(kSection, u"RetryUpdates"_s, kDefaultRetryUpdates);
    s.retryUpdates =
        retries >= -32768 && retries <= 32767 ? qint16(retries) : qint16(kDefaultRetryUpdates);
    s.allowDowngrade = ini.GetBoolValue(kSection, u"AllowDowngrade"_s, false);
    for (const BoardKind kind : kPanelOrder) {
        const BoardFacts &facts = boardFacts(kind);
        const QString section = QString::fromLatin1(facts.section);
        s.patterns[kind] =
            ini.GetValue(section, u"File"_s, QString::fromLatin1(facts.defaultPattern));
        s.minimumVersions[kind] =
            ini.GetValue(section, u"FWMin"_s, QString::fromLatin1(facts.minimumVersion));
    }
    return s;
}

QString Settings::harmfulSetting() const
{
    if (xmodemWaitTimeMs < 0 || xmodemWaitTimeMs > kMaxXmodemWaitTimeMs) {
        return u"The setting %1=%2 in section [%3] of the settings file is out of range: allowed "
               "are 0 to %4 ms. Nothing was sent to VARIMOsentry."_s.arg(kXModemWaitTime)
                   .arg(xmodemWaitTimeMs)
                   .arg(kSection)
                   .arg(kMaxXmodemWaitTimeMs);
    }
    return {};
}

bool Settings::saveComPort(cINI &ini, const QString &port)
{
    return ini.SetValue(kSection, kComPort, port);
}

void Settings::saveLastBackupFileName(cINI &ini, const QString &name)
{
    ini.SetValue(kSection, kLastBackupFileName, name);
}
