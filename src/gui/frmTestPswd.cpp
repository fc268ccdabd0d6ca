#include "frmTestPswd.h"

#include "gui/InstructionDialogs.h"
#include "shell/AppInfo.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
// Compared exactly, case-sensitive.
constexpr QStringView kTestModePassword = u"kvnoperate4821";
} // namespace

frmTestPswd::frmTestPswd(QWidget *parent)
    : QDialog(parent)
    , txtPswd(named<QLineEdit>(u"txtPswd"_s, this))
    , cmdOk(named<QPushButton>(u"cmdOk"_s, u"OK"_s, this))
    , CmdBack(named<QPushButton>(u"CmdBack"_s, u"&Cancel"_s, this))
{
    setUpDialog(this, u"frmTestPswd"_s, u"Enter Testmode"_s);

    auto *icon = new QLabel(this);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(40));
    icon->setAlignment(Qt::AlignTop);

    auto *lblWarning = named<QLabel>(u"lblWarning"_s, u"WARNING: You are Testmode!"_s, this);
    lblWarning->setFont(windowFont(true));
    setTextColor(lblWarning, QColor(192, 0, 0));
    auto *lblDowngrade = named<QLabel>(u"lblDowngrade"_s,
                                       u"Downgrade of firmware is possible but dangerous."_s, this);
    auto *lblEnter =
        named<QLabel>(u"lblEnter"_s, u"Please enter password to permit this function:"_s, this);

    txtPswd->setEchoMode(QLineEdit::Password);
    cmdOk->setDefault(true);

    auto *text = new QVBoxLayout;
    text->setSpacing(6);
    text->addWidget(lblWarning);
    text->addWidget(lblDowngrade);
    text->addSpacing(8);
    text->addWidget(lblEnter);
    text->addWidget(txtPswd);

    auto *top = new QHBoxLayout;
    top->setSpacing(14);
    top->addWidget(icon, 0, Qt::AlignTop);
    top->addLayout(text, 1);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdOk);
    buttons->addWidget(CmdBack);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 14);
    layout->setSpacing(14);
    layout->addLayout(top);
    layout->addLayout(buttons);
    setFixedWidth(440);

    connect(cmdOk, &QPushButton::clicked, this, &frmTestPswd::cmdOk_Click);
    connect(CmdBack, &QPushButton::clicked, this, &QDialog::reject);
    txtPswd->setFocus();
}

void frmTestPswd::cmdOk_Click()
{
    if (txtPswd->text() != kTestModePassword) {
        txtPswd->clear();
        auto *box = new QMessageBox(QMessageBox::Warning, AppInfo::productTitle(),
                                    u"Invalid password!"_s, QMessageBox::Ok, this);
        box->setObjectName(u"invalidPasswordBox"_s);
        openDialog(box, this, [this] { txtPswd->setFocus(); });
        return;
    }
    accept();
}
