#include "SimDriver.h"

#include "link/cCRC.h"

QByteArray xmodemBlock(quint8 number, const QByteArray &data128)
{
    QByteArray block;
    block.append(char(0x01)).append(char(number)).append(char(255 - number)).append(data128);
    const qint32 crc = cCRC::crc16(data128, 0, 128);
    block.append(char(crc >> 8)).append(char(crc & 0xFF));
    return block;
}

QByteArray SimDriver::talk(const QByteArray &script, int timeoutMs)
{
    QByteArray wrong;
    for (const QByteArray &step : script.split(' ')) {
        const qsizetype equals = step.indexOf('=');
        const QByteArray telegram = step.left(equals < 0 ? step.size() : equals);
        const QByteArray expected = equals < 0 ? step : step.mid(equals + 1);
        const QByteArray got = ask(telegram, timeoutMs);
        if (got != expected)
            wrong += telegram + " -> " + got + " (expected " + expected + ") ";
    }
    return wrong;
}

QByteArray sendImage(SimDriver &driver, const QByteArray &image, int firstBlock)
{
    QByteArray answers;
    auto exchange = [&](const QByteArray &bytes) {
        driver.line().discardInput();
        driver.write(bytes);
        const qint64 deadline = driver.now() + 1000;
        char answer = '\0';
        while (answer == '\0' && driver.now() < deadline) {
            if (!driver.line().isOpen())
                driver.clock.advanceTo(deadline);
            driver.line().waitForData(int(deadline - driver.now()));
            for (char c : driver.line().readAll()) {
                if (c == 0x06 || c == 0x15)
                    answer = c;
            }
        }
        answers.append(answer);
    };
    for (qsizetype at = 0, n = firstBlock; at < image.size(); at += 128, ++n)
        exchange(xmodemBlock(quint8(n), image.mid(at, 128)));
    exchange(QByteArray(1, char(0x04)));
    return answers;
}
