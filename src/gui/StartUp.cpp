#include "StartUp.h"

#include "gui/frmMain.h"
#include "shell/AppInfo.h"
#include "shell/Workspace.h"

#include <QApplication>
#include <QComboBox>
#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QDir>
#include <QLocalSocket>
#include <QLockFile>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace StartUp {

namespace {

constexpr int kConnectWaitMs = 500;
constexpr int kLockWaitMs = 5000;
constexpr char kActivate[] = "activate\n";

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

SingleInstance::SingleInstance(const QString &key, QObject *parent)
    : QObject(parent)
    , m_key(key)
{
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (socket->readAll().contains(kActivate))
                    emit activationRequested();
            });
        }
    });
}

bool SingleInstance::claim()
{
    // Two copies started at the same moment take turns here.
    QLockFile lock(QDir(QDir::tempPath()).filePath(m_key + u".lock"_s));
    // Not had within the wait (a copy hanging on to it): start all the same.
    static_cast<void>(lock.tryLock(kLockWaitMs));

    QLocalSocket socket;
    socket.connectToServer(m_key);
    if (socket.waitForConnected(kConnectWaitMs)) {
        socket.write(kActivate);
        socket.waitForBytesWritten(kConnectWaitMs);
        socket.disconnectFromServer();
        return false;
    }
    // Nobody answered: a socket left behind by a copy that crashed is in the way.
    QLocalServer::removeServer(m_key);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    m_server.listen(m_key);
    return true;
}

int run(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QString::fromLatin1(Workspace::kApplicationName));
    QApplication::setApplicationDisplayName(AppInfo::productTitle());
    QApplication::setApplicationVersion(AppInfo::versionText());

    // The test hook: connect to a port at once and save a picture of the window once connected.
    // Hidden from the help; used by the tests that run the real program on a display.
    QCommandLineParser parser;
    QCommandLineOption connectOption(u"connect"_s, u"Connect to PORT at start."_s, u"PORT"_s);
    QCommandLineOption screenshotOption(
        u"screenshot"_s, u"Save the connected window to FILE and quit."_s, u"FILE"_s);
    connectOption.setFlags(QCommandLineOption::HiddenFromHelp);
    screenshotOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(connectOption);
    parser.addOption(screenshotOption);
    parser.process(app);

    const QString programDir = QCoreApplication::applicationDirPath();
    const Workspace::Folders folders =
        Workspace::ChooseFolders(programDir, Workspace::UserDataDir());

    SingleInstance instance(InstanceKey(programDir));
    if (!instance.claim())
        return 0;

    frmMainSetup setup;
    setup.programDir = folders.program;
    setup.dataDir = folders.data;
    frmMain window(setup);
    QObject::connect(&instance, &SingleInstance::activationRequested, &window, [&window] {
        qInfo("VarimoSentry_Updater: brought to the front by a second start");
        window.showNormal();
        window.raise();
        window.activateWindow();
    });
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
