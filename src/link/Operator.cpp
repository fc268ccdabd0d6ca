#include "Operator.h"

using namespace Qt::StringLiterals;

namespace InstructionText {

const QString kReset = u"Reset VARIMOsentry by pressing RESET && ZERO buttons simultaneously."_s;
const QString kPower = u"Restart VARIMOsentry by pressing the POWER KEY."_s;
const QString kWaitForDisplay = u"Wait a few seconds until the measured value display is shown."_s;
const QString kContinue = u"Continue with OK."_s;
const QString kCheckConnection = u"Check connection to VARIMOsentry."_s;
const QString kTryRestoreAgain = u"Try again to restore parameters with Restore Data - button."_s;

QStringList cpuUpdateMode()
{
    return {kReset, u"Switch VARIMOsentry to the Update Mode as follows:"_s,
            u"Press and hold the RANGE && SETUP buttons simultaneously, press the POWER KEY for "
            "one second and then release the RANGE && SETUP buttons when the power LED is "
            "blinking."_s,
            kContinue};
}

QStringList mainBoardRestart()
{
    return {kReset, kPower, kWaitForDisplay, kContinue};
}

} // namespace InstructionText
