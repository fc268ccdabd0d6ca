#include "PtyDevice.h"

#include <QFile>
#include <QSocketNotifier>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pty.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

PtyDevice::PtyDevice(QObject *parent)
    : QObject(parent)
{
}

PtyDevice::~PtyDevice()
{
    close();
}

bool PtyDevice::open(QString *error)
{
    if (isOpen())
        return true;
    char name[256] = {};
    termios tio {};
    cfmakeraw(&tio);
    if (openpty(&m_master, &m_slave, name, &tio, nullptr) != 0) {
        *error = u"openpty: %1"_s.arg(QString::fromLocal8Bit(std::strerror(errno)));
        m_master = m_slave = -1;
        return false;
    }
    m_slavePath = QString::fromLocal8Bit(name);
    ::fcntl(m_master, F_SETFL, ::fcntl(m_master, F_GETFL) | O_NONBLOCK);
    ::fcntl(m_master, F_SETFD, FD_CLOEXEC);
    ::fcntl(m_slave, F_SETFD, FD_CLOEXEC);

    m_readNotifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_readNotifier, &QSocketNotifier::activated, this, &PtyDevice::readMaster);
    m_writeNotifier = new QSocketNotifier(m_master, QSocketNotifier::Write, this);
    m_writeNotifier->setEnabled(false);
    connect(m_writeNotifier, &QSocketNotifier::activated, this, &PtyDevice::writePending);

    // Our own descriptor is open already, so every event from here on is someone else's.
    m_users = 0;
    m_watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_watch >= 0 &&
        inotify_add_watch(m_watch, name, IN_OPEN | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE) < 0) {
        ::close(m_watch);
        m_watch = -1;
    }
    if (m_watch >= 0) {
        m_watchNotifier = new QSocketNotifier(m_watch, QSocketNotifier::Read, this);
        connect(m_watchNotifier, &QSocketNotifier::activated, this, &PtyDevice::readWatch);
    }
    return true;
}

void PtyDevice::close()
{
    for (QSocketNotifier *n : {m_readNotifier, m_writeNotifier, m_watchNotifier}) {
        if (n) {
            n->setEnabled(false);
            n->deleteLater();
        }
    }
    m_readNotifier = m_writeNotifier = m_watchNotifier = nullptr;
    for (int *fd : {&m_watch, &m_slave, &m_master}) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
    m_pending.clear();
    m_users = 0;
}

bool PtyDevice::link(const QString &linkPath, QString *error)
{
    m_linkPath = linkPath;
    QFile::remove(linkPath);
    if (!QFile::link(m_slavePath, linkPath)) {
        *error = u"cannot link %1 to %2"_s.arg(linkPath, m_slavePath);
        return false;
    }
    return true;
}

void PtyDevice::unlink()
{
    if (!m_linkPath.isEmpty())
        QFile::remove(m_linkPath);
}

void PtyDevice::write(const QByteArray &bytes)
{
    if (!isOpen() || (m_watch >= 0 && m_users == 0))
        return;
    m_pending += bytes;
    writePending();
}

void PtyDevice::writePending()
{
    while (!m_pending.isEmpty()) {
        const ssize_t n = ::write(m_master, m_pending.constData(), size_t(m_pending.size()));
        if (n > 0) {
            m_pending.remove(0, n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            break; // full: wait until the updater reads
        }
    }
    if (m_writeNotifier)
        m_writeNotifier->setEnabled(!m_pending.isEmpty());
}

void PtyDevice::readMaster()
{
    // Whoever wrote this has the port open: take note of the opening first, or an immediate
    // answer would be dropped as sent to a closed port.
    if (m_watch >= 0)
        readWatch();
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(m_master, buf, sizeof buf);
        if (n > 0) {
            emit received(QByteArray(buf, n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        break; // EAGAIN: all read
    }
}

void PtyDevice::readWatch()
{
    alignas(inotify_event) char buf[4096];
    const ssize_t n = ::read(m_watch, buf, sizeof buf);
    for (ssize_t at = 0; at < n;) {
        const auto *event = reinterpret_cast<const inotify_event *>(buf + at);
        if (event->mask & IN_OPEN) {
            if (m_users++ == 0) {
                // What was sent while the port was closed is not there for the new user.
                tcflush(m_slave, TCIFLUSH);
                m_pending.clear();
                emit portOpened();
            }
        } else if (event->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE)) {
            if (m_users > 0 && --m_users == 0)
                emit portClosed();
        }
        at += ssize_t(sizeof(inotify_event)) + event->len;
    }
}
