#include "StartUp.h"

#include "gui/frmMain.h"
#include "shell/AppInfo.h"
#include "shell/Workspace.h"

#include <QApplication>
#include <QComboBox>
#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QPushButton>
#include <QScreen>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace StartUp {

namespace {

constexpr int kConnectWaitMs = 500;
constexpr int kLockWaitMs = 5000;
constexpr char kActivate[] = "activate\n";

// Only one copy of the program runs. The first copy listens on a local socket; a later copy finds
// it there, asks it to bring its window to the front and ends without showing anything. Works the
// same on Linux (a socket file) and on Windows (a named pipe). True when this is the only copy,
// which now listens on server.
bool claim(QLocalServer &server, const QString &key)
{
    // Two copies started at the same moment take turns here.
    QLockFile lock(QDir(QDir::tempPath()).filePath(key + u".lock"_s));
    // Not had within the wait (a copy hanging on to it): start all the same.
    static_cast<void>(lock.tryLock(kLockWaitMs));

    QLocalSocket socket;
    socket.connectToServer(key);
    if (socket.waitForConnected(kConnectWaitMs)) {
        socket.write(kActivate);
        socket.waitForBytesWritten(kConnectWaitMs);
        socket.disconnectFromServer();
        return false;
    }
    // Nobody answered: a socket left behind by a copy that crashed is in the way.
    QLocalServer::removeServer(key);
    server.setSocketOptions(QLocalServer::UserAccessOption);
    server.listen(key);
    return true;
}

// A later copy asks through server: the window comes to the front.
void bringToFrontOnRequest(QLocalServer &server, frmMain &window)
{
    QObject::connect(&server, &QLocalServer::newConnection, &window, [&server, &window] {
        while (QLocalSocket *socket = server.nextPendingConnection()) {
            QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QLocalSocket::readyRead, &window, [socket, &window] {
                if (!socket->readAll().contains(kActivate))
                    return;
                qInfo("VarimoSentry_Updater: brought to the front by a second start");
                window.showNormal();
                window.raise();
                window.activateWindow();
            });
        }
    });
}

} // namespace

QString InstanceKey(const QString &programDir)
{
    QString user = qEnvironmentVariable("USER");
    if (user.isEmpty())
        user = qEnvironmentVariable("USERNAME");
    const QByteArray id =
        (user + u'\n' + QDir::cleanPath(QDir(programDir).absolutePath())).toUtf8();
    const QByteArray hash = QCryptographicHash::hash(id, QCryptographicHash::Sha1).toHex().left(16);
    return QString::fromLatin1(Workspace::kApplicationName) + u'-' + QString::fromLatin1(hash);
}

int run(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QString::fromLatin1(Workspace::kApplicationName));
    QApplication::setApplicationVersion(AppInfo::versionText());

    // The test hook: connect to a port at once and save a picture of the window once connected.
    // Hidden from the help; used by the tests that run the real program on a display.
    QCommandLineParser parser;
    QCommandLineOption connectOption(u"connect"_s, u"Connect to PORT at start."_s, u"PORT"_s);
    QCommandLineOption screenshotOption(
        u"screenshot"_s, u"Save the connected window to FILE and quit."_s, u"FILE"_s);
    connectOption.setFlags(QCommandLineOption::HiddenFromHelp);
    screenshotOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({connectOption, screenshotOption});
    parser.process(app);

    const QString programDir = QCoreApplication::applicationDirPath();
    const Workspace::Folders folders =
        Workspace::ChooseFolders(programDir, Workspace::UserDataDir());

    QLocalServer server;
    if (!claim(server, InstanceKey(programDir)))
        return 0;

    frmMain window(frmMainSetup {folders.program, folders.data});
    bringToFrontOnRequest(server, window);
    window.show();

    if (parser.isSet(connectOption)) {
        const QString screenshot = parser.value(screenshotOption);
        QObject::connect(&window, &frmMain::idle, &window, [&window, screenshot] {
            if (screenshot.isEmpty())
                return;
            // Let the window paint its final state before it is taken.
            QTimer::singleShot(300, &window, [&window, screenshot] {
                QPixmap picture;
                if (QScreen *screen = window.screen())
                    picture = screen->grabWindow(window.winId());
                if (picture.isNull())
                    picture = window.grab();
                picture.save(screenshot);
                window.close();
            });
        });
        window.cmbPorts->setEditText(parser.value(connectOption));
        window.cmdConnect->click();
    }
    return QApplication::exec();
}

} // namespace StartUp
