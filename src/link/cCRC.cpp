#include "cCRC.h"

#include "UpdaterError.h"

namespace {

quint16 step(quint16 crc, quint8 byte)
{
    crc ^= quint16(byte) << 8;
    for (int bit = 0; bit < 8; ++bit)
        crc = (crc & 0x8000) ? quint16((crc << 1) ^ 0x1021) : quint16(crc << 1);
    return crc;
}

} // namespace

qint32 cCRC::crc16(const QByteArray &data, qint32 lowBound, qint32 length, qint32 StartVal)
{
    quint16 crc = quint16(StartVal & 0xFFFF);
    const qint64 end = qint64(lowBound) + length;
    qint64 index = lowBound;
    do {
        if (index < 0 || index >= data.size()) {
            throw UpdaterError(QStringLiteral("crc16: index %1 is outside the array of %2 bytes "
                                              "(lowBound %3, length %4)")
                                   .arg(index)
                                   .arg(data.size())
                                   .arg(lowBound)
                                   .arg(length));
        }
        crc = step(crc, quint8(data.at(index)));
        ++index;
    } while (index != end);
    return crc;
}

qint32 cCRC::crc16FromString(const QByteArray &text, qint32 StartVal)
{
    if (text.isEmpty())
        return StartVal;
    quint16 crc = quint16(StartVal & 0xFFFF);
    for (char c : text)
        crc = step(crc, quint8(c));
    return crc;
}

QByteArray cCRC::appendCrcToString(const QByteArray &text)
{
    return text + QByteArray::number(crc16FromString(text));
}
