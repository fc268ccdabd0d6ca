#pragma once

#include <QByteArray>
#include <QString>

class LogSink;

// Cuts a firmware image into the 133-byte XMODEM-CRC packets that the boards' bootloaders take:
// 0x01, packet number, 255 - number, 128 data bytes, CRC-16 high byte, low byte. Past the end of
// the file it returns the single end-of-transmission byte 0x04.
//
// The image is read whole when it is opened (the largest is about 1 MB), so packets come from
// memory. Used by the engine thread.
class cParser
{
public:
    static constexpr char kStartOfHeader = 0x01;
    static constexpr char kEndOfTransmission = 0x04;
    static constexpr char kPadding = 0x1A;
    static constexpr int kPacketSize = 133;
    static constexpr int kDataSize = 128;

    void Init(LogSink *log) { m_log = log; }

    // Opens the image and returns its length in bytes; 0 for an empty path. An empty file is only
    // logged ("Error : <path> not opened"); a file that cannot be read throws UpdaterError.
    qint32 OpenFile(const QString &path);
    void CloseFile();

    // The packet for the data from firstByte (1-based) to firstByte + length - 1, clipped to the
    // file; or "\x04" when firstByte lies beyond the end of the file.
    //
    // A short last packet is padded with 0x1A starting on the position of the last data byte, so
    // that byte is replaced and the packet's last data byte stays 0. Files of a valid image size
    // never have a short packet; the rule is kept exactly as the boards' tools always had it.
    QByteArray GetTelegram(qint32 firstByte, qint32 length, quint8 packetNum) const;

private:
    LogSink *m_log = nullptr;
    QByteArray m_data;
};
