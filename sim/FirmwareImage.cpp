#include "FirmwareImage.h"

#include "link/cCRC.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace FirmwareImage {

namespace {

constexpr int kKindOffset = 8;
constexpr int kCrcOffset = 10;
constexpr int kSizeOffset = 12;
constexpr int kNameOffset = 16;
constexpr int kNameSize = 24;
constexpr int kFirmwareOffset = 40;
constexpr int kFirmwareSize = 16;
constexpr int kBuildOffset = 56;
constexpr int kBuildSize = 16;

void putText(QByteArray &image, int offset, int size, const QByteArray &text)
{
    const QByteArray cut = text.left(size);
    image.replace(offset, cut.size(), cut);
}

QByteArray getText(const QByteArray &image, int offset, int size)
{
    QByteArray field = image.mid(offset, size);
    const int nul = field.indexOf('\0');
    return nul < 0 ? field : field.left(nul);
}

quint32 getNumber(const QByteArray &image, int offset, int size)
{
    quint32 value = 0;
    for (int i = 0; i < size; ++i)
        value = (value << 8) | quint8(image.at(offset + i));
    return value;
}

void putNumber(QByteArray &image, int offset, int size, quint32 value)
{
    for (int i = size - 1; i >= 0; --i) {
        image[offset + i] = char(value & 0xFF);
        value >>= 8;
    }
}

quint16 contentCrc(const QByteArray &image)
{
    return quint16(cCRC::crc16(image, kHeaderSize, qint32(image.size() - kHeaderSize)));
}

// The digits of a version without its dots, at least three: "2.01" -> "201".
QByteArray versionDigits(const QByteArray &firmware)
{
    QByteArray digits = firmware;
    digits.replace('.', QByteArray());
    return digits.rightJustified(3, '0');
}

} // namespace

QByteArray make(BoardKind kind, const QByteArray &firmware, const QByteArray &build,
                const QByteArray &name)
{
    QByteArray image(int(imageSizeBytes(kind)), '\0');
    // A fixed pseudo-random filler per board and version, so equal options give equal files.
    quint32 x = 0x9E3779B9u ^ quint32(cCRC::crc16FromString(firmware + ';' + build)) ^
        (quint32(boardIndex(kind)) << 20);
    for (qsizetype i = kHeaderSize; i < image.size(); ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        image[i] = char(x >> 24);
    }
    image.replace(0, kMagic.size(), kMagic);
    image[kKindOffset] = char(boardIndex(kind));
    putNumber(image, kSizeOffset, 4, quint32(image.size()));
    putText(image, kNameOffset, kNameSize, name);
    putText(image, kFirmwareOffset, kFirmwareSize, firmware);
    putText(image, kBuildOffset, kBuildSize, build);
    putNumber(image, kCrcOffset, 2, contentCrc(image));
    return image;
}

bool parse(const QByteArray &image, BoardKind expected, Header *header, QString *why)
{
    auto fail = [why](const QString &reason) {
        if (why)
            *why = reason;
        return false;
    };
    if (image.size() != imageSizeBytes(expected))
        return fail(u"%1 bytes received, the board takes %2"_s.arg(image.size())
                        .arg(imageSizeBytes(expected)));
    if (!image.startsWith(kMagic))
        return fail(u"no image header"_s);
    if (quint8(image.at(kKindOffset)) != boardIndex(expected))
        return fail(u"an image for another board"_s);
    if (getNumber(image, kSizeOffset, 4) != quint32(image.size()))
        return fail(u"the header's size does not match"_s);
    if (getNumber(image, kCrcOffset, 2) != contentCrc(image))
        return fail(u"the image's CRC does not match its contents"_s);
    if (header) {
        header->kind = expected;
        header->name = getText(image, kNameOffset, kNameSize);
        header->firmware = getText(image, kFirmwareOffset, kFirmwareSize);
        header->build = getText(image, kBuildOffset, kBuildSize);
    }
    return true;
}

QString fileName(BoardKind kind, const QByteArray &firmware, const QByteArray &build,
                 const QByteArray &image)
{
    const QByteArray crc = QByteArray::number(cCRC::crc16FromString(image));
    const QByteArray digits = versionDigits(firmware);
    QByteArray name;
    switch (kind) {
    case BoardKind::Cpu:
        name = "FW_CPU-BOARD_V" + digits + '-' + build.rightJustified(3, '0') + "_CRC" + crc;
        break;
    case BoardKind::Main:
        name = "FW_MAINBOARD_" + digits + "_CRC" + crc;
        break;
    case BoardKind::Meas:
        name = "FW_MESSMODUL_" + digits + '-' + build + "_CRC" + crc;
        break;
    }
    return QString::fromLatin1(name) + u".bin"_s;
}

Version defaultNewVersion(BoardKind kind)
{
    switch (kind) {
    case BoardKind::Cpu:
        return {"2.01", "17"};
    case BoardKind::Meas:
        return {"1.21", "4"};
    case BoardKind::Main:
        return {"1.03", "8"};
    }
    return {};
}

QStringList writeSet(const QString &dir, const Version &cpu, const Version &meas,
                     const Version &main, QString *error)
{
    if (!QDir().mkpath(dir)) {
        if (error)
            *error = u"cannot create %1"_s.arg(dir);
        return {};
    }
    QStringList written;
    const std::pair<BoardKind, Version> set[] = {
        {BoardKind::Cpu, cpu}, {BoardKind::Main, main}, {BoardKind::Meas, meas}};
    for (const auto &[kind, version] : set) {
        const QByteArray image = make(kind, version.firmware, version.build);
        const QString name = fileName(kind, version.firmware, version.build, image);
        QFile file(QDir(dir).filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(image) != image.size()) {
            if (error)
                *error = u"%1: %2"_s.arg(file.fileName(), file.errorString());
            return {};
        }
        written << name;
    }
    return written;
}

} // namespace FirmwareImage
