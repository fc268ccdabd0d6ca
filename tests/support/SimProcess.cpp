#include "SimProcess.h"

#include <QDeadlineTimer>

using namespace Qt::StringLiterals;

QString SimProcess::programPath()
{
    return QStringLiteral(VARIMO_SIM_PATH);
}

bool SimProcess::start(const QStringList &args)
{
    m_process.start(programPath(), args);
    if (!m_process.waitForStarted(10000))
        return false;
    QDeadlineTimer deadline(20000);
    while (!m_process.canReadLine() && !deadline.hasExpired())
        m_process.waitForReadyRead(int(deadline.remainingTime()));
    port = QString::fromLocal8Bit(m_process.readLine()).trimmed();
    return port.startsWith(u"/dev/"_s);
}

void SimProcess::type(const char *line)
{
    m_process.write(QByteArray(line) + '\n');
    m_process.waitForBytesWritten(5000); // no event loop here to do it
}

int SimProcess::stop()
{
    m_process.terminate();
    if (!m_process.waitForFinished(20000)) {
        m_process.kill();
        m_process.waitForFinished();
        return -1;
    }
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

SimProcess::~SimProcess()
{
    if (m_process.state() != QProcess::NotRunning)
        stop();
}
