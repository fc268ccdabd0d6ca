#include "cBackup.h"

#include "cXML.h"
#include "link/Clock.h"
#include "link/LogSink.h"
#include "link/Operator.h"
#include "link/UpdaterError.h"
#include "link/cCRC.h"
#include "link/cComm.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <filesystem>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRestoreTimeoutMs = 2000;
constexpr int kWaitAfterCalibrationOpenMs = 2000;
constexpr int kUnlockAttempts = 4;

const QString kNoOrInvalidAnswer = u"No or Invalid Answer"_s;

QString actionFor(BoardKind board)
{
    return QString::fromLatin1(boardFacts(board).backupFailedText);
}

QString elementFor(BoardKind board)
{
    return QString::fromLatin1(boardFacts(board).backupElement);
}

QString invalidAnswer(const QByteArray &answer)
{
    return answer.isEmpty() ? kNoOrInvalidAnswer
                            : kNoOrInvalidAnswer + u": "_s + QString::fromLatin1(answer);
}

// Whether an answer starts with the query it answers and the separator.
bool echoes(const QByteArray &telegram, const QByteArray &answer)
{
    return answer.size() > telegram.size() && answer.startsWith(telegram) &&
        answer.at(telegram.size()) == ';';
}

const QString kSerialNumberAttribute = u"SerialNumber"_s;
const QString kRootPath = u"/VARIMOsentry"_s;

// The new backup is written beside the old one under this name until it is complete.
QString partialNameFor(const QString &fileName)
{
    return fileName + u".incomplete"_s;
}

// Whether a restore telegram's echo carries the value sent: the same bytes, or the same number
// written the board's way ("12.5" answered "12.50").
bool echoesSameValue(const QByteArray &telegram, const QByteArray &answer)
{
    if (answer == telegram)
        return true;
    const qsizetype sent = telegram.indexOf(';');
    const qsizetype echoed = answer.indexOf(';');
    if (sent < 0 || echoed < 0)
        return false;
    bool sentIsNumber = false;
    bool echoedIsNumber = false;
    const double sentValue = telegram.mid(sent + 1).toDouble(&sentIsNumber);
    const double echoedValue = answer.mid(echoed + 1).toDouble(&echoedIsNumber);
    return sentIsNumber && echoedIsNumber && sentValue == echoedValue;
}

} // namespace

void cBackup::Init(cComm *comm)
{
    m_comm = comm;
    m_lastError.clear();
}

const QList<QByteArray> &cBackup::MainBoardQueries()
{
    static const QList<QByteArray> queries {"SER", "CH", "CN", "CA", "C3", "C5", "C12", "CEO"};
    return queries;
}

const QList<QByteArray> &cBackup::MeasProtectedQueries()
{
    static const QList<QByteArray> queries {
        "CEF;0;0", "CEF;0;1", "CEF;0;2", "CEF;0;3", "CEF;1;0", "CEF;1;1", "CEF;1;2",
        "CEF;1;3", "CEF;2;0", "CEF;2;1", "CEF;2;2", "CEF;2;3", "SER",     "HW",
        "HVO",     "HVC;0",   "HVC;1",   "HVC;2",   "HVC;3",   "ZOL",     "DFI",
        "ADF",     "CET;0",   "CET;1",   "CET;2",   "CEO"};
    return queries;
}

const QList<QByteArray> &cBackup::MeasUserQueries()
{
    static const QList<QByteArray> queries {"RGE",   "ACH",   "ADG",   "HV",    "HVE", "HVR",
                                            "FMD",   "MIC;0", "MIC;1", "MIC;2", "ASE", "ASP;0",
                                            "ASP;1", "ASP;2", "LS;0",  "LS;1",  "LS;2"};
    return queries;
}

QByteArray cBackup::ExtractValue(const QByteArray &telegram, const QByteArray &answer,
                                 bool stripTail)
{
    QByteArray value = answer.mid(telegram.size() + 1);
    if (stripTail) {
        const qsizetype lastSeparator = value.lastIndexOf(';');
        if (lastSeparator >= 0)
            value.truncate(lastSeparator);
    }
    return value;
}

bool cBackup::CheckAnswerCrc(QByteArray &answer)
{
    const QByteArray crcText = answer.mid(answer.lastIndexOf(';') + 1);
    bool isNumber = false;
    const quint32 crc = crcText.toUInt(&isNumber);
    if (!isNumber)
        return false;
    // Cut by the digit count of the number read, so a CRC written with leading zeros leaves one
    // digit behind and does not match.
    answer.chop(QByteArray::number(crc).size());
    return quint32(cCRC::crc16FromString(answer)) == crc;
}

