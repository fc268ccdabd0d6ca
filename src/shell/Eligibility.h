#pragma once

#include <QString>

class cControler;
class cINI;

// The decision whether the Update command may be offered, and the message that tells the operator
// why not. Pure logic on the six board descriptors and the settings: the windows and the terminal
// front end show its verdict. Callable from any thread on descriptors that thread owns.
namespace Eligibility {

// How the status line shows a message: ShowStatus' kinds.
enum StatusKind : int { eNormal = 0, eError = -1, eBlack = 1 };

struct Verdict
{
    bool updateEnabled = false;
    QString message;
    int kind = eNormal;
};

// The three boards of one side, in the order CPU Board, Main Board, Measuring Module.
struct Boards
{
    cControler *cpu;
    cControler *main;
    cControler *meas;
};

// Versions compared as numbers with their dots removed: -1 lower, 0 equal, 1 higher. "2.05" is
// 205 and "1.2" is 12, so "1.2" is lower than "1.02"; text that is not a number counts as 0.
qint16 CompareVersions(const QString &sCurrent, const QString &sCompareTo);

// True when any board's version text is empty or shown in red (colour 255 exactly).
bool IsOneInvalid(const Boards &boards);

// The check of a connected window, in its order: files valid and any version different; all
// versions read; minimum versions (the last failing board's message stays); no newer file unless
// downgrades are allowed. Ends with "VARIMOsentry ready for update" when the update is offered.
Verdict CheckConnected(const Boards &current, const Boards &fresh, const cINI &ini,
                       bool allowDowngrade);

// Colours the current descriptors (black; blue for an upgrade; red for a downgrade that is
// allowed). Returns the file message that overrides any other when a firmware file is missing or
// invalid, or an empty verdict message when all files are usable.
Verdict CheckUpdateFiles(const Boards &current, const Boards &fresh, bool allowDowngrade);

// The three instruction lines shown while disconnected.
QString instructionLines();

} // namespace Eligibility
