#include "Connection.h"

#include "boards/cControler.h"
#include "link/cComm.h"
#include "shell/cINI.h"
#include "shell/cLog.h"
#include "update/UpdateRun.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

Connection::Connection(cComm &comm, cINI &ini, cLog &log, UpdateRun &run, const QString &programDir)
    : m_comm(comm)
    , m_ini(ini)
    , m_log(log)
    , m_run(run)
    , m_programDir(programDir)
{
}

QString Connection::BackupFileNameFor(const QString &settingName, const QString &serialNumber)
{
    QString name = settingName;
    return name.replace(u".xml"_s, u"_"_s + serialNumber + u".xml"_s);
}

Connection::Result Connection::ConnectAndIdentify(const QString &portText)
{
    Result r;
    m_comm.Init(&m_log);
    m_comm.setComPort(portText);
    r.portValid = m_comm.IsValidPort();
    if (r.portValid)
        r.opened = m_comm.OpenPort();
    if (!r.opened) {
        r.error = m_comm.lastError();
        return r;
    }

    bool read = true;
    for (const qint32 kind : {cControler::eCPU, cControler::eMeas, cControler::eMain}) {
        cControler &board = m_run.current(kind);
        read = board.InitFromDevice(&m_comm, kind);
        if (!read) {
            if (board.IsInBTLMode())
                r.bootloaderBoard = kind;
            else
                r.error = board.LastError();
            break;
        }
    }
    r.boardsRead = read;
    if (!read)
        return r;

    m_comm.Transceive("DHR;0");
    const QByteArray serialAnswer = m_comm.Transceive("SER");
    if (!serialAnswer.isEmpty()) {
        QString error;
        if (SerialNumberFromAnswer(serialAnswer, &r.serialNumber, &error)) {
            r.backupFileName = BackupFileNameFor(
                m_ini.GetValue(u"Settings"_s, u"BackupFileName"_s, u"VarimoSentry_Backup.xml"_s),
                r.serialNumber);
            m_run.setBackupFileName(r.backupFileName);
            r.backupExists = QFile::exists(QDir(m_programDir).filePath(r.backupFileName));
        } else {
            r.error = error;
            m_log.UpdateLog(error);
        }
    }
    r.connected = true;
    return r;
}

void Connection::Disconnect()
{
    if (!m_comm.Transceive("DHR;0", kDisconnectTimeoutMs).isEmpty())
        m_comm.Transceive("KEY;1", kDisconnectTimeoutMs);
    m_comm.ClosePort();
}
