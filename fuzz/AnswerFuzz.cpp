// A board's answer: what the transceiver makes of its bytes (CR LF pairs gone, the acknowledge
// bytes turned into "ACK" or "NAK", everything else left as it came), and the identity and the
// CPU Board's serial number read from it.

#include "FuzzSupport.h"
#include "boards/cControler.h"
#include "link/cComm.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

FUZZ_TARGET(received)
{
    const QByteArray answer = cComm::ClassifyAnswer(received);
    FUZZ_CHECK(!answer.contains("\r\n"));
    if (received.contains('\x06'))
        FUZZ_CHECK(answer == "ACK");
    else if (received.contains('\x0f'))
        FUZZ_CHECK(answer == "NAK");
    else
        FUZZ_CHECK(answer.size() <= received.size() && answer.size() % 2 == received.size() % 2);

    cControler board;
    board.FillFromKVTTelegram(received);
    // Each field stands between two separators: none holds one, and together they are no longer
    // than the answer.
    for (const QString &field : {board.Name(), board.Firmware(), board.Build()})
        FUZZ_CHECK(!field.contains(u';'));
    FUZZ_CHECK(board.Name().size() + board.Firmware().size() + board.Build().size() <=
               received.size());
    FUZZ_CHECK(!board.IsValid() || received.count(';') >= 2);

    QString serial, error;
    if (SerialNumberFromAnswer(received, &serial, &error)) {
        static const QRegularExpression shape(u"^-?[0-9]{5,}$"_s);
        bool ok = false;
        const int number = serial.toInt(&ok);
        FUZZ_CHECK(shape.match(serial).hasMatch() && error.isEmpty());
        FUZZ_CHECK(ok && number >= -32768 && number <= 32767);
    } else {
        FUZZ_CHECK(serial.isEmpty() && !error.isEmpty());
    }
}
