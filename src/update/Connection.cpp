#include "Connection.h"

#include "boards/cControler.h"
#include "link/cComm.h"
#include "shell/Settings.h"
#include "shell/cINI.h"
#include "shell/cLog.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

Connection::Connection(cComm &comm, cINI &ini, cLog &log, BoardSet &current, const QString &dataDir)
    : m_comm(comm)
    , m_ini(ini)
    , m_log(log)
    , m_current(current)
    , m_dataDir(dataDir)
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
    for (const BoardKind kind : kReadOrder) {
        cControler &board = m_current[kind];
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
            r.backupFileName =
                BackupFileNameFor(Settings::read(m_ini).backupFileName, r.serialNumber);
            r.backupExists = QFile::exists(QDir(m_dataDir).filePath(r.backupFileName));
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
