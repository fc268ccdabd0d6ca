#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

// The program entry and what it needs before the main window exists: the rule that only one copy
// runs. The folders of the program's files are chosen by Workspace::ChooseFolders.
namespace StartUp {

// The name under which the first copy waits for later ones: one per user and program folder.
QString InstanceKey(const QString &programDir);

// Only one copy of the program runs. The first copy listens on a local socket; a later copy finds
// it there, asks it to bring its window to the front and ends without showing anything. Works the
// same on Linux (a socket file) and on Windows (a named pipe).
//
// Lives on the GUI thread.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    explicit SingleInstance(const QString &key, QObject *parent = nullptr);

    // True when this is the only copy (it now listens); false when another copy runs and was
    // asked to come to the front.
    bool claim();

signals:
    // A later copy asked this one to bring its window to the front.
    void activationRequested();

private:
    QString m_key;
    QLocalServer m_server;
};

// The program: one copy only, the main window, and the test hook. Returns the exit code.
int run(int argc, char *argv[]);

} // namespace StartUp
