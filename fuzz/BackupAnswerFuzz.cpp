// The backup's answer checks: the CRC behind the last ";", the value behind the telegram, and
// the comparison of a restore answer with its telegram.
//
// Input: telegram LF answer.

#include "FuzzSupport.h"
#include "backup/cBackup.h"
#include "link/cCRC.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> parts = fuzz::fields(fuzz::bytes(data, size), 2);
    const QByteArray &telegram = parts[0];
    const QByteArray &answer = parts[1];

    // An answer that passes is its shortened text followed by the decimal CRC of that text.
    QByteArray shortened = answer;
    if (cBackup::CheckAnswerCrc(shortened)) {
        FUZZ_CHECK(!answer.contains(';') || shortened.endsWith(';'));
        FUZZ_CHECK(answer == cBackup::AppendCrc(shortened));
    }
    // And what the board sends (text up to a ";", then its CRC) always passes.
    if (answer.endsWith(';')) {
        QByteArray withCrc = cBackup::AppendCrc(answer);
        FUZZ_CHECK(cBackup::CheckAnswerCrc(withCrc) && withCrc == answer);
    }

    const QByteArray value = cBackup::ExtractValue(telegram, answer);
    FUZZ_CHECK(answer.endsWith(value));
    const QByteArray stripped = cBackup::ExtractValue(telegram, answer, true);
    FUZZ_CHECK(value.startsWith(stripped));
    FUZZ_CHECK(stripped.size() == value.size() || value.at(stripped.size()) == ';');

    const bool accepted = cBackup::CheckRestoreAnswer(telegram, answer);
    if (answer == telegram)
        FUZZ_CHECK(accepted);
    if (answer.isEmpty())
        FUZZ_CHECK(accepted);
    return 0;
}
