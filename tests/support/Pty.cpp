#include "Pty.h"

#include <QElapsedTimer>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

PtyPair::PtyPair()
{
    char name[256] = {};
    termios tio {};
    cfmakeraw(&tio);
    if (openpty(&m_master, &m_slave, name, &tio, nullptr) != 0) {
        m_master = m_slave = -1;
        return;
    }
    m_slavePath = QString::fromLocal8Bit(name);
}

PtyPair::~PtyPair()
{
    closeMaster();
    if (m_slave >= 0)
        ::close(m_slave);
}

bool PtyPair::write(const QByteArray &bytes)
{
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t n = ::write(m_master, bytes.constData() + done, size_t(bytes.size() - done));
        if (n <= 0 && errno != EINTR)
            return false;
        done += qMax<ssize_t>(n, 0);
    }
    return true;
}

QByteArray PtyPair::read(int n, int timeoutMs)
{
    QByteArray out;
    QElapsedTimer timer;
    timer.start();
    char buf[4096];
    for (qint64 left = timeoutMs; out.size() < n && left > 0; left = timeoutMs - timer.elapsed()) {
        pollfd pfd {m_master, POLLIN, 0};
        if (::poll(&pfd, 1, int(left)) <= 0)
            continue;
        const ssize_t got = ::read(m_master, buf, sizeof buf);
        if (got <= 0)
            break;
        out.append(buf, got);
    }
    return out;
}

void PtyPair::closeMaster()
{
    if (m_master >= 0) {
        ::close(m_master);
        m_master = -1;
    }
}
