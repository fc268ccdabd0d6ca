#include "SimDriver.h"

#include "link/cCRC.h"

QByteArray SimDriver::readUntil(const QByteArray &end, int timeoutMs)
{
    const qint64 deadline = now() + timeoutMs;
    QByteArray got;
    while (now() < deadline && (end.isEmpty() || !got.contains(end))) {
        if (!line().isOpen())
            clock.advanceTo(deadline); // a closed line does not wait
        line().waitForData(int(deadline - now()));
        got += line().readAll();
    }
    return got;
}

QByteArray SimDriver::ask(const QByteArray &telegram, int timeoutMs)
{
    line().discardInput();
    write(telegram + "\r\n");
    const QByteArray got = readUntil(QByteArrayLiteral("\r\n"), timeoutMs);
    return got.endsWith("\r\n") ? got.chopped(2) : got;
}

QByteArray SimDriver::talk(const QByteArray &script, int timeoutMs)
{
    QByteArray wrong;
    for (const QByteArray &step : script.split(' ')) {
        bool ok = true;
        if (step.startsWith('@')) {
            readFor(step.mid(1).toInt());
        } else if (step == "!plug" || step == "!unplug") {
            step == "!plug" ? instrument().plug() : instrument().unplug();
        } else if (step.startsWith('!')) {
            instrument().press(*keyFromName(step.mid(1)));
        } else if (step == "close") {
            line().close();
        } else if (step.startsWith("open")) {
            ok = line().open() == (step == "open");
        } else {
            const qsizetype equals = step.indexOf('=');
            const QByteArray telegram = step.left(equals < 0 ? step.size() : equals);
            const QByteArray expected = equals < 0 ? step : step.mid(equals + 1);
            const QByteArray got = ask(telegram, timeoutMs);
            ok = got == expected;
            if (!ok)
                wrong += telegram + " -> " + got + " (expected " + expected + ") ";
            continue;
        }
        if (!ok)
            wrong += step + " failed ";
    }
    return wrong;
}

QByteArrayList SimDriver::keys()
{
    QByteArrayList out;
    for (const Trace::Entry &e : instrument().trace().entries())
        if (e.kind == Trace::Entry::Event && e.text.startsWith("key "))
            out << e.text.mid(4);
    return out;
}

QByteArray xmodemBlock(quint8 number, const QByteArray &data128)
{
    QByteArray block;
    block.append(char(0x01)).append(char(number)).append(char(255 - number)).append(data128);
    const qint32 crc = cCRC::crc16(data128, 0, 128);
    return block.append(char(crc >> 8)).append(char(crc & 0xFF));
}

QByteArray sendBlocks(SimDriver &driver, const QByteArrayList &blocks)
{
    QByteArray answers;
    for (const QByteArray &block : blocks + QByteArrayList {QByteArray(1, char(0x04))}) {
        driver.line().discardInput();
        driver.write(block);
        const QByteArray got = driver.readUntil(QByteArray(1, char(0x06)), 1000);
        const qsizetype at = got.lastIndexOf(got.contains('\x06') ? '\x06' : '\x15');
        answers.append(at < 0 ? '\0' : got[at]);
    }
    return answers;
}

QByteArrayList xmodemBlocks(const QByteArray &image, int firstBlock)
{
    QByteArrayList blocks;
    for (qsizetype at = 0; at < image.size(); at += 128)
        blocks << xmodemBlock(quint8(firstBlock + at / 128), image.mid(at, 128));
    return blocks;
}
