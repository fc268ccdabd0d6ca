#pragma once

#include "Bootloader.h"

// The CPU Board: answers identity, serial number, key lock and its indexed values ("DPV;i",
// "DUV;i" with a CRC), takes writes only after the unlock "XUC" / "XUX;<code>;<crc>", and runs
// its bootloader when switched on with RANGE+SETUP held (update mode) or when it has no image.
//
// The board select "DHR;n" of the running application is the Instrument's routing; this class
// sees the other telegrams of the CPU Board, and every telegram while its bootloader reads text.
//
// Lives on the instrument's thread, owned by the Instrument.
class CpuBoard
{
public:
    // The access code of the unlock telegram.
    static inline const QByteArray kAccessCode = QByteArrayLiteral("QJR4TW");
    static inline const QByteArray kBootloaderIdentity = QByteArrayLiteral("KVT;BLCPU;1");

    CpuBoard(BoardHost &host, BoardState &state);

    BoardMode mode() const { return m_state.mode; }
    bool runsApplication() const { return m_state.mode == BoardMode::Application; }
    // The bootloader takes bytes as they come (requesting or receiving).
    bool takesBytes() const;
    // The bootloader reads telegrams (update mode, or left waiting).
    bool bootloaderReadsTelegrams() const;

    void switchedOn(bool updateMode);
    void switchedOff();
    void resume();

    void telegram(const QByteArray &telegram);
    void bytes(const QByteArray &bytes);

    QByteArray keyLock() const { return m_keyLock; }
    bool unlocked() const { return m_unlocked; }
    const QByteArray &lastImage() const { return m_bootloader.lastImage(); }

    // "XUX;" + code + ";" + the decimal CRC-16 of that text.
    static QByteArray unlockTelegram(const QByteArray &code = kAccessCode);

private:
    void answer(const QByteArray &text) { m_host.answer(BoardKind::Cpu, text); }
    void application(const QByteArray &telegram);
    void indexedValue(const QByteArray &telegram);
    void announceSoon();
    void startRequesting();

    BoardHost &m_host;
    BoardState &m_state;
    Bootloader m_bootloader;
    SimTimer m_startTimer;
    SimTimer m_announceTimer;
    QByteArray m_keyLock = QByteArrayLiteral("1");
    bool m_unlockAsked = false;
    bool m_unlocked = false;
};
