#pragma once

#include <QString>

namespace AppInfo {

// "VARIMOsentry Firmware Updater": the title of every window and message box.
QString productTitle();
// major.minor.revision in plain decimal, for example 1.0.1.
QString versionText();

} // namespace AppInfo
