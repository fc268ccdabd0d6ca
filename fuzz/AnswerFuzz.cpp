// What the transceiver makes of the bytes an answer brought: CR LF pairs gone, the acknowledge
// bytes turned into "ACK" or "NAK", everything else left as it came.

#include "FuzzSupport.h"
#include "link/cComm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray received = fuzz::bytes(data, size);
    const QByteArray answer = cComm::ClassifyAnswer(received);

    FUZZ_CHECK(!answer.contains("\r\n"));
    if (received.contains('\x06'))
        FUZZ_CHECK(answer == "ACK");
    else if (received.contains('\x0f'))
        FUZZ_CHECK(answer == "NAK");
    else
        FUZZ_CHECK(answer.size() <= received.size() && answer.size() % 2 == received.size() % 2);
    return 0;
}
