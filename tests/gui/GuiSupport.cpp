#include "GuiSupport.h"

#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPushButton>
#include <QTest>

using namespace Qt::StringLiterals;

namespace gui {

QApplication &app()
{
    // Made by the test main.
    return *qobject_cast<QApplication *>(QCoreApplication::instance());
}

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

ProgramFolder::ProgramFolder()
{
    app();
}

QString ProgramFolder::writeFirmware(BoardKind kind, const QString &version)
{
    // By select number: CPU Board, Measuring Module, Main Board.
    static const char16_t *const names[] = {u"FW_CPU-BOARD_V%1-017_CRC1234.bin",
                                            u"FW_MESSMODUL_%1-1_CRC9.bin",
                                            u"FW_MAINBOARD_%1_CRC5678.bin"};
    QString digits = version;
    digits.remove(u'.');
    const QString name = QString::fromUtf16(names[qint32(kind)]).arg(digits);
    writeFile(name, qint64(boardFacts(kind).packets) * 128);
    return name;
}

void ProgramFolder::writeFile(const QString &name, qint64 size)
{
    QFile f(file(name));
    if (f.open(QIODevice::WriteOnly))
        f.write(QByteArray(size, '\xff'));
}

void ProgramFolder::writeSettings(const QString &text)
{
    QFile f(file(u"VarimoSentry_Updater.ini"_s));
    if (f.open(QIODevice::WriteOnly))
        f.write(text.toLatin1());
}

QString ProgramFolder::readText(const QString &name) const
{
    QFile f(file(name));
    return f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()) : QString();
}

ScriptedLine::Reply ScriptedInstrument::answer(const QByteArray &written)
{
    received << written;
    if (silent)
        return {};
    const QByteArray telegram = written.chopped(2);
    static const char *const names[] = {"VARIMOsentry", "Vm2MM-Module", "Vm2PS-Main"};
    QByteArray reply = telegram;
    if (telegram.startsWith("DHR;"))
        selected = telegram.mid(4).toInt();
    else if (telegram == "KVT")
        reply = "KVT;" + QByteArray(names[selected % 3]) + ';' + versions[selected % 3].toLatin1() +
            ";17";
    else if (telegram == "SER")
        reply = "SER;" + QByteArray::number(serial);
    return {reply + "\r\n", 5};
}

EngineLinkFactory scriptedLink(std::shared_ptr<ScriptedInstrument> instrument)
{
    return [instrument](Operator &) {
        EngineLink link;
        auto clock = std::make_unique<VirtualClock>();
        auto line = std::make_unique<ScriptedLine>(*clock);
        line->setResponder([instrument](const QByteArray &w) { return instrument->answer(w); });
        link.line = std::move(line);
        link.clock = std::move(clock);
        link.keep = instrument;
        return link;
    };
}

WindowUnderTest::WindowUnderTest(ProgramFolder &folder, EngineLinkFactory link, QStringList ports)
{
    frmMainSetup setup;
    setup.programDir = folder.path();
    setup.dataDir = folder.path();
    setup.link = std::move(link);
    setup.listPorts = [ports] { return ports; };
    window = std::make_unique<frmMain>(setup);
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

bool WindowUnderTest::closeAndWait()
{
    window->close();
    return waitUntil([this] { return !window->isVisible(); });
}

} // namespace gui
