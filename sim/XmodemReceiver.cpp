#include "XmodemReceiver.h"

#include "link/cCRC.h"

std::vector<XmodemReceiver::Event> XmodemReceiver::feed(const QByteArray &bytes, const Veto &veto)
{
    std::vector<Event> events;
    for (char c : bytes) {
        if (!m_block.isEmpty()) {
            m_block.append(c);
            if (m_block.size() == kBlockSize) {
                events.push_back(checkBlock(veto));
                m_block.clear();
            }
            continue;
        }
        if (c == kSoh) {
            m_text.clear();
            m_block.append(c);
        } else if (c == kEot) {
            events.push_back({Event::EndOfTransmission});
        } else if (c == kCan) {
            events.push_back({Event::Cancelled});
        } else {
            m_text.append(c);
            if (m_text.size() > kMaxTextSize)
                m_text.remove(0, m_text.size() - kMaxTextSize);
            if (m_text.endsWith("\r\n")) {
                events.push_back({Event::Text, 0, m_text.chopped(2)});
                m_text.clear();
            }
        }
    }
    return events;
}

XmodemReceiver::Event XmodemReceiver::checkBlock(const Veto &veto)
{
    const quint8 number = quint8(m_block.at(1));
    const quint8 complement = quint8(m_block.at(2));
    const int expected = m_blocks + 1;
    if (quint8(number + complement) != 0xFF)
        return {Event::Refused, expected, QByteArrayLiteral("number and complement disagree")};
    const quint16 crc = quint16((quint8(m_block.at(131)) << 8) | quint8(m_block.at(132)));
    if (crc != quint16(cCRC::crc16(m_block, 3, kDataSize)))
        return {Event::Refused, expected, QByteArrayLiteral("CRC error")};
    if (m_blocks > 0 && number == quint8(m_blocks))
        return {Event::Repeat, m_blocks};
    if (number != quint8(expected))
        return {Event::Refused, expected,
                "block number " + QByteArray::number(number) + ", expected " +
                    QByteArray::number(quint8(expected))};
    if (veto && veto(expected))
        return {Event::Refused, expected, QByteArrayLiteral("refused by a fault rule")};
    m_data.append(m_block.constData() + 3, kDataSize);
    ++m_blocks;
    return {Event::Block, expected};
}

void XmodemReceiver::reset()
{
    m_block.clear();
    m_text.clear();
    m_data.clear();
    m_blocks = 0;
}
