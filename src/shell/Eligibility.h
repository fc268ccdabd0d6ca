#pragma once

#include "boards/cControler.h"

#include <QString>

struct Settings;

// The decision whether the Update command may be offered, which boards an update run changes,
// and the message that tells the operator why not. Pure logic on the six board descriptors and
// the settings, computed here once: the windows and the terminal front end show its verdict, the
// update run follows its plan, and the panels' colours are derived from it. Callable from any
// thread on descriptors that thread owns.
namespace Eligibility {

// How the status line shows a message: ShowStatus' kinds.
enum StatusKind : int { eNormal = 0, eError = -1, eBlack = 1 };

// What an update run does with one board.
enum class Plan {
    Keep, // same version, or newer on the instrument while downgrades are not allowed
    Upgrade, // the file is newer
    Downgrade, // the file is older and downgrades are allowed
};

struct BoardVerdict
{
    Plan plan = Plan::Keep;
    bool fileValid = false; // the board's firmware file is there, of the right size, with a version
    bool needsUpdate() const { return plan != Plan::Keep && fileValid; }
};

struct Verdict
{
    bool updateEnabled = false;
    QString message;
    int kind = eNormal;
};

// Versions compared as numbers with their dots removed: -1 lower, 0 equal, 1 higher. "2.05" is
// 205 and "1.2" is 12, so "1.2" is lower than "1.02"; text that is not a number counts as 0.
qint16 CompareVersions(const QString &current, const QString &compareTo);

// The plan for one board; Keep unless both descriptors are valid.
BoardVerdict JudgeBoard(const cControler &current, const cControler &fresh, bool allowDowngrade);

// True when any firmware file is missing or invalid, or has no version.
bool IsOneInvalid(const BoardSet &fresh);

// The check of a connected window, in its order: files valid and any version different; all
// versions read; minimum versions (the last failing board's message stays); no newer file unless
// downgrades are allowed. Ends with "VARIMOsentry ready for update" when the update is offered.
Verdict CheckConnected(const BoardSet &current, const BoardSet &fresh, const Settings &settings,
                       bool allowDowngrade);

// Colours the current descriptors from their plans (where both descriptors are valid). Returns
// the file message that overrides any other when a firmware file is missing or invalid, or an
// empty verdict message when all files are usable.
Verdict CheckUpdateFiles(BoardSet &current, const BoardSet &fresh, bool allowDowngrade);

// The three instruction lines shown while disconnected.
QString instructionLines();
// "Invalid port - enter valid RS232-port".
QString invalidPortText();
// "ERROR: No connection to VARIMOsentry".
QString noConnectionText();
// "ERROR: No COM port available".
QString noPortText();
// "Connecting VARIMOsentry to PORT...".
QString connectingText(const QString &port);

} // namespace Eligibility
