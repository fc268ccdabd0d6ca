#include "GuiSupport.h"

#include "FirmwareImage.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

using namespace Qt::StringLiterals;

namespace gui {

bool waitUntil(const std::function<bool()> &pred, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!pred()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QTest::qWait(5);
    }
    return true;
}

void screenshot(QWidget *widget, const QString &name)
{
    const QString dir = QString::fromUtf8(VARIMO_TEST_BINARY_DIR) + u"/screenshots"_s;
    QDir().mkpath(dir);
    QCoreApplication::processEvents();
    widget->grab().save(dir + u"/"_s + name + u".png"_s);
}

QWidget *waitForDialog(const QString &objectName, int timeoutMs)
{
    QWidget *found = nullptr;
    waitUntil(
        [&] {
            QWidget *top = QApplication::activeModalWidget();
            found = top && top->objectName() == objectName && top->isVisible() ? top : nullptr;
            return found != nullptr;
        },
        timeoutMs);
    return found;
}

static QLineEdit *field(QWidget *panel, const char *name)
{
    return panel->findChild<QLineEdit *>(QString::fromLatin1(name));
}

QColor colour(QWidget *panel, const char *name)
{
    return field(panel, name)->palette().color(QPalette::Active, QPalette::Text);
}

QString shown(QWidget *panel)
{
    return QStringList {field(panel, "txtCPU")->text(), field(panel, "txtMain")->text(),
                        field(panel, "txtMeas")->text()}
        .join(u' ');
}

void ProgramFolder::writeFile(const QString &name, const QByteArray &bytes)
{
    QFile f(filePath(name));
    if (f.open(QIODevice::WriteOnly))
        f.write(bytes);
}

QString ProgramFolder::readText(const QString &name) const
{
    QFile f(filePath(name));
    return f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()) : QString();
}

// The engine's clock is the instrument's, which the test keeps.
struct ClockRef : Clock
{
    explicit ClockRef(VirtualClock &to)
        : to(to)
    {
    }
    qint32 tickCount() const override { return to.tickCount(); }
    void sleepMs(int ms) override { to.sleepMs(ms); }
    QDateTime now() const override { return to.now(); }
    VirtualClock &to;
};

EngineLinkFactory Simulated::link()
{
    return [this](Operator &) {
        hands.reset();
        sim.reset();
        clock = std::make_unique<VirtualClock>();
        sim = std::make_unique<SimulatedInstrument>(*clock, state);
        hands = std::make_unique<AutoOperator>(sim->instrument());
        return EngineLink {std::make_unique<ClockRef>(*clock),
                           std::make_unique<SimulatedLine>(sim->instrument(), *clock),
                           {},
                           {}};
    };
}

WindowUnderTest::WindowUnderTest(ProgramFolder &folder, EngineLinkFactory link, QStringList ports)
{
    window = std::make_unique<frmMain>(
        frmMainSetup {folder.path(), folder.path(), std::move(link), [ports] { return ports; }});
    window->show();
}

WindowUnderTest::~WindowUnderTest()
{
    // Dialogs left open by a failing test go first.
    while (QWidget *top = QApplication::activeModalWidget()) {
        top->close();
        if (top == QApplication::activeModalWidget())
            top->hide();
    }
}

bool WindowUnderTest::connect()
{
    window->cmdConnect->click();
    return waitUntil([this] { return window->isIdle(); });
}

void WindowTest::SetUp()
{
    using FirmwareImage::defaultNewVersion;
    QString error;
    files = FirmwareImage::writeSet(folder.path(), defaultNewVersion(BoardKind::Cpu),
                                    defaultNewVersion(BoardKind::Meas),
                                    defaultNewVersion(BoardKind::Main), &error);
    ASSERT_EQ(files.size(), 3) << error.toStdString();
}

} // namespace gui
