#include "Console.h"
#include "UpdaterCli.h"
#include "link/Clock.h"
#include "link/QtSerialLine.h"
#include "shell/AppInfo.h"
#include "shell/Workspace.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // The name under which the windows find the user's data folder: the same for both.
    QCoreApplication::setApplicationName(QString::fromLatin1(Workspace::kApplicationName));
    QCoreApplication::setApplicationVersion(AppInfo::versionText());

    Console console;
    CliOptions options;
    if (const auto status = ParseCommandLine(QCoreApplication::arguments(), console, &options))
        return *status;

    SystemClock clock;
    QtSerialLine line;
    // With --dir every file is there; otherwise the windows' rule says where.
    const Workspace::Folders folders = options.dir.isEmpty()
        ? Workspace::ChooseFolders(QCoreApplication::applicationDirPath(), Workspace::UserDataDir())
        : Workspace::Folders();
    return UpdaterCli(options, console, line, clock, folders).run();
}
