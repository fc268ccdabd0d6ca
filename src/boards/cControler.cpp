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
} // namespace

void cControler::FillFromKVTTelegram(const QByteArray &answer)
{
    const QList<QByteArray> fields = answer.split(';');
    const auto field = [&](qsizetype i) {
        return i < fields.size() ? QString::fromLatin1(fields[i]) : QString();
    };
    m_name = field(1);
    m_firmware = field(2);
    m_build = field(3);
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
    *this = cControler();
    m_validFile = true;
    m_controler = kind;

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
            m_lastError = u"Board %1 answered with another identity: %2"_s.arg(qint32(kind))
                              .arg(QString::fromLatin1(answer));
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
    for (int i = 0; i < kBootloaderProbes; ++i) {
        comm->WriteTelegram(facts.probe, cComm::kCrLf);
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
    // Everything but the bootloader state describes the file from here on.
    const bool inBootloader = m_isInBTLMode;
    *this = cControler();
    m_isInBTLMode = inBootloader;
    m_binFileName = file;
    m_controler = kind;
    m_firmware = u"<not found>"_s;
    m_color = kRed;

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
            m_firmware = modHelper::VersionFromFileName(modHelper::SplitPath(file, false), pattern);
            m_name = m_binFileName;
        }
    }
    m_toolTipText = modHelper::SplitPath(m_binFileName, false);
}