bool cBackup::CheckRestoreAnswer(const QByteArray &telegram, const QByteArray &answer)
{
    if (answer.isEmpty())
        return true; // no fields to compare; the caller tests emptiness itself
    if (!telegram.contains(';'))
        return answer.contains(telegram);
    return answer.split(';').first() == telegram.split(';').first();
}

QByteArray cBackup::AppendCrc(const QByteArray &telegram)
{
    return cCRC::appendCrcToString(telegram);
}

QByteArray cBackup::SendAndExpect(const QByteArray &telegram, const QByteArray &expected)
{
    QByteArray answer = m_comm->Transceive(telegram);
    m_lastError.clear();
    if (answer != expected)
        m_lastError = invalidAnswer(answer);
    return answer;
}

void cBackup::StoreIdentity(cXML &xml)
{
    const QList<QByteArray> fields = m_comm->Transceive("KVT").split(';');
    if (fields.size() > 1)
        xml.SetAttribute(u"Name"_s, fields[1]);
    if (fields.size() > 2)
        xml.SetAttribute(u"Firmware"_s, fields[2]);
    if (fields.size() > 3)
        xml.SetAttribute(u"Build"_s, fields[3]);
}

QString cBackup::CheckTelegram(const QByteArray &telegram)
{
    if (telegram.size() > kMaxTelegramBytes) {
        return u"the telegram %1... holds %2 bytes, more than the %3 a board takes"_s.arg(
            QString::fromLatin1(telegram.left(20)), QString::number(telegram.size()),
            QString::number(kMaxTelegramBytes));
    }
    const auto control = std::find_if(telegram.cbegin(), telegram.cend(),
                                      [](char c) { return static_cast<unsigned char>(c) < 0x20; });
    if (control == telegram.cend())
        return {};
    // Shown with its control bytes written as \xNN, so the message itself stays one line.
    QString shown;
    for (const char c : telegram.left(60)) {
        const auto byte = static_cast<unsigned char>(c);
        shown += byte < 0x20 ? u"\\x%1"_s.arg(uint(byte), 2, 16, QLatin1Char('0'))
                             : QString(QLatin1Char(c));
    }
    return u"the telegram %1 holds the control byte 0x%2, which would end it on the line"_s.arg(
        shown, u"%1"_s.arg(uint(static_cast<unsigned char>(*control)), 2, 16, QLatin1Char('0')));
}

cBackup::FileCheck cBackup::CheckBackupFile(const QString &fileName)
{
    FileCheck check;
    cXML xml;
    if (!xml.OpenXMLDocument(fileName)) {
        check.error = u"%1 is no backup file: %2"_s.arg(fileName, xml.errorString());
        return check;
    }
    check.serialNumber = QString::fromLatin1(xml.RootAttribute(kSerialNumberAttribute));
    try {
        for (const BoardKind board : kUpdateOrder) {
            QList<QByteArray> telegrams;
            xml.GetTelegramsFromXML(elementFor(board), telegrams);
            for (const QByteArray &telegram : telegrams) {
                if (const QString why = CheckTelegram(telegram); !why.isEmpty()) {
                    check.error = u"Backup file %1 cannot be restored: %2"_s.arg(fileName, why);
                    return check;
                }
            }
        }
    } catch (const UpdaterError &e) {
        check.error = u"Backup file %1: %2"_s.arg(fileName, e.message());
    }
    return check;
}

// Stores a value read from the board. A value that could not be sent back as one telegram (a
// control byte, or too long) fails the backup now rather than the restore after an update.
bool cBackup::StoreValue(cXML &xml, const QByteArray &telegram, const QByteArray &answer,
                         const QByteArray &value)
{
    if (!CheckTelegram(telegram + ';' + value).isEmpty()) {
        m_lastError = invalidAnswer(answer);
        return false;
    }
    xml.CreateAndSetChild(u"Value"_s, value);
    return true;
}

bool cBackup::ReadQueryList(cXML &xml, const QList<QByteArray> &telegrams)
{
    for (const QByteArray &telegram : telegrams) {
        const QByteArray answer = m_comm->Transceive(telegram);
        // The board answers with the query, ";" and the value. Anything else (noise on the line,
        // the answer to another query) would be stored as the value and written back later.
        if (answer.isEmpty() || answer.startsWith("E;") || !echoes(telegram, answer)) {
            m_lastError = invalidAnswer(answer);
            return false;
        }
        if (!StoreValue(xml, telegram, answer, ExtractValue(telegram, answer)))
            return false;
        xml.SetAttribute(u"Telegram"_s, telegram);
        xml.SetParent();
    }
    return true;
}

