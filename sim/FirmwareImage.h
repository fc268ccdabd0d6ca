#pragma once

#include "SimTypes.h"

#include <QString>
#include <QStringList>

// The test-image format of the simulated boards. An image is exactly the board's image size; its
// first 128 bytes are a header, the rest is pseudo-random filler (every byte value occurs, also
// the XMODEM control bytes):
//
//   offset  size  content
//        0     8  magic "VSIMIMG1"
//        8     1  board kind (0 CPU Board, 1 Measuring Module, 2 Main Board)
//        9     1  0
//       10     2  CRC-16 of the bytes from offset 128 to the end, high byte first
//       12     4  image size in bytes, high byte first
//       16    24  board name, Latin-1, NUL-padded (empty: the board keeps its name)
//       40    16  firmware version ("2.01"), NUL-padded
//       56    16  build ("17"), NUL-padded
//       72    56  0
//
// A bootloader takes an image only when it is a valid image of its own board.
//
// Stateless; callable from any thread.
namespace FirmwareImage {

constexpr int kHeaderSize = 128;
inline const QByteArray kMagic = QByteArrayLiteral("VSIMIMG1");

struct Header
{
    BoardKind kind = BoardKind::Cpu;
    QByteArray name;
    QByteArray firmware;
    QByteArray build;
};

QByteArray make(BoardKind kind, const QByteArray &firmware, const QByteArray &build,
                const QByteArray &name = {});

// Checks size, magic, board kind and the CRC of the contents; on failure says why.
bool parse(const QByteArray &image, BoardKind expected, Header *header, QString *why = nullptr);

// The file name the updater's default patterns find: FW_CPU-BOARD_V201-017_CRC<crc>.bin,
// FW_MAINBOARD_103_CRC<crc>.bin, FW_MESSMODUL_121-4_CRC<crc>.bin, with the decimal CRC-16 of the
// whole image.
QString fileName(BoardKind kind, const QByteArray &firmware, const QByteArray &build,
                 const QByteArray &image);

struct Version
{
    QByteArray firmware;
    QByteArray build;
};

// The versions --make-firmware writes by default: one step newer than the default instrument.
Version defaultNewVersion(BoardKind kind);

// Writes an image of each board into dir; returns the file names written (empty on failure, with
// the reason in *error).
QStringList writeSet(const QString &dir, const Version &cpu, const Version &meas,
                     const Version &main, QString *error = nullptr);

} // namespace FirmwareImage
