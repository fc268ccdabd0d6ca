// The backup's answer checks: the CRC behind the last ";", the value behind the telegram, and
// the comparison of a restore answer with its telegram.
//
// Input: telegram LF answer.

#include "FuzzSupport.h"
#include "backup/cBackup.h"
#include "link/cCRC.h"

FUZZ_TARGET(input)
{
    const QList<QByteArray> parts = fuzz::fields(input, 2);
    const QByteArray &telegram = parts[0];
    const QByteArray &answer = parts[1];

    // The CRC is the decimal number behind the last ";"; the answer is cut by as many characters
    // as that number has digits, and the CRC of what is left must equal it.
    const QByteArray tail = answer.mid(answer.lastIndexOf(';') + 1);
    bool isNumber = false;
    const quint32 crc = tail.toUInt(&isNumber);
    QByteArray shortened = answer;
    const bool passes = cBackup::CheckAnswerCrc(shortened);
    if (passes) {
        FUZZ_CHECK(isNumber && answer.startsWith(shortened));
        FUZZ_CHECK(answer.size() - shortened.size() == QByteArray::number(crc).size());
        FUZZ_CHECK(quint32(cCRC::crc16FromString(shortened)) == crc);
    }
    // In the board's own form (plain digits, no leading zero) an answer passes exactly when its
    // tail is the CRC of the text before it. (With leading zeros a digit stays behind and takes
    // part in the CRC: "...;000" passes when the CRC of "...;00" happens to be 0.)
    if (isNumber && tail == QByteArray::number(crc))
        FUZZ_CHECK(passes == (quint32(cCRC::crc16FromString(answer.chopped(tail.size()))) == crc));
    // What the board sends (text up to a ";", then its CRC) always passes.
    if (answer.endsWith(';')) {
        QByteArray withCrc = cCRC::appendCrcToString(answer);
        FUZZ_CHECK(cBackup::CheckAnswerCrc(withCrc) && withCrc == answer);
    }

    const QByteArray value = cBackup::ExtractValue(telegram, answer);
    FUZZ_CHECK(answer.endsWith(value));
    const QByteArray stripped = cBackup::ExtractValue(telegram, answer, true);
    FUZZ_CHECK(value.startsWith(stripped));
    FUZZ_CHECK(stripped.size() == value.size() || value.at(stripped.size()) == ';');

    if (answer == telegram || answer.isEmpty())
        FUZZ_CHECK(cBackup::CheckRestoreAnswer(telegram, answer));
}
