#include "userControler.h"

#include "cControler.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QFont panelFont(bool bold)
{
    QFont font(u"Segoe UI"_s);
    font.setPointSizeF(9.75);
    font.setBold(bold);
    return font;
}

} // namespace

userControler::userControler(QWidget *parent)
    : QWidget(parent)
    , frmFrame(new QGroupBox(u"New Firmware"_s, this))
    , lblCPU(new QLabel(u"CPU-Board:"_s, frmFrame))
    , lblMain(new QLabel(u"Main Board:"_s, frmFrame))
    , lblMeas(new QLabel(u"Meas. Module:"_s, frmFrame))
    , txtCPU(new QLineEdit(frmFrame))
    , txtMain(new QLineEdit(frmFrame))
    , txtMeas(new QLineEdit(frmFrame))
{
    QFont tahoma(u"Tahoma"_s);
    tahoma.setPointSizeF(8.25);
    setFont(tahoma);

    frmFrame->setObjectName(u"frmFrame"_s);
    frmFrame->setFont(panelFont(true));
    auto *form = new QFormLayout(frmFrame);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(8);
    form->setContentsMargins(12, 12, 12, 12);

    const std::pair<QLabel *, QLineEdit *> rows[] = {
        {lblCPU, txtCPU}, {lblMain, txtMain}, {lblMeas, txtMeas}};
    const QString names[][2] = {
        {u"lblCPU"_s, u"txtCPU"_s}, {u"lblMain"_s, u"txtMain"_s}, {u"lblMeas"_s, u"txtMeas"_s}};
    for (int i = 0; i < 3; ++i) {
        auto [label, text] = rows[i];
        label->setObjectName(names[i][0]);
        text->setObjectName(names[i][1]);
        label->setFont(panelFont(false));
        text->setFont(panelFont(false));
        text->setReadOnly(true);
        text->setFocusPolicy(Qt::NoFocus);
        text->setAlignment(Qt::AlignCenter);
        text->setMinimumWidth(110);
        form->addRow(label, text);
    }

    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(frmFrame);
}

QColor userControler::colorFromBgr(qint32 bgr)
{
    return QColor(bgr & 0xFF, (bgr >> 8) & 0xFF, (bgr >> 16) & 0xFF);
}

qint32 userControler::bgrFromColor(const QColor &color)
{
    return color.red() | (color.green() << 8) | (color.blue() << 16);
}

void userControler::Init(const cControler &cpu, const cControler &main, const cControler &meas,
                         bool bIsCurrent)
{
    lblCPU->setText(u"CPU Board:"_s);
    lblMain->setText(u"Main Board:"_s);
    lblMeas->setText(u"Meas. Module:"_s);
    SetTextAppearance(eTxtCPU, cpu);
    SetTextAppearance(eTxtMain, main);
    SetTextAppearance(eTxtMeas, meas);

    // The serial number shown for the whole instrument is the CPU Board's.
    QString header;
    if (!cpu.SerialNumber().isEmpty())
        header = cpu.Firmware().isEmpty() ? u"VARIMOsentry"_s
                                          : u"VARIMOsentry SN "_s + cpu.SerialNumber();
    else
        header = bIsCurrent ? u"VARIMOsentry"_s : u"New firmware"_s;
    UpdateHeader(header);
}

void userControler::UpdateHeader(const QString &sHeader)
{
    frmFrame->setTitle(sHeader);
    frmFrame->repaint();
}

QString userControler::header() const
{
    return frmFrame->title();
}

QLineEdit *userControler::field(TextBox box) const
{
    switch (box) {
    case eTxtCPU:
        return txtCPU;
    case eTxtMain:
        return txtMain;
    case eTxtMeas:
        break;
    }
    return txtMeas;
}

void userControler::SetTextAppearance(TextBox eTextBox, const cControler &board)
{
    QLineEdit *text = field(eTextBox);
    text->setText(board.Firmware());
    QPalette palette = text->palette();
    const QColor color = colorFromBgr(board.Color());
    palette.setColor(QPalette::Active, QPalette::Text, color);
    palette.setColor(QPalette::Inactive, QPalette::Text, color);
    text->setPalette(palette);
    text->setEnabled(board.Enabled());
    text->setToolTip(board.ToolTipText());
}

bool userControler::IsOneInvalid() const
{
    bool invalid = false;
    for (const QLineEdit *text : {txtCPU, txtMain, txtMeas}) {
        const QColor color = text->palette().color(QPalette::Active, QPalette::Text);
        if (text->text().isEmpty() || bgrFromColor(color) == cControler::kRed)
            invalid = true;
    }
    return invalid;
}
