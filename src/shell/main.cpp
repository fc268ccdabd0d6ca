#include "AppInfo.h"
#include "frmMain.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(AppInfo::productTitle());
    QApplication::setApplicationVersion(AppInfo::versionText());

    frmMain window;
    window.show();
    return QApplication::exec();
}
