#include "InstructionDialogs.h"

#include "link/Operator.h"
#include "shell/AppInfo.h"

#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace {
constexpr int kMargin = 12;
constexpr int kDialogWidth = 560;
constexpr int kLineGap = 6;
constexpr int kButtonWidth = 100;
constexpr int kButtonHeight = 30;
constexpr int kIconSize = 40;
} // namespace

QString labelTextOf(const QString &systemText)
{
    return QString(systemText).replace(u"&&"_s, u"&"_s);
}

QFont windowFont(bool bold, qreal points)
{
    QFont font(u"Segoe UI"_s);
    font.setPointSizeF(points);
    font.setBold(bold);
    return font;
}

void setTextColor(QWidget *widget, const QColor &color)
{
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    widget->setPalette(palette);
}

void setUpDialog(QDialog *dialog, const QString &objectName, const QString &title)
{
    dialog->setObjectName(objectName);
    dialog->setWindowTitle(title);
    dialog->setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    dialog->setFont(windowFont());
}

void openDialog(QDialog *dialog, const QObject *context, std::function<void()> onFinished)
{
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QDialog::finished, context, std::move(onFinished));
    dialog->open();
}

InstructionDialog::InstructionDialog(const QString &objectName, const QList<int> &heights,
                                     QWidget *parent)
    : QDialog(parent)
    , Frame1(named<QFrame>(u"Frame1"_s, this))
    , cmdOk(named<QPushButton>(u"cmdOk"_s, u"OK"_s, this))
    , m_icon(new QLabel(this))
{
    setUpDialog(this, objectName, AppInfo::productTitle());

    Frame1->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
    Frame1->setAutoFillBackground(true);
    QPalette framePalette = Frame1->palette();
    framePalette.setColor(QPalette::Window, framePalette.color(QPalette::Base));
    Frame1->setPalette(framePalette);

    m_icon->setParent(Frame1);
    m_icon->setGeometry(kMargin, kMargin, kIconSize, kIconSize);
    setError(false);

    const int textLeft = 2 * kMargin + kIconSize;
    const int textWidth = kDialogWidth - 2 * kMargin - textLeft - kMargin;
    int y = kMargin;
    for (int i = 0; i < kLines; ++i) {
        auto *label = named<QLabel>(u"lblLine%1"_s.arg(i + 1), Frame1);
        label->setFont(windowFont(true));
        label->setWordWrap(true);
        label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
        label->setTextFormat(Qt::PlainText);
        const int h = heights.value(i);
        label->setGeometry(textLeft, y, textWidth, h);
        label->setVisible(h > 0);
        y += h > 0 ? h + kLineGap : 0;
        m_lines << label;
    }
    const int frameHeight = y - kLineGap + kMargin;
    Frame1->setGeometry(kMargin, kMargin, kDialogWidth - 2 * kMargin, frameHeight);

    cmdOk->setDefault(true);
    cmdOk->setGeometry((kDialogWidth - kButtonWidth) / 2, Frame1->geometry().bottom() + 1 + kMargin,
                       kButtonWidth, kButtonHeight);
    connect(cmdOk, &QPushButton::clicked, this, &QDialog::accept);
    setFixedSize(kDialogWidth, cmdOk->geometry().bottom() + 1 + kMargin);
}

void InstructionDialog::setLines(const QStringList &lines)
{
    for (int i = 0; i < kLines; ++i)
        m_lines[i]->setText(labelTextOf(lines.value(i)));
}

void InstructionDialog::setError(bool error)
{
    const auto icon = error ? QStyle::SP_MessageBoxWarning : QStyle::SP_MessageBoxInformation;
    m_icon->setPixmap(style()->standardIcon(icon).pixmap(kIconSize));
}

QString InstructionDialog::shownLine(int n) const
{
    return m_lines.at(n - 1)->text();
}

frmMsgCPU::frmMsgCPU(QWidget *parent)
    : InstructionDialog(u"frmMsgCPU"_s, {40, 22, 60, 22, 0}, parent)
{
    setLines(InstructionText::cpuUpdateMode());
}

frmMsgMainBoard::frmMsgMainBoard(QWidget *parent)
    : InstructionDialog(u"frmMsgMainBoard"_s, {40, 22, 40, 22, 0}, parent)
{
    setLines(InstructionText::mainBoardRestart());
}

frmMsgGeneral::frmMsgGeneral(QWidget *parent)
    : InstructionDialog(u"frmMsgGeneral"_s, QList<int>(kLines, kLineHeight), parent)
{
}

void frmMsgGeneral::Init(const QString &line1, const QString &line2, const QString &line3,
                         const QString &line4, const QString &line5)
{
    setLines({line1, line2, line3, line4, line5});
    setError(line1.startsWith(u"ERROR"_s));

    // Lines 1 and 2 always keep their space; each empty line of 3 to 5 gives back its height.
    int h = 0;
    for (int n = 3; n <= kLines; ++n) {
        if (lineLabel(n)->text().isEmpty())
            h += lineLabel(n)->height();
    }

    cmdOk->move(cmdOk->x(), cmdOk->y() - h);
    Frame1->resize(Frame1->width(), Frame1->height() - h);
    setFixedSize(width(), height() - h);
}
