#include "cControler.h"

#include "FirmwareFiles.h"
#include "link/Clock.h"
#include "link/cComm.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {
constexpr char kSerialPrefix[] = "SER;";
constexpr char kCrLf[] = "\r\n";
} // namespace

void cControler::FillFromKVTTelegram(const QByteArray &answer)
{
    m_name.clear();
    m_firmware.clear();
    m_build.clear();
    const QList<QByteArray> fields = answer.split(';');
    if (fields.size() > 1)
        m_name = QString::fromLatin1(fields[1]);
    if (fields.size() > 2)
        m_firmware = QString::fromLatin1(fields[2]);
    if (fields.size() > 3)
        m_build = QString::fromLatin1(fields[3]);
}

bool SerialNumberFromAnswer(const QByteArray &answer, QString *serial, QString *error)
{
    QByteArray text = answer;
    text.replace(kSerialPrefix, "");
    bool ok = false;
    const qint16 number = text.trimmed().toShort(&ok);
    if (!ok) {
        *error = u"Invalid serial number answer: "_s + QString::fromLatin1(answer);
        return false;
    }
    // At least five digits, as the instrument's serial number is always shown.
    const QString digits = QString::number(qAbs(int(number))).rightJustified(5, u'0');
    *serial = number < 0 ? u"-"_s + digits : digits;
    return true;
}

bool cControler::InitFromDevice(cComm *comm, BoardKind kind)
{
    m_toolTipText.clear();
    m_enabled = true;
    m_color = kBlack;
    m_name.clear();
    m_firmware.clear();
    m_serialNumber.clear();
    m_build.clear();
    m_binFileName.clear();
    m_validFile = true;
    m_controler = kind;
    m_isInBTLMode = false;
    m_lastError.clear();

    const BoardFacts &facts = boardFacts(kind);
    const QByteArray select = facts.select;
    comm->Transceive(select);
    QByteArray answer = comm->Transceive("KVT");

    // The CPU Board's bootloader announces itself; "F" makes it show its "C".
    if (answer.contains(boardFacts(BoardKind::Cpu).bootloaderTelegram)) {
        comm->Transceive("F");
        comm->Transceive(select);
        answer = comm->Transceive("KVT");
    }

    if (answer.endsWith('C')) {
        m_isInBTLMode = true;
        return false;
    }

    if (answer == "E;1")
        answer = comm->Transceive("KVT");

    if (answer != "E;1" && !answer.isEmpty()) {
        if (!answer.contains(facts.identity)) {
            m_lastError = u"Board %1 answered with another identity: %2"_s.arg(qint32(kind)).arg(
                QString::fromLatin1(answer));
            return false;
        }
        FillFromKVTTelegram(answer);
        if (kind == BoardKind::Cpu) {
            const QByteArray serialAnswer = comm->Transceive("SER");
            if (!SerialNumberFromAnswer(serialAnswer, &m_serialNumber, &m_lastError))
                return false;
        }
        return true;
    }

    // No identity: the board may be waiting in its bootloader, asking with "C".
    const QByteArray probe = facts.probe;
    for (int i = 0; i < kBootloaderProbes; ++i) {
        comm->WriteTelegram(probe, kCrLf);
        comm->clock().sleepMs(kProbeSleepMs);
        if (comm->ReadT(kProbeReadMs, {}).contains('C')) {
            m_isInBTLMode = true;
            break;
        }
    }
    return false;
}

void cControler::InitFromBinFile(const QString &dir, const QString &file, const QString &pattern,
                                 BoardKind kind)
{
    m_toolTipText.clear();
    m_name.clear();
    m_build.clear();
    m_serialNumber.clear();
    m_enabled = true;
    m_binFileName = file;
    m_controler = kind;
    m_firmware = u"<not found>"_s;
    m_color = kRed;
    m_validFile = false;
    m_lastError.clear();

    const QString path = QFileInfo(file).isAbsolute() ? file : QDir(dir).filePath(file);
    if (!m_binFileName.isEmpty() && modHelper::FileExists(path)) {
        QFile image(path);
        if (!image.open(QIODevice::ReadOnly)) {
            m_firmware = u"<invalid>"_s;
            m_lastError = u"Cannot open %1: %2"_s.arg(path, image.errorString());
            return;
        }
        const qint64 length = image.size();
        if (length / 128 != MaxNumOfPackages() || length % 128 != 0) {
            m_firmware = length != 0 ? u"<invalid size>"_s : u"<empty>"_s;
        } else {
            m_validFile = true;
            m_color = kBlack;
            m_firmware =
                modHelper::VersionFromFileName(modHelper::SplitPath(file, false), pattern);
            m_name = m_binFileName;
        }
    }
    m_toolTipText = modHelper::SplitPath(m_binFileName, false);
}
