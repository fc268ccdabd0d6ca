#pragma once

#include <QDialog>

class QLineEdit;
class QPushButton;

// The password dialog that unlocks the test mode. A wrong password says "Invalid password!",
// empties the box and gives it the focus again; there is no limit on attempts. The password is
// compared here only and never written anywhere.
//
// Lives on the GUI thread.
class frmTestPswd : public QDialog
{
    Q_OBJECT

public:
    explicit frmTestPswd(QWidget *parent = nullptr);

    bool Accepted() const { return result() == QDialog::Accepted; }

    QLineEdit *txtPswd;
    QPushButton *cmdOk;
    QPushButton *CmdBack;

private:
    void cmdOk_Click();
};
