#pragma once

#include <QByteArray>
#include <QtGlobal>

// CRC-16/XMODEM: polynomial 0x1021, MSB first, no reflection, no final XOR, start value 0 unless
// given. The instrument uses it on firmware packets (over bytes) and on parameter telegrams (over
// the Latin-1 characters of the text; a character is one byte).
//
// Stateless; callable from any thread.
class cCRC
{
public:
    // Walks data from lowBound upward and stops after the byte at which the advanced index equals
    // lowBound + length. The end test follows the byte, so at least one byte is always processed;
    // a length of 0 runs on until the index leaves the array, which throws UpdaterError
    // (the array is never read out of bounds).
    static qint32 crc16(const QByteArray &data, qint32 lowBound, qint32 length,
                        qint32 StartVal = 0);

    // Every character of the text, first to last; an empty text returns StartVal unchanged.
    static qint32 crc16FromString(const QByteArray &text, qint32 StartVal = 0);

    // The text followed by the decimal CRC of the text, no padding: "KVT" -> "KVT21300".
    static QByteArray appendCrcToString(const QByteArray &text);
};
