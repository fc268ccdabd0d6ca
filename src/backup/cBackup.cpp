#include "cBackup.h"

#include "cXML.h"
#include "link/Clock.h"
#include "link/LogSink.h"
#include "link/Operator.h"
#include "link/UpdaterError.h"
#include "link/cCRC.h"
#include "link/cComm.h"

#include <QFile>
#include <algorithm>
#include <filesystem>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRestoreTimeoutMs = 2000;
constexpr int kWaitAfterCalibrationOpenMs = 2000;
constexpr int kUnlockAttempts = 4;

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
    const QString text = u"No or Invalid Answer"_s;
    return answer.isEmpty() ? text : text + u": "_s + QString::fromLatin1(answer);
}

// Whether an answer is the board's value for a query: the query, the separator and the value.
// Anything else (an error answer "E;nn", noise on the line, the answer to another query) would be
// stored as the value and written back later.
bool answers(const QByteArray &telegram, const QByteArray &answer)
{
    return !answer.startsWith("E;") && answer.size() > telegram.size() &&
        answer.startsWith(telegram) && answer.at(telegram.size()) == ';';
}

// Whether a restore telegram's answer says the board took it: "E;20" (a value the board does not
// take) counts as taken.
bool accepted(const QByteArray &telegram, const QByteArray &answer)
{
    return !answer.isEmpty() && (answer == "E;20" || cBackup::CheckRestoreAnswer(telegram, answer));
}

const QString kSerialNumberAttribute = u"SerialNumber"_s;

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

void storeIdentity(cComm &comm, cXML &xml)
{
    // "KVT;name;firmware;build": each field the answer holds becomes an attribute.
    const QList<QByteArray> fields = comm.Transceive("KVT").split(';');
    const QStringList names = {u"Name"_s, u"Firmware"_s, u"Build"_s};
    for (qsizetype i = 1; i < fields.size() && i <= names.size(); ++i)
        xml.SetAttribute(names[i - 1], fields[i]);
}

// The restore telegrams of one board in an opened backup file, and why they cannot be sent ("" when
// they can).
QString restoreTelegrams(const cXML &xml, BoardKind board, const QString &fileName,
                         QList<QByteArray> &telegrams)
{
    try {
        xml.GetTelegramsFromXML(elementFor(board), telegrams);
    } catch (const UpdaterError &e) {
        return u"Backup file %1: %2"_s.arg(fileName, e.message());
    }
    for (const QByteArray &telegram : telegrams) {
        if (const QString why = cBackup::CheckTelegram(telegram); !why.isEmpty())
            return u"Backup file %1 cannot be restored: %2"_s.arg(fileName, why);
    }
    return {};
}

