#include "userControler.h"

#include "gui/InstructionDialogs.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

// Indexed by BoardKind.
const BoardControls kControls[kBoardCount] = {
    {u"CPU Board:", u"CPU"},
    {u"Meas. Module:", u"Meas"},
    {u"Main Board:", u"Main"},
};

// Colours are 0x00BBGGRR values: 255 is red, 0xFF0000 blue.
QColor colorFromBgr(qint32 bgr)
{
    return QColor(bgr & 0xFF, (bgr >> 8) & 0xFF, (bgr >> 16) & 0xFF);
}

} // namespace

const BoardControls &boardControls(BoardKind kind)
{
    return kControls[std::size_t(kind)];
}

userControler::userControler(QWidget *parent)
    : QWidget(parent)
    , frmFrame(named<QGroupBox>(u"frmFrame"_s, this))
{
    QFont tahoma(u"Tahoma"_s);
    tahoma.setPointSizeF(8.25);
    setFont(tahoma);

    frmFrame->setFont(windowFont(true));
    auto *form = new QFormLayout(frmFrame);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(8);
    form->setContentsMargins(12, 12, 12, 12);

    for (const BoardKind kind : kPanelOrder) {
        const BoardControls &controls = boardControls(kind);
        const QString suffix = QString::fromUtf16(controls.suffix);
        auto *label =
            named<QLabel>(u"lbl"_s + suffix, QString::fromUtf16(controls.label), frmFrame);
        auto *text = named<QLineEdit>(u"txt"_s + suffix, frmFrame);
        label->setFont(windowFont());
        text->setFont(windowFont());
        text->setReadOnly(true);
        text->setFocusPolicy(Qt::NoFocus);
        text->setAlignment(Qt::AlignCenter);
        text->setMinimumWidth(110);
        form->addRow(label, text);
        m_fields[kind] = text;
    }

    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(frmFrame);
}

void userControler::Init(const BoardSet &boards, bool isCurrent)
{
    for (const BoardKind kind : kPanelOrder)
        SetTextAppearance(kind, boards[kind]);

    // The serial number shown for the whole instrument is the CPU Board's.
    const cControler &cpu = boards[BoardKind::Cpu];
    QString header;
    if (!cpu.SerialNumber().isEmpty())
        header = cpu.Firmware().isEmpty() ? u"VARIMOsentry"_s
                                          : u"VARIMOsentry SN "_s + cpu.SerialNumber();
    else
        header = isCurrent ? u"VARIMOsentry"_s : u"New firmware"_s;
    UpdateHeader(header);
}

void userControler::UpdateHeader(const QString &header)
{
    frmFrame->setTitle(header);
    frmFrame->repaint();
}

QString userControler::header() const
{
    return frmFrame->title();
}

void userControler::SetTextAppearance(BoardKind kind, const cControler &board)
{
    QLineEdit *text = m_fields[kind];
    text->setText(board.Firmware());
    QPalette palette = text->palette();
    const QColor color = colorFromBgr(board.Color());
    palette.setColor(QPalette::Active, QPalette::Text, color);
    palette.setColor(QPalette::Inactive, QPalette::Text, color);
    text->setPalette(palette);
    text->setEnabled(board.Enabled());
    text->setToolTip(board.ToolTipText());
}
