#pragma once

#include "boards/Board.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <functional>

class cComm;
class cXML;

// Reads every parameter of the three boards into a backup document (SecureData) and writes one
// board's parameters back from it (RestoreData). After a failure CurrAction names the board and
// LastError the exchange that failed.
//
// Lives on the engine thread, with the transceiver it is given.
class cBackup
{
public:
    void Init(cComm *comm);

    // Reads every board into a new backup document beside fileName (PartialFile()) and puts it
    // in place of fileName only when it is complete and read back intact; true then. A run that
    // fails leaves the file fileName as it was. serialNumber, when known, is kept in the
    // document's root.
    bool SecureData(const QString &fileName, const QString &serialNumber = {});
    // Where the incomplete document of the last failed SecureData was left ("" when none was).
    QString PartialFile() const { return m_partialFile; }
    // Writes the parameters of the board back from the backup file xmlSource. Nothing is sent
    // when one of the board's restore telegrams cannot be sent (CheckTelegram).
    bool RestoreData(BoardKind board, const QString &xmlSource);

    // The longest telegram, without its line end, that the boards take in one line.
    static constexpr qsizetype kMaxTelegramBytes = 1024;
    // Why a restore telegram cannot be sent as one line (a byte below 0x20, which would end or
    // split it on the wire, or more than kMaxTelegramBytes); "" when it can.
    static QString CheckTelegram(const QByteArray &telegram);

    // What a backup file holds for a restore: why it cannot be restored ("" when every board's
    // telegrams can be sent) and the serial number of the instrument it was made from ("" when
    // the file does not say).
    struct FileCheck
    {
        QString error;
        QString serialNumber;
    };
    static FileCheck CheckBackupFile(const QString &fileName);

    // Called between the final save and its read-back; tests use it to damage the file there.
    void setAfterSaveHook(std::function<void(const QString &)> hook)
    {
        m_afterSave = std::move(hook);
    }

    QString CurrAction() const { return m_currAction; }
    QString LastError() const { return m_lastError; }

    // The catalogue of parameter queries, in sending order.
    static const QList<QByteArray> &MainBoardQueries();
    static const QList<QByteArray> &MeasProtectedQueries();
    static const QList<QByteArray> &MeasUserQueries();
    static constexpr int kLastProtectedIndex = 27;
    static constexpr int kLastUserIndex = 56;

    // The access code that unlocks the CPU Board for writes.
    static constexpr char kAccessCode[] = "QJR4TW";

    // Answer helpers, public for the tests.
    static QByteArray ExtractValue(const QByteArray &telegram, const QByteArray &answer,
                                   bool stripTail = false);
    static bool CheckAnswerCrc(QByteArray &answer);
    static bool CheckRestoreAnswer(const QByteArray &telegram, const QByteArray &answer);

private:
    // Keeps error as LastError() and returns false, for the step that failed.
    bool fail(const QString &error);
    // Sends the telegram; true when the board echoes it, else LastError says what came instead.
    bool SendAndExpectEcho(const QByteArray &telegram);
    bool ReadValue(cXML &xml, const QByteArray &telegram, const QString &key,
                   const QByteArray &keyValue, bool withCrc);
    bool ReadQueryList(cXML &xml, const QList<QByteArray> &telegrams);
    bool ReadIndexedValues(cXML &xml, const QByteArray &prefix, int lastIndex);
    bool SelectBoard(cXML &xml, BoardKind board, bool firstBoard);
    bool ReadMainBoard(cXML &xml);
    // Selects the board and reads its "Protected" and then its "User" group.
    bool ReadGroups(cXML &xml, BoardKind board, const std::function<bool()> &readProtected,
                    const std::function<bool()> &readUser);
    bool VerifySaved(const cXML &xml, const QString &fileName);
    bool PutInPlace(const QString &partial, const QString &fileName);
    bool RestoreTelegram(const QByteArray &telegram, bool writeEnable);

    cComm *m_comm = nullptr;
    QString m_currAction;
    QString m_lastError;
    QString m_partialFile;
    std::function<void(const QString &)> m_afterSave;
};
