#pragma once

#include "boards/cControler.h"

#include <QWidget>

class QGroupBox;
class QLineEdit;

// How the windows label a board and name its controls: "CPU Board:" beside "lblCPU", "txtCPU",
// "cmbCPU".
struct BoardControls
{
    const char16_t *label;
    const char16_t *suffix;
};
const BoardControls &boardControls(BoardKind kind);

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
    explicit userControler(QWidget *parent = nullptr);

    // Fills the three fields from the descriptors and chooses the header: the instrument's serial
    // number when the CPU Board has one and a version, "New firmware" for the files' panel.
    void Init(const BoardSet &boards, bool isCurrent);
    void UpdateHeader(const QString &header);
    void SetTextAppearance(BoardKind kind, const cControler &board);

    QString header() const;

private:
    QGroupBox *frmFrame;
    PerBoard<QLineEdit *> m_fields;
};
