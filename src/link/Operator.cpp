#include "Operator.h"

using namespace Qt::StringLiterals;

QStringList InstructionText::cpuUpdateMode()
{
    return {u"Reset VARIMOsentry by pressing RESET && ZERO buttons simultaneously."_s,
            u"Switch VARIMOsentry to the Update Mode as follows:"_s,
            u"Press and hold the RANGE && SETUP buttons simultaneously, press the POWER KEY for "
            "one second and then release the RANGE && SETUP buttons when the power LED is "
            "blinking."_s,
            u"Continue with OK."_s};
}

QStringList InstructionText::mainBoardRestart()
{
    return {u"Reset VARIMOsentry by pressing RESET && ZERO buttons simultaneously."_s,
            u"Restart VARIMOsentry by pressing the POWER KEY."_s,
            u"Wait a few seconds until the measured value display is shown."_s,
            u"Continue with OK."_s};
}
