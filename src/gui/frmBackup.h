#pragma once

#include "boards/Board.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QPushButton;

// The test mode's choice of firmware files: one list per board with every file of the program
// folder that matches the board's prefix ("CPU", "Main", "Mess") and ends in "bin", an empty entry
// first (which leaves that board as it is), and the choice to check the backup after the run.
//
// Lives on the GUI thread.
class frmBackup : public QDialog
{
    Q_OBJECT

public:
    // folder: where the firmware files are.
    explicit frmBackup(const QString &folder, QWidget *parent = nullptr);

    // Fills the three lists and preselects the given file names.
    void Init(const QString &cpuBin, const QString &mainBin, const QString &measBin);

    bool Accepted() const { return result() == QDialog::Accepted; }
    // After OK: the file chosen for the board (empty: leave it as it is); chkXML holds the choice
    // to check the backup.
    QString testFile(BoardKind kind) const;

    QComboBox *cmbCPU;
    QComboBox *cmbMain;
    QComboBox *cmbMeas;
    QCheckBox *chkXML;
    QPushButton *cmdOk;
    QPushButton *CmdBack;

private:
    void fillList(QComboBox *list, const QString &prefix, const QString &preselected);

    QString m_folder;
    PerBoard<QComboBox *> m_lists;
};
