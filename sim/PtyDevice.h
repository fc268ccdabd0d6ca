#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QSocketNotifier;

// The instrument's end of a pseudo-terminal: the updater opens the slave as its serial port,
// varimo-sim reads and writes the master. A slave descriptor is kept open inside so that the pair
// survives while the updater closes and reopens its port; who else opens or closes the slave is
// watched with inotify, so the instrument learns when the updater's port opens and closes.
// Closing the device is pulling the adapter: the slave disappears.
//
// Linux only. Lives on varimo-sim's main thread (socket notifiers on its event loop).
class PtyDevice : public QObject
{
    Q_OBJECT
public:
    explicit PtyDevice(QObject *parent = nullptr);
    ~PtyDevice() override;

    bool open(QString *error);
    void close();
    bool isOpen() const { return m_master >= 0; }
    QString slavePath() const { return m_slavePath; }

    // Points linkPath at the slave (replacing an older link there).
    bool link(const QString &linkPath, QString *error);
    void unlink();

    // Bytes to the updater. Lost while nobody has the port open (as on a real line), unless
    // openings cannot be watched.
    void write(const QByteArray &bytes);

signals:
    void received(const QByteArray &bytes);
    void portOpened();
    void portClosed();

private:
    void readMaster();
    void readWatch();
    void writePending();

    int m_master = -1;
    int m_slave = -1;
    int m_watch = -1; // inotify descriptor, -1 when openings cannot be watched
    int m_users = 0; // descriptors of the slave open outside varimo-sim
    QString m_slavePath;
    QString m_linkPath;
    QByteArray m_pending; // bytes the master could not take yet
    QSocketNotifier *m_readNotifier = nullptr;
    QSocketNotifier *m_writeNotifier = nullptr;
    QSocketNotifier *m_watchNotifier = nullptr;
};
