#include "frmTestPswd.h"

#include "shell/AppInfo.h"

#include <QGridLayout>
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
    , txtPswd(new QLineEdit(this))
    , cmdOk(new QPushButton(u"OK"_s, this))
    , CmdBack(new QPushButton(u"&Cancel"_s, this))
{
    setObjectName(u"frmTestPswd"_s);
    setWindowTitle(u"Enter Testmode"_s);
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    QFont font(u"Segoe UI"_s);
    font.setPointSizeF(9.75);
    setFont(font);

    auto *icon = new QLabel(this);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(40));
    icon->setAlignment(Qt::AlignTop);

    QFont bold = font;
    bold.setBold(true);
    auto *lblWarning = new QLabel(u"WARNING: You are Testmode!"_s, this);
    lblWarning->setObjectName(u"lblWarning"_s);
    lblWarning->setFont(bold);
    QPalette red = lblWarning->palette();
    red.setColor(QPalette::WindowText, QColor(192, 0, 0));
    lblWarning->setPalette(red);
    auto *lblDowngrade = new QLabel(u"Downgrade of firmware is possible but dangerous."_s, this);
    lblDowngrade->setObjectName(u"lblDowngrade"_s);
    auto *lblEnter = new QLabel(u"Please enter password to permit this function:"_s, this);
    lblEnter->setObjectName(u"lblEnter"_s);

    txtPswd->setObjectName(u"txtPswd"_s);
    txtPswd->setEchoMode(QLineEdit::Password);
    cmdOk->setObjectName(u"cmdOk"_s);
    cmdOk->setDefault(true);
    CmdBack->setObjectName(u"CmdBack"_s);

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
        box->setAttribute(Qt::WA_DeleteOnClose);
        connect(box, &QDialog::finished, this, [this] { txtPswd->setFocus(); });
        box->open();
        return;
    }
    m_accepted = true;
    accept();
}