bool cBackup::ReadIndexedValues(cXML &xml, const QByteArray &prefix, int lastIndex)
{
    for (int i = 0; i <= lastIndex; ++i) {
        const QByteArray telegram = prefix + QByteArray::number(i);
        QByteArray answer = m_comm->Transceive(telegram);
        if (answer.isEmpty() || answer.startsWith("E;") || !echoes(telegram, answer)) {
            m_lastError = invalidAnswer(answer);
            return false;
        }
        if (!CheckAnswerCrc(answer)) {
            m_lastError = u"Invalid CRC Answer: "_s + QString::fromLatin1(answer);
            return false;
        }
        if (!StoreValue(xml, telegram, answer, ExtractValue(telegram, answer, true)))
            return false;
        xml.SetAttribute(u"id"_s, QByteArray::number(i));
        xml.SetParent();
    }
    return true;
}

bool cBackup::SecureData(const QString &fileName, const QString &serialNumber)
{
    m_lastError.clear();
    m_partialFile.clear();
    m_currAction = actionFor(BoardKind::Main);
    if (fileName.isEmpty()) {
        m_lastError = u"No backup file name: the serial number was not read."_s;
        return false;
    }
    // The previous backup stays in place under its own name until the new one is complete.
    const QString partial = partialNameFor(fileName);
    cXML xml(&m_comm->clock());
    bool ok = false;
    try {
        xml.CreateXMLDocument(partial);
        if (!serialNumber.isEmpty())
            xml.SetAttribute(kSerialNumberAttribute, serialNumber.toLatin1());
        ok = ReadMainBoard(xml) && ReadMeasuringModule(xml) && ReadCpuBoard(xml);
        if (ok)
            xml.SaveXMLDoc();
    } catch (const UpdaterError &e) {
        m_lastError = e.message();
        ok = false;
    }
    if (ok && m_afterSave)
        m_afterSave(partial);
    if (ok && VerifySaved(xml, partial) && PutInPlace(partial, fileName))
        return true;
    if (QFile::exists(partial))
        m_partialFile = partial;
    return false;
}

bool cBackup::PutInPlace(const QString &partial, const QString &fileName)
{
    // A rename within one folder replaces the old file in one step: no moment without a backup.
    std::error_code error;
    std::filesystem::rename(std::filesystem::path(partial.toStdU16String()),
                            std::filesystem::path(fileName.toStdU16String()), error);
    if (error) {
        m_lastError = u"Cannot put the backup file %1 in place of %2: %3"_s.arg(
            partial, fileName, QString::fromStdString(error.message()));
        return false;
    }
    return true;
}

bool cBackup::SelectBoard(cXML &xml, BoardKind board, bool firstBoard)
{
    m_currAction = actionFor(board);
    if (firstBoard)
        xml.CreateAndSetChild(elementFor(board), {});
    else
        xml.CreateAndSetSibling(elementFor(board), {});
    const QByteArray select = boardFacts(board).select;
    SendAndExpect(select, select);
    if (!m_lastError.isEmpty())
        return false;
    StoreIdentity(xml);
    return true;
}

bool cBackup::ReadMainBoard(cXML &xml)
{
    if (!SelectBoard(xml, BoardKind::Main, true) || !ReadQueryList(xml, MainBoardQueries()))
        return false;
    const QByteArray deselect = boardFacts(BoardKind::Cpu).select;
    SendAndExpect(deselect, deselect);
    return m_lastError.isEmpty();
}

bool cBackup::ReadMeasuringModule(cXML &xml)
{
    if (!SelectBoard(xml, BoardKind::Meas, false))
        return false;
    xml.CreateAndSetChild(u"Protected"_s, {});
    if (!ReadQueryList(xml, MeasProtectedQueries()))
        return false;
    xml.CreateAndSetSibling(u"User"_s, {});
    if (!ReadQueryList(xml, MeasUserQueries()))
        return false;
    xml.SetParent();
    return true;
}

bool cBackup::ReadCpuBoard(cXML &xml)
{
    if (!SelectBoard(xml, BoardKind::Cpu, false))
        return false;
    xml.CreateAndSetChild(u"Protected"_s, {});
    if (!ReadIndexedValues(xml, "DPV;", kLastProtectedIndex))
        return false;
    xml.CreateAndSetSibling(u"User"_s, {});
    if (!ReadIndexedValues(xml, "DUV;", kLastUserIndex))
        return false;
    xml.SetParent();
    return true;
}

