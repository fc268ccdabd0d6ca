#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

// varimo-sim run by a test: started with the given options, its port read from the first line of
// its output; keys and commands typed on its input. Stopped (SIGTERM) when the object goes.
class SimProcess
{
public:
    ~SimProcess();

    // Starts the program; true once it has named its port.
    bool start(const QStringList &args);
    // Types one line on its input ("reset-zero", "unplug", "fault silent telegram=KVT" ...).
    void type(const char *line);
    // Ends it with SIGTERM (it saves its state when started with --state); its exit code, or -1.
    int stop();

    static QString programPath();

    QString port;

private:
    QProcess m_process;
};
