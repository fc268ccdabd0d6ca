#pragma once

#include "gui/frmMain.h"
#include "support/ScriptedLine.h"

#include <QApplication>
#include <QMap>
#include <QTemporaryDir>
#include <functional>
#include <memory>

// Shared fixtures of the window tests: the application object, a program folder with firmware
// files and a settings file, a scripted instrument that answers the identity telegrams, and a
// few helpers to wait, to answer dialogs and to save pictures.
namespace gui {

// The QApplication of the test program (offscreen platform).
QApplication &app();

// Runs events until pred holds or timeoutMs has passed; returns pred().
bool waitUntil(const std::function<bool()> &pred, int timeoutMs = 10000);

// Saves a picture of the widget to <build>/screenshots/<name>.png.
void screenshot(QWidget *widget, const QString &name);

// The modal dialog on top, once one of the given class (object name) is up.
QWidget *waitForDialog(const QString &objectName, int timeoutMs = 10000);

// A program folder: firmware files, settings file and log all in one temporary folder.
class ProgramFolder
{
public:
    ProgramFolder();
    QString path() const { return m_dir.path(); }
    QString file(const QString &name) const { return m_dir.filePath(name); }

    // A firmware file of the board's exact image size, named after the default pattern with the
    // version ("2.01"): FW_CPU-BOARD_V201-017_CRC1234.bin, FW_MAINBOARD_103_CRC5678.bin,
    // FW_MESSMODUL_121-1_CRC9.bin.
    QString writeFirmware(BoardKind kind, const QString &version);
    void writeFile(const QString &name, qint64 size);
    void writeSettings(const QString &text);
    QString readText(const QString &name) const;

private:
    QTemporaryDir m_dir;
};

// An instrument that answers the telegrams of connect and disconnect: board select, identity,
// serial number and keys. Versions indexed by board kind. Used through a ScriptedLine on a
// VirtualClock, on the engine thread; change it only while the engine is idle.
struct ScriptedInstrument
{
    QString versions[3] = {QStringLiteral("2.00"), QStringLiteral("1.20"), QStringLiteral("1.02")};
    int serial = 42;
    bool silent = false;
    int selected = 0;
    QList<QByteArray> received;

    ScriptedLine::Reply answer(const QByteArray &written);
};

// The engine's link to a scripted instrument on a virtual clock.
EngineLinkFactory scriptedLink(std::shared_ptr<ScriptedInstrument> instrument);

// The main window on a program folder, with the given ports and engine link.
struct WindowUnderTest
{
    WindowUnderTest(ProgramFolder &folder, EngineLinkFactory link,
                    QStringList ports = {QStringLiteral("COM1"), QStringLiteral("COM3")});
    ~WindowUnderTest();
    frmMain *operator->() const { return window.get(); }
    bool connect();
    bool closeAndWait();

    std::unique_ptr<frmMain> window;
};

} // namespace gui
