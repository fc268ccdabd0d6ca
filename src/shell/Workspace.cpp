#include "Workspace.h"

#include "boards/FirmwareFiles.h"
#include "boards/cControler.h"
#include "update/UpdateRun.h"

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryFile>

using namespace Qt::StringLiterals;

namespace {
const QString kSettings = u"Settings"_s;

struct PatternSetting
{
    qint32 kind;
    QString section;
    QString defaultPattern;
};

// In the order the patterns are read and the files are looked for.
const PatternSetting kPatternSettings[] = {
    {cControler::eCPU, u"CPUBoard"_s, u"FW_CPU-BOARD_VXXX-YYY_CRC"_s},
    {cControler::eMain, u"Mainboard"_s, u"FW_MAINBOARD_XXX_CRC"_s},
    {cControler::eMeas, u"Messmodul"_s, u"FW_MESSMODUL_XXX-Y_CRC"_s},
};
} // namespace

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

void Workspace::UseFullFirmwarePaths(UpdateRun &run) const
{
    for (const qint32 kind : {cControler::eCPU, cControler::eMain, cControler::eMeas}) {
        cControler &fresh = run.fresh(kind);
        if (!fresh.BinFileName().isEmpty())
            fresh.setBinFileName(QDir(m_folders.program).filePath(fresh.BinFileName()));
    }
}

void Workspace::Start()
{
    m_log.Setlogging(true);
    m_log.Init(pathFor(QString::fromLatin1(kLogFileName)));
    m_log.UpdateLog(u"VarimoSentry_Updater started..."_s);
    m_ini.Init(pathFor(QString::fromLatin1(kIniFileName)));

    for (const PatternSetting &p : kPatternSettings)
        m_patterns[p.kind] = m_ini.GetValue(p.section, u"File"_s, p.defaultPattern);
    const qint32 retries = m_ini.GetIntValue(kSettings, u"RetryUpdates"_s, 5);
    m_retryUpdates = retries >= -32768 && retries <= 32767 ? qint16(retries) : qint16(5);
    m_allowDowngrade = m_ini.GetBoolValue(kSettings, u"AllowDowngrade"_s, false);
}

void Workspace::Stop()
{
    m_log.UpdateLog(u"VarimoSentry_Updater terminated..."_s, 3);
    m_log.UpdateLog(QString(62, u'-'), std::nullopt, 1);
}

QString Workspace::Pattern(qint32 kind) const
{
    return kind >= cControler::eCPU && kind <= cControler::eMain ? m_patterns[kind] : QString();
}

void Workspace::LoadFirmwareFiles(UpdateRun &run) const
{
    for (const PatternSetting &p : kPatternSettings)
        LoadFirmwareFile(p.kind, run.fresh(p.kind));
}

void Workspace::LoadFirmwareFile(qint32 kind, cControler &board) const
{
    const QString pattern = Pattern(kind);
    const QString file = modHelper::FindNewestFile(m_folders.program, pattern);
    board.InitFromBinFile(m_folders.program, file, pattern, kind);
}

Eligibility::Boards Workspace::CurrentBoards(UpdateRun &run)
{
    return {&run.current(cControler::eCPU), &run.current(cControler::eMain),
            &run.current(cControler::eMeas)};
}

Eligibility::Boards Workspace::NewBoards(UpdateRun &run)
{
    return {&run.fresh(cControler::eCPU), &run.fresh(cControler::eMain),
            &run.fresh(cControler::eMeas)};
}

Eligibility::Verdict Workspace::CheckUpdateFiles(UpdateRun &run) const
{
    return Eligibility::CheckUpdateFiles(CurrentBoards(run), NewBoards(run), m_allowDowngrade);
}

Eligibility::Verdict Workspace::SetConnectionState(UpdateRun &run, bool bConnected, bool portValid,
                                                   const QString &comPort)
{
    Eligibility::Verdict verdict;
    if (!bConnected) {
        for (const qint32 kind : {cControler::eCPU, cControler::eMain, cControler::eMeas})
            run.current(kind).setFirmware(QString());
        verdict.message = portValid ? Eligibility::instructionLines()
                                    : u"Invalid port - enter valid RS232-port"_s;
    } else {
        verdict = Eligibility::CheckConnected(CurrentBoards(run), NewBoards(run), m_ini,
                                              m_allowDowngrade);
        m_ini.SetValue(kSettings, u"COMPort"_s, comPort);
    }
    const Eligibility::Verdict files = CheckUpdateFiles(run);
    if (!files.message.isEmpty())
        verdict = files;
    return verdict;
}
