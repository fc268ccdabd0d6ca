#pragma once

#include <QColor>
#include <QWidget>

class QGroupBox;
class QLabel;
class QLineEdit;
class cControler;

// The panel that shows one set of three boards: the firmware version of the CPU Board, the Main
// Board and the Measuring Module, each in a read-only field whose colour, enabled state and tool
// tip come from the board's descriptor. The main window holds two: the boards in the instrument
// and the boards offered by the firmware files.
//
// Lives on the GUI thread; it keeps no descriptor, only what its fields show.
class userControler : public QWidget
{
    Q_OBJECT

public:
    // Which text field SetTextAppearance sets.
    enum TextBox { eTxtCPU, eTxtMain, eTxtMeas };

    explicit userControler(QWidget *parent = nullptr);

    // Fills the three fields from the descriptors and chooses the header: the instrument's serial
    // number when the CPU Board has one and a version, "New firmware" for the files' panel.
    void Init(const cControler &cpu, const cControler &main, const cControler &meas,
              bool bIsCurrent);
    void UpdateHeader(const QString &sHeader);
    void SetTextAppearance(TextBox eTextBox, const cControler &board);

    // True when any field is empty or shown in pure red (the colour value 255 exactly). Reads the
    // fields, not descriptors; all three are looked at.
    bool IsOneInvalid() const;

    QString header() const;

    // Colours are 0x00BBGGRR values: 255 is red, 0xFF0000 blue.
    static QColor colorFromBgr(qint32 bgr);
    static qint32 bgrFromColor(const QColor &color);

private:
    QLineEdit *field(TextBox box) const;

    QGroupBox *frmFrame;
    QLabel *lblCPU;
    QLabel *lblMain;
    QLabel *lblMeas;
    QLineEdit *txtCPU;
    QLineEdit *txtMain;
    QLineEdit *txtMeas;
};
