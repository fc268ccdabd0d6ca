#pragma once

#include <QByteArray>
#include <QString>

// A pseudo-terminal pair for tests of the real serial code: the slave's path is opened as a
// serial port by the code under test, the master is the test's end of the cable (raw mode, no
// echo). Closing the master is an unplugged cable.
class PtyPair
{
public:
    PtyPair();
    ~PtyPair();
    PtyPair(const PtyPair &) = delete;
    PtyPair &operator=(const PtyPair &) = delete;

    bool isValid() const { return m_master >= 0; }
    QString slavePath() const { return m_slavePath; }

    // Writes all bytes to the master end.
    bool write(const QByteArray &bytes);
    // Reads from the master end until n bytes have arrived or timeoutMs has passed.
    QByteArray read(int n, int timeoutMs);
    void closeMaster();

private:
    int m_master = -1;
    int m_slave = -1; // kept open so the pair survives while the code under test reopens it
    QString m_slavePath;
};
