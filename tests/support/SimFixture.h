#pragma once

#include "SimulatedInstrument.h"
#include "link/Clock.h"
#include "shell/cINI.h"
#include "shell/cLog.h"
#include "support/Files.h"
#include "support/ScriptedOperator.h"
#include "update/Session.h"

#include <QByteArrayList>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

// The updater's link to an in-process simulated instrument on virtual time, with a program folder
// (settings, log, backups, firmware files) in a temporary directory and an operator who does what
// the dialogs say at once: closes the setup menu, presses the keys for the update mode and for a
// restart. Holds nothing shared: several rigs may run side by side on several threads.
class SimRig
{
public:
    SimRig();

    // Opens the port as Connect does; asserts that the instrument greeted back.
    void openPort();

    // Telegrams the instrument received since the last call of markTrace() (without CR LF;
    // firmware blocks appear as the simulator's trace writes them), from the trace.
    QByteArrayList receivedSinceMark();
    void markTrace();
    // The lines of the updater's log file without their time stamps and indents.
    QByteArrayList logLines() const;
    QString path(const QString &name) const { return dir.filePath(name); }

    // Writes firmware files for the three boards into the program folder; returns their names
    // (CPU Board, Main Board, Measuring Module).
    QStringList writeFirmware(const QByteArray &cpu, const QByteArray &meas,
                              const QByteArray &main);

    Instrument &instrument() { return sim.instrument(); }
    SessionFiles files() { return {&ini, &log, dir.path(), dir.path()}; }
    // Connects a session to COM1 and reads the newest firmware file of each board in the program
    // folder, as the main window does; false when the connect failed.
    bool connect(Session &session);

    // Called with the lines of each failure dialog, before the operator resets the instrument.
    std::function<void(const QStringList &)> onFailureDialog;
    // The operator gives up (cancels the job) at the failure dialog after so many.
    static constexpr int kOperatorRounds = 6;

    QTemporaryDir dir;
    VirtualClock clock;
    SimulatedInstrument sim {clock};
    ScriptedOperator op;
    cLog log {&clock};
    cINI ini;
    // The updater's session on the instrument, and its transceiver.
    Session session {sim.line(), clock, op, files()};
    cComm &comm = session.comm();

private:
    size_t m_mark = 0;
    int m_failureDialogs = 0;
};

class SimFixture : public ::testing::Test, public SimRig
{
};
