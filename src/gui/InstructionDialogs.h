#pragma once

#include <QDialog>
#include <QStringList>
#include <functional>

class QFrame;
class QLabel;
class QPushButton;

// What the windows share.

// "&&" in the system's texts stands for one "&" on screen. A label without a buddy shows every
// character as it is, so its text gets the single "&"; buttons keep "&&".
QString labelTextOf(const QString &systemText);

// The windows' font: Segoe UI, 9.75 points unless told.
QFont windowFont(bool bold = false, qreal points = 9.75);

void setTextColor(QWidget *widget, const QColor &color);

// What every dialog of the windows has: its object name, its title, no help button, the windows'
// font.
void setUpDialog(QDialog *dialog, const QString &objectName, const QString &title);

// A new control with its object name; args go to its constructor (the parent last).
template<typename T, typename... Args>
T *named(const QString &objectName, Args &&...args)
{
    auto *widget = new T(std::forward<Args>(args)...);
    widget->setObjectName(objectName);
    return widget;
}

// Opens the dialog window-modal; once it is closed, onFinished runs (while context lives) and the
// dialog deletes itself.
void openDialog(QDialog *dialog, const QObject *context, std::function<void()> onFinished);

// The three small modal dialogs that tell the operator which keys to press on the instrument and
// wait for OK: a frame Frame1 with the lines lblLine1 to lblLine5 and the button cmdOk, laid out
// at fixed positions so that frmMsgGeneral can shrink by the lines it leaves empty.
//
// Live on the GUI thread; shown by the windows' operator while the engine waits for OK.
class InstructionDialog : public QDialog
{
    Q_OBJECT

public:
    static constexpr int kLines = 5;

    // The text of line n (1..5) as it is shown.
    QString shownLine(int n) const;

    QFrame *Frame1;
    QPushButton *cmdOk;

protected:
    // heights: the height of each of the five lines; 0 hides a line.
    InstructionDialog(const QString &objectName, const QList<int> &heights, QWidget *parent);
    QLabel *lineLabel(int n) const { return m_lines.at(n - 1); }
    void setLines(const QStringList &lines);
    // An error is marked with the warning sign instead of the information sign.
    void setError(bool error);

private:
    QLabel *m_icon;
    QList<QLabel *> m_lines;
};

// The CPU Board's update mode: reset, then the key combination that starts its bootloader.
class frmMsgCPU : public InstructionDialog
{
    Q_OBJECT
public:
    explicit frmMsgCPU(QWidget *parent = nullptr);
};

// After the Main Board's parameters were written back: reset and restart the instrument.
class frmMsgMainBoard : public InstructionDialog
{
    Q_OBJECT
public:
    explicit frmMsgMainBoard(QWidget *parent = nullptr);
};

// Five lines given by the caller; the dialog shrinks by the height of each of the lines 3, 4 and
// 5 that is empty, wherever it stands (an empty line 3 before a used line 4 leaves a gap).
class frmMsgGeneral : public InstructionDialog
{
    Q_OBJECT
public:
    static constexpr int kLineHeight = 40;

    explicit frmMsgGeneral(QWidget *parent = nullptr);
    void Init(const QString &line1, const QString &line2, const QString &line3,
              const QString &line4, const QString &line5);
};
