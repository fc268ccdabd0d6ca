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
    QCoreApplication::setApplicationName(AppInfo::productTitle());
    QCoreApplication::setApplicationVersion(AppInfo::versionText());

    Console console;
    CliOptions options;
    if (const auto status = ParseCommandLine(QCoreApplication::arguments(), console, &options))
        return *status;

    SystemClock clock;
    QtSerialLine line;
    const QString programDir = options.dir.isEmpty()
        ? Workspace::ProgramDirFor(QCoreApplication::applicationDirPath())
        : QString();
    UpdaterCli cli(options, console, line, clock, programDir);
    return cli.run();
}
