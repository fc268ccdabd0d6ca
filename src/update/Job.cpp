#include "Job.h"

using namespace Qt::StringLiterals;

namespace {

QString boardLeft(const JobResult &r)
{
    if (!r.board)
        return r.stage == Stage::Backup
            ? u"No board was changed: the parameter backup did not finish."_s
            : u"No board was changed."_s;
    const QString name = boardName(*r.board);
    switch (r.boardState) {
    case BoardCondition::BootloaderUncertain:
        return u"The %1 was left where its bootloader start stopped: still running its old "
               "firmware, or waiting in its bootloader."_s.arg(name);
    case BoardCondition::InBootloader:
        return u"The %1 was left in its bootloader: the firmware transfer stopped after %2 of %3 "
               "bytes."_s.arg(name)
                   .arg(r.bytesSent)
                   .arg(r.bytesTotal);
    case BoardCondition::FlashedUnconfirmed:
        return u"The %1 was left after receiving its new firmware: its restart was not "
               "confirmed."_s.arg(name);
    case BoardCondition::FlashedNotRestored:
        return u"The %1 was left running the new firmware %2 without its parameters: restore "
               "them with 'restore'."_s.arg(name, r.firmware);
    case BoardCondition::RestoredUnconfirmed:
        return u"The %1 was left running the new firmware %2 with its parameters restored; its "
               "restart was not confirmed."_s.arg(name, r.firmware);
    case BoardCondition::Untouched:
    case BoardCondition::Updated:
        break;
    }
    return u"The %1 was left untouched."_s.arg(name);
}

} // namespace

QString describeWhereLeft(const JobResult &result)
{
    QString text = boardLeft(result);
    if (!result.updatedBoards.isEmpty()) {
        QStringList names;
        for (const BoardKind board : result.updatedBoards)
            names.append(boardName(board));
        text += u" Updated before: %1."_s.arg(names.join(u", "_s));
    }
    return text;
}

QString restartWaitText(BoardKind board, int secondsLeft)
{
    return u"Waiting for the %1 to restart: %2 s"_s.arg(boardName(board)).arg(secondsLeft);
}

QString updateSucceededText()
{
    return u"Update successfully completed"_s;
}
