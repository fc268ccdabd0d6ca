#include "Eligibility.h"

#include "Settings.h"
#include "link/Operator.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Eligibility {

namespace {

bool versionsDiffer(const BoardSet &current, const BoardSet &fresh)
{
    return std::ranges::any_of(kPanelOrder, [&](BoardKind kind) {
        return current[kind].Firmware() != fresh[kind].Firmware();
    });
}

// The panel colour of a plan, in the 0x00BBGGRR encoding: black, blue for an upgrade, red for a
// downgrade.
qint32 ColorOf(Plan plan)
{
    return plan == Plan::Upgrade  ? cControler::kBlue
        : plan == Plan::Downgrade ? cControler::kRed
                                  : cControler::kBlack;
}

} // namespace

qint16 CompareVersions(const QString &current, const QString &compareTo)
{
    const auto number = [](QString text) {
        text.remove(u'.');
        bool ok = false;
        const qint32 n = text.trimmed().toInt(&ok);
        return ok ? n : 0;
    };
    const qint32 a = number(current);
    const qint32 b = number(compareTo);
    return a == b ? 0 : (a < b ? -1 : 1);
}

BoardVerdict JudgeBoard(const cControler &current, const cControler &fresh, bool allowDowngrade)
{
    BoardVerdict v;
    v.fileValid = fresh.ValidBinFile() && !fresh.Firmware().isEmpty();
    if (!current.IsValid() || !fresh.IsValid())
        return v;
    const qint16 c = CompareVersions(current.Firmware(), fresh.Firmware());
    if (c == -1)
        v.plan = Plan::Upgrade;
    else if (c == 1 && allowDowngrade)
        v.plan = Plan::Downgrade;
    return v;
}

bool IsOneInvalid(const BoardSet &fresh)
{
    return std::ranges::any_of(fresh, [](const cControler &board) {
        return board.Firmware().isEmpty() || !board.ValidBinFile();
    });
}

QString instructionLines()
{
    return u"Switch on and connect VARIMOsentry via RS232 to this computer\r\n"
           "Check baudrate (57600) and Handshake (off)\r\n"
           "Press Connect button"_s;
}

QString invalidPortText()
{
    return u"Invalid port - enter valid RS232-port"_s;
}

QString noConnectionText()
{
    return u"ERROR: No connection to VARIMOsentry"_s;
}

QString noPortText()
{
    return u"ERROR: No COM port available"_s;
}

QString connectingText(const QString &port)
{
    return u"Connecting VARIMOsentry to %1..."_s.arg(port);
}

Verdict CheckConnected(const BoardSet &current, const BoardSet &fresh, const Settings &settings,
                       bool allowDowngrade)
{
    Verdict noUpdates {false, u"No updates required"_s, eNormal};
    if (IsOneInvalid(fresh) || !versionsDiffer(current, fresh))
        return noUpdates;
    if (std::ranges::any_of(current,
                            [](const cControler &board) { return board.Firmware().isEmpty(); }))
        return {false,
                QStringList {noConnectionText(), InstructionText::kPower,
                             InstructionText::kWaitForDisplay}
                    .join(u"\r\n"_s),
                eError};
    Verdict v {true, QString(), eNormal};
    for (const BoardKind kind : kPanelOrder) {
        const QString &minimum = settings.minimumVersions[kind];
        if (CompareVersions(current[kind].Firmware(), minimum) == -1)
            v = {false,
                 QString::fromLatin1(boardFacts(kind).belowMinimumText) +
                     u"\r\nUpdate only possible to firmware versions >= "_s + minimum,
                 eError};
    }
    const bool anyNewer = std::ranges::any_of(kPanelOrder, [&](BoardKind kind) {
        return CompareVersions(current[kind].Firmware(), fresh[kind].Firmware()) == -1;
    });
    if (!allowDowngrade && !anyNewer)
        v = noUpdates;
    if (v.updateEnabled)
        v = {true, u"VARIMOsentry ready for update"_s, eNormal};
    return v;
}

Verdict CheckUpdateFiles(BoardSet &current, const BoardSet &fresh, bool allowDowngrade)
{
    for (const BoardKind kind : kPanelOrder) {
        if (current[kind].IsValid() && fresh[kind].IsValid())
            current[kind].setColor(
                ColorOf(JudgeBoard(current[kind], fresh[kind], allowDowngrade).plan));
    }
    if (IsOneInvalid(fresh))
        return {
            false,
            u"ERROR: At least one update file is missing or invalid\r\nNo update is possible."_s,
            eError};
    return {true, QString(), eNormal};
}

} // namespace Eligibility
