#include "cParser.h"

#include "LogSink.h"
#include "UpdaterError.h"
#include "cCRC.h"

#include <QFile>
#include <limits>

using namespace Qt::StringLiterals;

qint32 cParser::OpenFile(const QString &path)
{
    CloseFile();
    if (path.isEmpty())
        return 0;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw UpdaterError(u"Cannot open firmware file %1: %2"_s.arg(path, file.errorString()));
    if (file.size() > std::numeric_limits<qint32>::max())
        throw UpdaterError(u"Firmware file %1 is too large"_s.arg(path));
    m_data = file.readAll();
    if (m_data.size() != file.size())
        throw UpdaterError(u"Cannot read firmware file %1: %2"_s.arg(path, file.errorString()));
    const qint32 length = qint32(m_data.size());
    if (m_log) {
        m_log->UpdateLog(length < 1 ? u"Error : "_s + path + u" not opened"_s
                                    : path + u" opened for parsing"_s);
    }
    return length;
}

void cParser::CloseFile()
{
    m_data.clear();
}

QByteArray cParser::GetTelegram(qint32 firstByte, qint32 length, quint8 packetNum) const
{
    if (firstByte < 1 || length < 1 || length > kDataSize)
        throw UpdaterError(
            u"Invalid packet range: first byte %1, length %2"_s.arg(firstByte).arg(length));
    qint32 last = 0;
    if (__builtin_add_overflow(firstByte, length, &last) || __builtin_sub_overflow(last, 1, &last))
        throw UpdaterError(
            u"Packet range overflows: first byte %1, length %2"_s.arg(firstByte).arg(length));
    const qint32 fileLength = qint32(m_data.size());
    if (firstByte > fileLength)
        return QByteArray(1, kEndOfTransmission);
    if (last > fileLength)
        last = fileLength;

    QByteArray packet(kPacketSize, '\0');
    packet[0] = kStartOfHeader;
    packet[1] = char(packetNum);
    packet[2] = char(quint8(255 - packetNum));
    // Positions are 1-based as the packet layout is described: position p is packet[p - 1].
    int write = 3;
    for (qint32 pos = firstByte; pos <= last; ++pos) {
        ++write;
        packet[write - 1] = m_data.at(pos - 1);
        if (pos == fileLength && write != 131) {
            while (write != 131 && write < kPacketSize) {
                packet[write - 1] = kPadding;
                ++write;
            }
        }
    }
    const qint32 crc = cCRC::crc16(packet, 3, kDataSize);
    packet[131] = char(crc / 256);
    packet[132] = char(crc % 256);
    return packet;
}
