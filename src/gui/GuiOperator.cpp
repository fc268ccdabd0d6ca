#include "GuiOperator.h"

#include "gui/InstructionDialogs.h"
#include "gui/frmUpdate.h"
#include "shell/AppInfo.h"

#include <QMessageBox>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void cancelClosing()
{
    throw OperatorCancel(u"The program is closing"_s);
}

} // namespace

GuiOperator::GuiOperator(QObject *parent)
    : QObject(parent)
    , m_inbox(new handover::Inbox(this))
{
}

void GuiOperator::setWindows(QWidget *mainWindow, frmUpdate *updateWindow)
{
    m_main = mainWindow;
    m_update = updateWindow;
}

QWidget *GuiOperator::dialogParent() const
{
    if (m_update && m_update->isVisible())
        return m_update;
    return m_main;
}

void GuiOperator::releaseAll()
{
    const std::lock_guard lock(m_mutex);
    m_released = true;
    m_answered.notify_all();
}

void GuiOperator::showAndWait(Show show)
{
    auto answered = std::make_shared<bool>(false);
    {
        const std::lock_guard lock(m_mutex);
        if (m_released)
            cancelClosing();
    }
    m_inbox->post([this, show, answered] {
        show([this, answered] {
            const std::lock_guard lock(m_mutex);
            *answered = true;
            m_answered.notify_all();
        });
    });

    std::unique_lock lock(m_mutex);
    m_answered.wait(lock, [&] { return *answered || m_released; });
    if (!*answered)
        cancelClosing();
}

void GuiOperator::messageBox(const QString &text)
{
    showAndWait([this, text](Done done) {
        auto *box = new QMessageBox(QMessageBox::Information, AppInfo::productTitle(),
                                    labelTextOf(text), QMessageBox::Ok, dialogParent());
        box->setObjectName(u"operatorMessageBox"_s);
        openDialog(box, this, done);
    });
}

void GuiOperator::instruction(Instruction kind, const QStringList &lines)
{
    showAndWait([this, kind, lines](Done done) {
        QWidget *parent = dialogParent();
        InstructionDialog *dialog = nullptr;
        switch (kind) {
        case Instruction::General: {
            if (m_update && m_update->isVisible()) {
                m_update->ShowMessage(lines, done);
                return;
            }
            auto *general = new frmMsgGeneral(parent);
            general->Init(lines.value(0), lines.value(1), lines.value(2), lines.value(3),
                          lines.value(4));
            dialog = general;
            break;
        }
        case Instruction::CpuUpdateMode:
            dialog = new frmMsgCPU(parent);
            break;
        case Instruction::MainBoardRestart:
            dialog = new frmMsgMainBoard(parent);
            break;
        }
        openDialog(dialog, this, done);
    });
}
