#pragma once

#include "boards/Board.h"

#include <QByteArray>
#include <QString>

class cComm;

// One board of the instrument, either as found in the instrument (InitFromDevice) or as offered
// by a firmware file (InitFromBinFile): identity, versions, serial number, bootloader state, and
// what the board panel shows (tool tip, enabled state, colour).
//
// Owned by the engine's update-run data; filled on the engine thread and read by the windows only
// between jobs (copies are handed over in signals).
class cControler
{
public:
    // Colours in the 0x00BBGGRR encoding of the panel and the eligibility check.
    static constexpr qint32 kBlack = 0;
    static constexpr qint32 kRed = 255;
    static constexpr qint32 kBlue = 0xFF0000;

    static constexpr int kBootloaderProbes = 3;
    static constexpr int kProbeSleepMs = 3000;
    static constexpr int kProbeReadMs = 1000;

    // The exact size of the board's firmware image in 128-byte packets.
    qint32 MaxNumOfPackages() const { return boardFacts(m_controler).packets; }

    bool IsInBTLMode() const { return m_isInBTLMode; }

    // Selects the board, reads its identity (and for the CPU Board the serial number); true when
    // the board identified itself. A board waiting in its bootloader gives false with
    // IsInBTLMode() true. LastError() says why a read failed where there is more to say than
    // silence (for example a serial number that is not a number).
    bool InitFromDevice(cComm *comm, BoardKind kind);

    // Fills the descriptor from the firmware file file (a name in dir, or an absolute path),
    // checking its size against the board's image size.
    void InitFromBinFile(const QString &dir, const QString &file, const QString &pattern,
                         BoardKind kind);
    bool ValidBinFile() const { return m_validFile; }
    void setValidBinFile(bool valid) { m_validFile = valid; }

    QString BinFileName() const { return m_binFileName; }
    QString Name() const { return m_name; }
    void setName(const QString &s) { m_name = s; }
    QString Build() const { return m_build; }
    void setBuild(const QString &s) { m_build = s; }
    QString Firmware() const { return m_firmware; }
    void setFirmware(const QString &s) { m_firmware = s; }
    QString SerialNumber() const { return m_serialNumber; }

    // Name and Firmware both known.
    bool IsValid() const { return !m_name.isEmpty() && !m_firmware.isEmpty(); }

    // Name, firmware and build from an identity answer "KVT;name;firmware;build".
    void FillFromKVTTelegram(const QByteArray &answer);

    QString ToolTipText() const { return m_toolTipText; }
    bool Enabled() const { return m_enabled; }
    qint32 Color() const { return m_color; }
    void setColor(qint32 color) { m_color = color; }

    QString LastError() const { return m_lastError; }

private:
    QString m_binFileName;
    bool m_validFile = false;
    qint32 m_color = kBlack;
    bool m_enabled = true;
    QString m_toolTipText;
    BoardKind m_controler = BoardKind::Cpu;
    bool m_isInBTLMode = false;
    QString m_name;
    QString m_build;
    QString m_firmware;
    QString m_serialNumber;
    QString m_lastError;
};

// The serial number text from an answer to "SER": "SER;" removed, a 16-bit number, at least five
// digits ("SER;42" -> "00042"). Returns false (and says why in *error) for a non-number or a
// number above 32767.
bool SerialNumberFromAnswer(const QByteArray &answer, QString *serial, QString *error);

// The six board descriptors: as read from the instrument, or as offered by the firmware files.
using BoardSet = PerBoard<cControler>;
