#include "Operator.h"

using namespace Qt::StringLiterals;

namespace InstructionText {

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
