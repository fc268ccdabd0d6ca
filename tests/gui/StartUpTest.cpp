#include "gui/StartUp.h"

#include "GuiSupport.h"
#include "shell/Workspace.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kProgram = u"VarimoSentry_Updater"_s;

// A copy of the program in a folder of its own, so that its settings, log and single-copy rule
// belong to this test alone.
QString installProgram(const QTemporaryDir &dir)
{
    const QString built = QString::fromUtf8(VARIMO_TEST_BINARY_DIR) + u"/src/"_s + kProgram;
    const QString copy = dir.filePath(kProgram);
    QFile::copy(built, copy);
    return copy;
}

QProcessEnvironment environment(const QString &platform)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, platform);
    return env;
}

TEST(StartUp, TheDataFolderIsTheProgramFolderWhenItIsWritable)
{
    gui::app();
    QTemporaryDir program;
    QTemporaryDir fallback;
    EXPECT_EQ(Workspace::ChooseFolders(program.path(), fallback.path()).data, program.path());
    const QString gone = program.filePath(u"not-there"_s);
    const Workspace::Folders f = Workspace::ChooseFolders(gone, fallback.path());
    EXPECT_EQ(f.program, gone);
    EXPECT_EQ(f.data, fallback.path());
    EXPECT_NE(StartUp::InstanceKey(program.path()), StartUp::InstanceKey(fallback.path()));
}

TEST(StartUp, ASecondStartBringsTheFirstToTheFrontAndEnds)
{
    gui::app();
    QTemporaryDir dir;
    const QString program = installProgram(dir);
    ASSERT_TRUE(QFile::exists(program));
    const QString logFile = dir.filePath(u"VarimoSentry_Updater.txt"_s);
    const auto log = [&] {
        QFile f(logFile);
        return f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()) : QString();
    };

    QProcess first;
    first.setProcessEnvironment(environment(u"offscreen"_s));
    first.start(program, {});
    ASSERT_TRUE(first.waitForStarted());
    ASSERT_TRUE(gui::waitUntil([&] { return log().contains(u"started..."_s); }, 30000));

    QProcess second;
    second.setProcessEnvironment(environment(u"offscreen"_s));
    second.start(program, {});
    ASSERT_TRUE(second.waitForFinished(30000));
    EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second.exitCode(), 0);

    QByteArray firstErr;
    EXPECT_TRUE(gui::waitUntil(
        [&] {
            firstErr += first.readAllStandardError();
            return firstErr.contains("brought to the front by a second start");
        },
        10000));
    // The second copy never opened a main window: one start line in the log.
    EXPECT_EQ(log().count(u"VarimoSentry_Updater started..."_s), 1);
    EXPECT_EQ(first.state(), QProcess::Running);
    first.kill();
    first.waitForFinished();
}

} // namespace