bool cBackup::VerifySaved(const cXML &xml, const QString &fileName)
{
    // No board may be flashed after a backup that did not reach the disk intact.
    cXML saved;
    if (!saved.OpenXMLDocument(fileName)) {
        m_lastError =
            u"Backup file %1 cannot be read back: %2"_s.arg(fileName, saved.errorString());
        return false;
    }
    for (const BoardKind board : kUpdateOrder) {
        const QString difference = xml.FirstDifference(saved, elementFor(board));
        if (!difference.isEmpty()) {
            m_lastError =
                u"Backup file %1 differs from what was read: %2"_s.arg(fileName, difference);
            return false;
        }
    }
    return true;
}

bool cBackup::Unlock(const QByteArray &accessCode)
{
    if (!m_comm->OpenPort())
        return false;
    for (int attempt = 0; attempt < kUnlockAttempts; ++attempt) {
        if (m_comm->Transceive("XUC", cComm::kDefaultTimeoutMs, QByteArray("XUC")) != "XUC")
            continue;
        const QByteArray unlock = AppendCrc("XUX;" + accessCode + ";");
        if (m_comm->Transceive(unlock, cComm::kDefaultTimeoutMs, QByteArray("XUX")) == "XUX")
            return true;
    }
    return false;
}

bool cBackup::RestoreData(BoardKind board, const QString &xmlSource)
{
    m_currAction = actionFor(board);

    QList<QByteArray> telegrams;
    try {
        cXML xml;
        if (!xml.OpenXMLDocument(xmlSource)) {
            m_lastError = u"Cannot open backup file %1: %2"_s.arg(xmlSource, xml.errorString());
            return false;
        }
        xml.GetTelegramsFromXML(elementFor(board), telegrams);
    } catch (const UpdaterError &e) {
        m_lastError = u"Backup file %1: %2"_s.arg(xmlSource, e.message());
        return false;
    }
    for (const QByteArray &telegram : telegrams) {
        if (const QString why = CheckTelegram(telegram); !why.isEmpty()) {
            m_lastError = u"Backup file %1 cannot be restored: %2"_s.arg(xmlSource, why);
            return false;
        }
    }

    m_comm->Transceive(boardFacts(board).select);
    bool writeEnable = true;
    if (board == BoardKind::Cpu) {
        if (!Unlock(kAccessCode))
            return false;
        writeEnable = false;
    }

    for (const QByteArray &telegram : telegrams) {
        if (!RestoreTelegram(telegram, writeEnable))
            return false;
        if (telegram == "CEO;0")
            writeEnable = false;
        m_comm->op().letEventsRun();
    }
    return true;
}

bool cBackup::RestoreTelegram(const QByteArray &telegram, bool writeEnable)
{
    if (writeEnable)
        m_comm->Transceive("CEW;1");
    QByteArray answer = m_comm->Transceive(telegram, kRestoreTimeoutMs);
    if (telegram == "CEO;1")
        m_comm->clock().sleepMs(kWaitAfterCalibrationOpenMs);
    if (answer.isEmpty()) {
        m_lastError = kNoOrInvalidAnswer;
        return false;
    }
    // "E;20" (a value the board does not take) counts as accepted.
    if (answer != "E;20" && !CheckRestoreAnswer(telegram, answer)) {
        answer = m_comm->Transceive(telegram, kRestoreTimeoutMs);
        if (!CheckRestoreAnswer(telegram, answer)) {
            m_lastError = invalidAnswer(answer);
            return false;
        }
        if (answer.isEmpty()) {
            m_lastError = kNoOrInvalidAnswer;
            return false;
        }
    } else if (answer != "E;20" && telegram.contains(';') && !echoesSameValue(telegram, answer)) {
        // The board took the command but echoed another value, not merely the same number in
        // its own format ("5" as "5.0"). A value garbled on its way would stay on the board, so
        // it is written once more; whatever the command's echo then says is accepted.
        if (writeEnable)
            m_comm->Transceive("CEW;1");
        answer = m_comm->Transceive(telegram, kRestoreTimeoutMs);
        if (answer.isEmpty()) {
            m_lastError = kNoOrInvalidAnswer;
            return false;
        }
        if (answer != "E;20" && !CheckRestoreAnswer(telegram, answer)) {
            m_lastError = invalidAnswer(answer);
            return false;
        }
        if (answer != telegram && m_comm->log())
            m_comm->log()->UpdateLog(u"Restore: "_s + QString::fromLatin1(telegram) +
                                     u" echoed as "_s + QString::fromLatin1(answer));
    }
    return true;
}
