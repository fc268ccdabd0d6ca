#pragma once

#include <QMainWindow>

// The main window: the operator's starting point. Lives on the GUI thread.
class frmMain : public QMainWindow
{
    Q_OBJECT

public:
    explicit frmMain(QWidget *parent = nullptr);

private:
    void SetTexts();
};
