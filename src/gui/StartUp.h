#pragma once

#include <QString>

// The program entry and what it needs before the main window exists: the rule that only one copy
// runs. The folders of the program's files are chosen by Workspace::ChooseFolders.
namespace StartUp {

// The name under which the first copy waits for later ones: one per user and program folder.
QString InstanceKey(const QString &programDir);

// The program: one copy only, the main window, and the test hook. Returns the exit code.
int run(int argc, char *argv[]);

} // namespace StartUp
