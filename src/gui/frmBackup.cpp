#include "frmBackup.h"

#include "boards/FirmwareFiles.h"

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
    , chkXML(new QCheckBox(u"Check backup files"_s, this))
    , cmdOk(new QPushButton(u"OK"_s, this))
    , CmdBack(new QPushButton(u"&Cancel"_s, this))
    , m_folder(folder)
{
    setObjectName(u"frmBackup"_s);
    setWindowTitle(u"TEST: Update to version"_s);
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    QFont font(u"Segoe UI"_s);
    font.setPointSizeF(9.75);
    setFont(font);

    auto *frame = new QGroupBox(u"Firmware files"_s, this);
    auto *grid = new QGridLayout(frame);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(8);
    const struct
    {
        const char16_t *label;
        const char16_t *labelName;
        const char16_t *listName;
        QComboBox *list;
    } rows[] = {{u"CPU Board:", u"lblCPU", u"cmbCPU", cmbCPU},
                {u"Main Board:", u"lblMain", u"cmbMain", cmbMain},
                {u"Meas. Module:", u"lblMeas", u"cmbMeas", cmbMeas}};
    int row = 0;
    for (const auto &r : rows) {
        auto *label = new QLabel(QString::fromUtf16(r.label), frame);
        label->setObjectName(QString::fromUtf16(r.labelName));
        r.list->setObjectName(QString::fromUtf16(r.listName));
        r.list->setMinimumWidth(300);
        r.list->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        grid->addWidget(label, row, 0);
        grid->addWidget(r.list, row, 1);
        ++row;
    }
    chkXML->setObjectName(u"chkXML"_s);
    grid->addWidget(chkXML, row, 1);

    cmdOk->setObjectName(u"cmdOk"_s);
    cmdOk->setDefault(true);
    CmdBack->setObjectName(u"CmdBack"_s);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdOk);
    buttons->addWidget(CmdBack);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 12);
    layout->setSpacing(12);
    layout->addWidget(frame);
    layout->addLayout(buttons);

    connect(cmdOk, &QPushButton::clicked, this, &frmBackup::cmdOk_Click);
    connect(CmdBack, &QPushButton::clicked, this, &QDialog::reject);
}

void frmBackup::Init(const QString &sCPUBin, const QString &sMainBin, const QString &sMeasBin)
{
    fillList(cmbCPU, u"CPU"_s, sCPUBin);
    fillList(cmbMain, u"Main"_s, sMainBin);
    fillList(cmbMeas, u"Mess"_s, sMeasBin);
}

void frmBackup::fillList(QComboBox *list, const QString &prefix, const QString &preselected)
{
    list->clear();
    list->addItem(QString());
    list->setCurrentIndex(0);
    const QStringList files =
        modHelper::ListFiles(m_folder, prefix, modHelper::kFirmwareExtension.toString());
    for (const QString &file : files) {
        list->addItem(file);
        if (file == preselected)
            list->setCurrentIndex(list->count() - 1);
    }
}

void frmBackup::cmdOk_Click()
{
    sTestCPUBin = cmbCPU->currentText();
    sTestMainBin = cmbMain->currentText();
    sTestMeasBin = cmbMeas->currentText();
    bCheckBackup = chkXML->isChecked();
    m_accepted = true;
    accept();
}
