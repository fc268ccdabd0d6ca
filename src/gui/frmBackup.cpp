#include "frmBackup.h"

#include "boards/FirmwareFiles.h"
#include "gui/InstructionDialogs.h"
#include "gui/userControler.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

frmBackup::frmBackup(const QString &folder, QWidget *parent)
    : QDialog(parent)
    , cmbCPU(new QComboBox(this))
    , cmbMain(new QComboBox(this))
    , cmbMeas(new QComboBox(this))
    , chkXML(named<QCheckBox>(u"chkXML"_s, u"Check backup files"_s, this))
    , cmdOk(named<QPushButton>(u"cmdOk"_s, u"OK"_s, this))
    , CmdBack(named<QPushButton>(u"CmdBack"_s, u"&Cancel"_s, this))
    , m_folder(folder)
{
    setUpDialog(this, u"frmBackup"_s, u"TEST: Update to version"_s);

    auto *frame = new QGroupBox(u"Firmware files"_s, this);
    auto *grid = new QGridLayout(frame);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(8);
    m_lists[BoardKind::Cpu] = cmbCPU;
    m_lists[BoardKind::Main] = cmbMain;
    m_lists[BoardKind::Meas] = cmbMeas;
    int row = 0;
    for (const BoardKind kind : kPanelOrder) {
        const BoardControls &controls = boardControls(kind);
        const QString suffix = QString::fromUtf16(controls.suffix);
        auto *label = new QLabel(QString::fromUtf16(controls.label), frame);
        label->setObjectName(u"lbl"_s + suffix);
        m_lists[kind]->setObjectName(u"cmb"_s + suffix);
        m_lists[kind]->setMinimumWidth(300);
        m_lists[kind]->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        grid->addWidget(label, row, 0);
        grid->addWidget(m_lists[kind], row, 1);
        ++row;
    }
    grid->addWidget(chkXML, row, 1);

    cmdOk->setDefault(true);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdOk);
    buttons->addWidget(CmdBack);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 12);
    layout->setSpacing(12);
    layout->addWidget(frame);
    layout->addLayout(buttons);

    connect(cmdOk, &QPushButton::clicked, this, &QDialog::accept);
    connect(CmdBack, &QPushButton::clicked, this, &QDialog::reject);
}

void frmBackup::Init(const QString &cpuBin, const QString &mainBin, const QString &measBin)
{
    fillList(cmbCPU, u"CPU"_s, cpuBin);
    fillList(cmbMain, u"Main"_s, mainBin);
    fillList(cmbMeas, u"Mess"_s, measBin);
}

void frmBackup::fillList(QComboBox *list, const QString &prefix, const QString &preselected)
{
    const QStringList files =
        modHelper::ListFiles(m_folder, prefix, modHelper::kFirmwareExtension.toString());
    list->clear();
    list->addItem(QString());
    list->addItems(files);
    // The empty entry when the preselected file is not among them.
    list->setCurrentIndex(int(files.lastIndexOf(preselected)) + 1);
}

QString frmBackup::testFile(BoardKind kind) const
{
    return m_lists[kind]->currentText();
}
