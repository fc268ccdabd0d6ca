#pragma once

#include "AutoOperator.h"
#include "SimulatedInstrument.h"
#include "gui/frmMain.h"

#include <QApplication>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

// Shared fixtures of the window tests (the test main makes the QApplication): a program folder
// with firmware files and a settings file, a simulated instrument, the main window on both, and
// helpers to wait, to find dialogs and to save pictures.
namespace gui {

// Runs events until pred holds or timeoutMs has passed; returns pred().
bool waitUntil(const std::function<bool()> &pred, int timeoutMs = 10000);

// Saves a picture of the widget to <build>/screenshots/<name>.png.
void screenshot(QWidget *widget, const QString &name);

// The modal dialog on top, once one of the given class (object name) is up.
QWidget *waitForDialog(const QString &objectName, int timeoutMs = 10000);

// A program folder: firmware files, settings file and log all in one temporary folder.
struct ProgramFolder : QTemporaryDir
{
    void writeFile(const QString &name, const QByteArray &bytes);
    QString readText(const QString &name) const;
};

// The versions a board panel shows (CPU Board, Main Board and Measuring Module, separated by a
// space), and the colour of one of its fields ("txtCPU").
QString shown(QWidget *panel);
QColor colour(QWidget *panel, const char *field);

// The instrument of the windows: simulated in-process on virtual time from the state given, its
// keys pressed by the simulator's operator. Each window's engine gets one afresh; the engine
// thread runs it, the test touches it only while the engine is idle.
struct Simulated
{
    EngineLinkFactory link();
    Instrument &instrument() { return sim->instrument(); }

    InstrumentState state = InstrumentState::defaults();
    std::unique_ptr<VirtualClock> clock;
    std::unique_ptr<SimulatedInstrument> sim;
    std::unique_ptr<AutoOperator> hands;
};

// The main window on a program folder, with the given ports and engine link.
struct WindowUnderTest
{
    WindowUnderTest(ProgramFolder &folder, EngineLinkFactory link,
                    QStringList ports = {QStringLiteral("COM1"), QStringLiteral("COM3")});
    ~WindowUnderTest();
    frmMain *operator->() const { return window.get(); }
    bool connect();

    std::unique_ptr<frmMain> window;
};

// The windows' fixture: a program folder with firmware files one step newer than the simulated
// instrument (files: CPU Board, Main Board, Measuring Module).
class WindowTest : public ::testing::Test
{
protected:
    void SetUp() override;

    ProgramFolder folder;
    QStringList files;
    Simulated sim;
};

} // namespace gui
