// The board's identity answer and the CPU Board's serial number answer.

#include "FuzzSupport.h"
#include "boards/cControler.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray answer = fuzz::bytes(data, size);

    cControler board;
    board.FillFromKVTTelegram(answer);
    // Each field stands between two separators: none holds one, and together they are no longer
    // than the answer.
    for (const QString &field : {board.Name(), board.Firmware(), board.Build()})
        FUZZ_CHECK(!field.contains(u';'));
    FUZZ_CHECK(board.Name().size() + board.Firmware().size() + board.Build().size() <=
               answer.size());
    FUZZ_CHECK(!board.IsValid() || answer.count(';') >= 2);

    QString serial;
    QString error;
    if (SerialNumberFromAnswer(answer, &serial, &error)) {
        static const QRegularExpression shape(u"^-?[0-9]{5,}$"_s);
        FUZZ_CHECK(shape.match(serial).hasMatch());
        bool ok = false;
        const int number = serial.toInt(&ok);
        FUZZ_CHECK(ok && number >= -32768 && number <= 32767);
        FUZZ_CHECK(error.isEmpty());
    } else {
        FUZZ_CHECK(serial.isEmpty() && !error.isEmpty());
    }
    return 0;
}