bool unlock(cComm &comm, const QByteArray &accessCode)
{
    if (!comm.OpenPort())
        return false;
    for (int attempt = 0; attempt < kUnlockAttempts; ++attempt) {
        if (comm.Transceive("XUC", cComm::kDefaultTimeoutMs, QByteArray("XUC")) != "XUC")
            continue;
        const QByteArray telegram = cCRC::appendCrcToString("XUX;" + accessCode + ";");
        if (comm.Transceive(telegram, cComm::kDefaultTimeoutMs, QByteArray("XUX")) == "XUX")
            return true;
    }
    return false;
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

bool cBackup::fail(const QString &error)
{
    m_lastError = error;
    return false;
}

bool cBackup::SendAndExpectEcho(const QByteArray &telegram)
{
    const QByteArray answer = m_comm->Transceive(telegram);
    m_lastError = answer == telegram ? QString() : invalidAnswer(answer);
    return m_lastError.isEmpty();
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
    const QString shown =
        escapedText(QString::fromLatin1(telegram.left(60)), [](char16_t c) { return c < 0x20; });
    return u"the telegram %1 holds the control byte 0x%2, which would end it on the line"_s.arg(
        shown, hexByte(static_cast<unsigned char>(*control)));
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
    for (const BoardKind board : kUpdateOrder) {
        QList<QByteArray> telegrams;
        check.error = restoreTelegrams(xml, board, fileName, telegrams);
        if (!check.error.isEmpty())
            break;
    }
    return check;
}

// Reads one value into a new element below the current one, keyed by the attribute key. The CPU
// Board's values (withCrc) end in a CRC of the answer. A value that could not be sent back as one
// telegram (a control byte, or too long) fails the backup now rather than the restore after an
// update.
bool cBackup::ReadValue(cXML &xml, const QByteArray &telegram, const QString &key,
                        const QByteArray &keyValue, bool withCrc)
{
    QByteArray answer = m_comm->Transceive(telegram);
    if (!answers(telegram, answer))
        return fail(invalidAnswer(answer));
    if (withCrc && !CheckAnswerCrc(answer))
        return fail(u"Invalid CRC Answer: "_s + QString::fromLatin1(answer));
    const QByteArray value = ExtractValue(telegram, answer, withCrc);
    if (!CheckTelegram(telegram + ';' + value).isEmpty())
        return fail(invalidAnswer(answer));
    xml.CreateAndSetChild(u"Value"_s, value);
    xml.SetAttribute(key, keyValue);
    xml.SetParent();
    return true;
}

bool cBackup::ReadQueryList(cXML &xml, const QList<QByteArray> &telegrams)
{
    return std::all_of(telegrams.cbegin(), telegrams.cend(), [&](const QByteArray &telegram) {
        return ReadValue(xml, telegram, u"Telegram"_s, telegram, false);
    });
}

bool cBackup::ReadIndexedValues(cXML &xml, const QByteArray &prefix, int lastIndex)
{
    for (int i = 0; i <= lastIndex; ++i) {
        const QByteArray index = QByteArray::number(i);
        if (!ReadValue(xml, prefix + index, u"id"_s, index, true))
            return false;
    }
    return true;
}

bool cBackup::SecureData(const QString &fileName, const QString &serialNumber)
{
    m_lastError.clear();
    m_partialFile.clear();
    m_currAction = actionFor(BoardKind::Main);
    if (fileName.isEmpty())
        return fail(u"No backup file name: the serial number was not read."_s);
    // The new backup is written beside the previous one, which stays in place under its own name
    // until the new one is complete.
    const QString partial = fileName + u".incomplete"_s;
    cXML xml(&m_comm->clock());
    bool ok = false;
    try {
        xml.CreateXMLDocument(partial);
        if (!serialNumber.isEmpty())
            xml.SetAttribute(kSerialNumberAttribute, serialNumber.toLatin1());
        const auto measProtected = [&] { return ReadQueryList(xml, MeasProtectedQueries()); };
        const auto measUser = [&] { return ReadQueryList(xml, MeasUserQueries()); };
        const auto cpuProtected = [&] {
            return ReadIndexedValues(xml, "DPV;", kLastProtectedIndex);
        };
        const auto cpuUser = [&] { return ReadIndexedValues(xml, "DUV;", kLastUserIndex); };
        ok = ReadMainBoard(xml) && ReadGroups(xml, BoardKind::Meas, measProtected, measUser) &&
            ReadGroups(xml, BoardKind::Cpu, cpuProtected, cpuUser);
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
    if (error)
        return fail(u"Cannot put the backup file %1 in place of %2: %3"_s.arg(
            partial, fileName, QString::fromStdString(error.message())));
    return true;
}

bool cBackup::SelectBoard(cXML &xml, BoardKind board, bool firstBoard)
{
    m_currAction = actionFor(board);
    if (firstBoard)
        xml.CreateAndSetChild(elementFor(board), {});
    else
        xml.CreateAndSetSibling(elementFor(board), {});
    if (!SendAndExpectEcho(boardFacts(board).select))
        return false;
    storeIdentity(*m_comm, xml);
    return true;
}

bool cBackup::ReadMainBoard(cXML &xml)
{
    return SelectBoard(xml, BoardKind::Main, true) && ReadQueryList(xml, MainBoardQueries()) &&
        SendAndExpectEcho(boardFacts(BoardKind::Cpu).select);
}

bool cBackup::ReadGroups(cXML &xml, BoardKind board, const std::function<bool()> &readProtected,
                         const std::function<bool()> &readUser)
{
    if (!SelectBoard(xml, board, false))
        return false;
    xml.CreateAndSetChild(u"Protected"_s, {});
    if (!readProtected())
        return false;
    xml.CreateAndSetSibling(u"User"_s, {});
    if (!readUser())
        return false;
    xml.SetParent();
    return true;
}

bool cBackup::VerifySaved(const cXML &xml, const QString &fileName)
{
    // No board may be flashed after a backup that did not reach the disk intact.
    cXML saved;
    if (!saved.OpenXMLDocument(fileName))
        return fail(u"Backup file %1 cannot be read back: %2"_s.arg(fileName, saved.errorString()));
    for (const BoardKind board : kUpdateOrder) {
        const QString difference = xml.FirstDifference(saved, elementFor(board));
        if (!difference.isEmpty())
            return fail(
                u"Backup file %1 differs from what was read: %2"_s.arg(fileName, difference));
    }
    return true;
}

bool cBackup::RestoreData(BoardKind board, const QString &xmlSource)
{
    m_currAction = actionFor(board);

    cXML xml;
    if (!xml.OpenXMLDocument(xmlSource))
        return fail(u"Cannot open backup file %1: %2"_s.arg(xmlSource, xml.errorString()));
    QList<QByteArray> telegrams;
    if (const QString why = restoreTelegrams(xml, board, xmlSource, telegrams); !why.isEmpty())
        return fail(why);

    m_comm->Transceive(boardFacts(board).select);
    bool writeEnable = true;
    if (board == BoardKind::Cpu) {
        if (!unlock(*m_comm, kAccessCode))
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
    if (answer.isEmpty())
        return fail(invalidAnswer(answer));
    if (!accepted(telegram, answer)) {
        // Asked once more; "E;20" is no longer taken for an answer then.
        answer = m_comm->Transceive(telegram, kRestoreTimeoutMs);
        if (answer.isEmpty() || !CheckRestoreAnswer(telegram, answer))
            return fail(invalidAnswer(answer));
    } else if (answer != "E;20" && telegram.contains(';') && !echoesSameValue(telegram, answer)) {
        // The board took the command but echoed another value, not merely the same number in
        // its own format ("5" as "5.0"). A value garbled on its way would stay on the board, so
        // it is written once more; whatever the command's echo then says is accepted.
        if (writeEnable)
            m_comm->Transceive("CEW;1");
        answer = m_comm->Transceive(telegram, kRestoreTimeoutMs);
        if (!accepted(telegram, answer))
            return fail(invalidAnswer(answer));
        if (answer != telegram && m_comm->log())
            m_comm->log()->UpdateLog(u"Restore: "_s + QString::fromLatin1(telegram) +
                                     u" echoed as "_s + QString::fromLatin1(answer));
    }
    return true;
}
