#include "shell/AppInfo.h"
#include "shell/frmMain.h"

#include <QApplication>
#include <QDir>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

TEST(MainWindow, ShowsTheTitleWithTheProgramVersion)
{
    frmMain window;
    window.show();
    EXPECT_EQ(window.windowTitle(),
              u"VARIMOsentry Firmware Updater ("_s + AppInfo::versionText() + u")"_s);
    EXPECT_TRUE(AppInfo::versionText().contains(QRegularExpression(u"^\\d+\\.\\d+\\.\\d+$"_s)));

    QDir(QString::fromUtf8(VARIMO_TEST_BINARY_DIR)).mkpath(u"screenshots"_s);
    window.grab().save(QString::fromUtf8(VARIMO_TEST_BINARY_DIR) + u"/screenshots/main.png"_s);
}

} // namespace
