#include "frmMain.h"

#include "AppInfo.h"

#include <QLabel>

using namespace Qt::StringLiterals;

frmMain::frmMain(QWidget *parent)
    : QMainWindow(parent)
{
    auto *status = new QLabel(u"VARIMOsentry firmware update! DO NOT DISTURB!"_s, this);
    status->setObjectName(u"lblStatus"_s);
    status->setAlignment(Qt::AlignCenter);
    setCentralWidget(status);
    resize(560, 420);
    SetTexts();
}

void frmMain::SetTexts()
{
    setWindowTitle(AppInfo::mainWindowTitle());
}
