#include "Workspace.h"

#include "boards/FirmwareFiles.h"

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryFile>

using namespace Qt::StringLiterals;

Workspace::Folders Workspace::ChooseFolders(const QString &programDir, const QString &fallbackDir)
{
    Folders folders {programDir, programDir};
    QTemporaryFile probe(QDir(programDir).filePath(u"write-test-XXXXXX"_s));
    if (programDir.isEmpty() || !QDir(programDir).exists() || !probe.open()) {
        QDir().mkpath(fallbackDir);
        folders.data = fallbackDir;
    }
    return folders;
}

QString Workspace::UserDataDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

Workspace::Workspace(const Folders &folders, Clock *clock)
    : m_folders(folders)
    , m_log(clock)
{
}

QString Workspace::pathFor(const QString &name) const
{
    return QDir(m_folders.data).filePath(name);
}

void Workspace::Start()
{
    m_log.Setlogging(true);
    m_log.Init(pathFor(QString::fromLatin1(kLogFileName)));
    m_log.UpdateLog(u"VarimoSentry_Updater started..."_s);
    m_ini.Init(pathFor(QString::fromLatin1(kIniFileName)));

    m_settings = Settings::read(m_ini);
    m_allowDowngrade = m_settings.allowDowngrade;
}

void Workspace::resetAllowDowngrade()
{
    m_allowDowngrade = Settings::read(m_ini).allowDowngrade;
}

void Workspace::Stop()
{
    m_log.UpdateLog(u"VarimoSentry_Updater terminated..."_s, 3);
    m_log.UpdateLog(QString(62, u'-'), std::nullopt, 1);
}

void Workspace::LoadFirmwareFiles(BoardSet &fresh) const
{
    for (const BoardKind kind : kPanelOrder)
        LoadFirmwareFile(kind,
                         modHelper::FindNewestFile(m_folders.program, m_settings.patterns[kind]),
                         fresh[kind]);
}

void Workspace::LoadFirmwareFile(BoardKind kind, const QString &file, cControler &board) const
{
    board.InitFromBinFile(m_folders.program, file, m_settings.patterns[kind], kind);
}

Eligibility::Verdict Workspace::CheckUpdateFiles(BoardSet &current, const BoardSet &fresh) const
{
    return Eligibility::CheckUpdateFiles(current, fresh, m_allowDowngrade);
}

Eligibility::Verdict Workspace::SetConnectionState(BoardSet &current, const BoardSet &fresh,
                                                   bool connected, bool portValid,
                                                   const QString &comPort)
{
    Eligibility::Verdict verdict;
    if (!connected) {
        for (cControler &board : current)
            board.setFirmware(QString());
        verdict.message =
            portValid ? Eligibility::instructionLines() : Eligibility::invalidPortText();
    } else {
        verdict =
            Eligibility::CheckConnected(current, fresh, Settings::read(m_ini), m_allowDowngrade);
        m_unsavedPortChoice = Settings::saveComPort(m_ini, comPort)
            ? QString()
            : u"The port choice was not saved: "_s + m_ini.errorString();
    }
    const Eligibility::Verdict files = CheckUpdateFiles(current, fresh);
    if (!files.message.isEmpty())
        verdict = files;
    return verdict;
}
