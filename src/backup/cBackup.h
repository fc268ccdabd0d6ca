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
    cComm *comm() const { return m_comm; }

    // Creates the backup document at fileName and fills it from the instrument; true only when
    // every board was read and the saved file was read back intact.
    bool SecureData(const QString &fileName);
    // Writes the parameters of the board back from the backup file xmlSource.
    bool RestoreData(BoardKind board, const QString &xmlSource);

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
    static QByteArray AppendCrc(const QByteArray &telegram);

private:
    QByteArray SendAndExpect(const QByteArray &telegram, const QByteArray &expected);
    void StoreIdentity(cXML &xml);
    bool ReadQueryList(cXML &xml, const QList<QByteArray> &telegrams);
    bool ReadIndexedValues(cXML &xml, const QByteArray &prefix, int lastIndex);
    bool Unlock(const QByteArray &accessCode);
    bool SelectBoard(cXML &xml, BoardKind board, bool firstBoard);
    bool ReadMainBoard(cXML &xml);
    bool ReadMeasuringModule(cXML &xml);
    bool ReadCpuBoard(cXML &xml);
    bool VerifySaved(const cXML &xml, const QString &fileName);
    bool RestoreTelegram(const QByteArray &telegram, bool writeEnable);

    cComm *m_comm = nullptr;
    QString m_currAction;
    QString m_lastError;
    std::function<void(const QString &)> m_afterSave;
};
