#include "Eligibility.h"

#include "boards/cControler.h"
#include "shell/cINI.h"

using namespace Qt::StringLiterals;

namespace Eligibility {

namespace {

struct MinimumVersion
{
    const cControler *current;
    QString section;
    QString defaultVersion;
    QString errorLine;
};

bool versionsDiffer(const Boards &current, const Boards &fresh)
{
    return current.cpu->Firmware() != fresh.cpu->Firmware() ||
        current.main->Firmware() != fresh.main->Firmware() ||
        current.meas->Firmware() != fresh.meas->Firmware();
}

} // namespace

qint16 CompareVersions(const QString &sCurrent, const QString &sCompareTo)
{
    const auto number = [](QString text) {
        text.remove(u'.');
        bool ok = false;
        const qint32 n = text.trimmed().toInt(&ok);
        return ok ? n : 0;
    };
    const qint32 a = number(sCurrent);
    const qint32 b = number(sCompareTo);
    return a == b ? 0 : (a < b ? -1 : 1);
}

bool IsOneInvalid(const Boards &boards)
{
    bool invalid = false;
    for (const cControler *board : {boards.cpu, boards.main, boards.meas}) {
        if (board->Firmware().isEmpty() || board->Color() == cControler::kRed)
            invalid = true;
    }
    return invalid;
}

QString instructionLines()
{
    return u"Switch on and connect VARIMOsentry via RS232 to this computer\r\n"
           "Check baudrate (57600) and Handshake (off)\r\n"
           "Press Connect button"_s;
}

Verdict CheckConnected(const Boards &current, const Boards &fresh, const cINI &ini,
                       bool allowDowngrade)
{
    Verdict v;
    v.updateEnabled = true;

    if (IsOneInvalid(fresh) || !versionsDiffer(current, fresh)) {
        v = {false, u"No updates required"_s, eNormal};
    } else if (current.cpu->Firmware().isEmpty() || current.main->Firmware().isEmpty() ||
               current.meas->Firmware().isEmpty()) {
        v = {false,
             u"ERROR: No connection to VARIMOsentry\r\n"
             "Restart VARIMOsentry by pressing the POWER KEY.\r\n"
             "Wait a few seconds until the measured value display is shown."_s,
             eError};
    } else {
        const MinimumVersion minimums[] = {
            {current.cpu, u"CPUBoard"_s, u"2.00"_s,
             u"ERROR: Cannot update to this CPU Board version"_s},
            {current.main, u"Mainboard"_s, u"1.02"_s,
             u"ERROR: Cannot update to this Main Board version"_s},
            {current.meas, u"Messmodul"_s, u"1.20"_s,
             u"ERROR: Cannot update to this Measuring Module version"_s},
        };
        for (const MinimumVersion &m : minimums) {
            const QString fwMin = ini.GetValue(m.section, u"FWMin"_s, m.defaultVersion);
            if (CompareVersions(m.current->Firmware(), fwMin) == -1) {
                QString limit =
                    u"Update only possible to firmware versions >= "_s + m.defaultVersion;
                limit.replace(m.defaultVersion, fwMin);
                v = {false, m.errorLine + u"\r\n"_s + limit, eError};
            }
        }
        if (!allowDowngrade) {
            const bool anyNewer =
                CompareVersions(current.cpu->Firmware(), fresh.cpu->Firmware()) == -1 ||
                CompareVersions(current.main->Firmware(), fresh.main->Firmware()) == -1 ||
                CompareVersions(current.meas->Firmware(), fresh.meas->Firmware()) == -1;
            if (!anyNewer)
                v = {false, u"No updates required"_s, eNormal};
        }
    }
    if (v.updateEnabled)
        v = {true, u"VARIMOsentry ready for update"_s, eNormal};
    return v;
}

Verdict CheckUpdateFiles(const Boards &current, const Boards &fresh, bool allowDowngrade)
{
    const std::pair<cControler *, cControler *> pairs[] = {
        {current.cpu, fresh.cpu}, {current.main, fresh.main}, {current.meas, fresh.meas}};
    for (const auto &[cur, file] : pairs) {
        if (!cur->IsValid() || !file->IsValid())
            continue;
        cur->setColor(cControler::kBlack);
        const qint16 c = CompareVersions(cur->Firmware(), file->Firmware());
        if (c == -1)
            cur->setColor(cControler::kBlue);
        else if (c == 1 && allowDowngrade)
            cur->setColor(cControler::kRed);
    }
    if (IsOneInvalid(fresh))
        return {
            false,
            u"ERROR: At least one update file is missing or invalid\r\nNo update is possible."_s,
            eError};
    return {true, QString(), eNormal};
}

} // namespace Eligibility
