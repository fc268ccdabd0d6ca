#include "ParameterCatalog.h"
#include "backup/cBackup.h"
#include "backup/cXML.h"
#include "link/cCRC.h"
#include "support/SimFixture.h"

#include <QFile>
#include <csignal>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

class BackupRestoreTest : public SimFixture
{
protected:
    void SetUp() override
    {
        openPort();
        backup.Init(&comm);
        markTrace();
    }

    // Every parameter of the instrument, board by board.
    std::array<QMap<QByteArray, QByteArray>, 3> parameters()
    {
        return {instrument().board(BoardKind::Cpu).values,
                instrument().board(BoardKind::Meas).values,
                instrument().board(BoardKind::Main).values};
    }

    QString file = path(u"VarimoSentry_Backup_00042.xml"_s);
    cBackup backup;
};

QByteArrayList indexed(const QByteArray &prefix, int count)
{
    QByteArrayList out;
    for (int i = 0; i < count; ++i)
        out << prefix + QByteArray::number(i);
    return out;
}

TEST_F(BackupRestoreTest, SecureDataSendsTheWholeCatalogueInOrder)
{
    ASSERT_TRUE(backup.SecureData(file)) << backup.LastError().toStdString();

    QByteArrayList expected;
    expected << "DHR;2"
             << "KVT" << cBackup::MainBoardQueries() << "DHR;0"
             << "DHR;1"
             << "KVT" << cBackup::MeasProtectedQueries() << cBackup::MeasUserQueries() << "DHR;0"
             << "KVT" << indexed("DPV;", 28) << indexed("DUV;", 57);
    EXPECT_EQ(expected.size(), 143);
    EXPECT_EQ(receivedSinceMark(), expected);
}

TEST_F(BackupRestoreTest, DocumentHoldsEveryBoardAndValue)
{
    ASSERT_TRUE(backup.SecureData(file));
    cXML xml;
    ASSERT_TRUE(xml.OpenXMLDocument(file));
    EXPECT_EQ(xml.GetAttrOfElement(u"/VARIMOsentry"_s, u"DocumentVersion"_s), QByteArray("1.0"));
    EXPECT_FALSE(xml.GetAttrOfElement(u"/VARIMOsentry"_s, u"Created"_s).isEmpty());

    const struct
    {
        const char *element;
        BoardKind kind;
    } boards[] = {{"Mainboard", BoardKind::Main},
                  {"Measureboard", BoardKind::Meas},
                  {"CPUboard", BoardKind::Cpu}};
    for (const auto &b : boards) {
        const QString element = u"/VARIMOsentry/"_s + QString::fromLatin1(b.element);
        const BoardState &state = instrument().board(b.kind);
        EXPECT_EQ(xml.GetAttrOfElement(element, u"Name"_s), state.name);
        EXPECT_EQ(xml.GetAttrOfElement(element, u"Firmware"_s), state.firmware);
        EXPECT_EQ(xml.GetAttrOfElement(element, u"Build"_s), state.build);
    }
    // The restore telegrams carry every value exactly as the instrument holds it.
    QList<QByteArray> telegrams;
    xml.GetTelegramsFromXML(u"CPUboard"_s, telegrams);
    ASSERT_EQ(telegrams.size(), 86);
    EXPECT_EQ(telegrams.last(), QByteArray("USR"));
    const BoardState &cpu = instrument().board(BoardKind::Cpu);
    for (int i = 0; i < 57; ++i)
        EXPECT_EQ(telegrams[i],
                  "DUV;" + QByteArray::number(i) + ";" +
                      cpu.values.value("DUV;" + QByteArray::number(i)));
    for (int i = 0; i < 28; ++i)
        EXPECT_EQ(telegrams[57 + i],
                  "DPV;" + QByteArray::number(i) + ";" +
                      cpu.values.value("DPV;" + QByteArray::number(i)));

    telegrams.clear();
    xml.GetTelegramsFromXML(u"Mainboard"_s, telegrams);
    ASSERT_EQ(telegrams.size(), 8);
    EXPECT_EQ(telegrams[0], QByteArray("SER;42"));
    EXPECT_EQ(telegrams[1], "CH;" + instrument().board(BoardKind::Main).values.value("CH"));
}

TEST_F(BackupRestoreTest, AnErrorAnswerEndsTheBackupAtOnce)
{
    instrument().addFault(FaultRule::answerInstead("C3", "E;20"));
    EXPECT_FALSE(backup.SecureData(file));
    EXPECT_EQ(backup.CurrAction(), u"ERROR: Backup Main Board failed"_s);
    EXPECT_EQ(backup.LastError(), u"No or Invalid Answer: E;20"_s);
    EXPECT_EQ(receivedSinceMark().last(), QByteArray("C3"));
}

TEST_F(BackupRestoreTest, FailuresNameTheBoardAndTheExchange)
{
    const QByteArray text = "DPV;3;R&D <lab>;";
    const QByteArray zeroPadded = text + "0" + QByteArray::number(cCRC::crc16FromString(text));
    const struct
    {
        FaultRule rule;
        const char *action;
        const char *error;
    } cases[] = {
        {FaultRule::answerInstead("DHR;1", "DHR;2"), "ERROR: Backup Measuring Module failed",
         "No or Invalid Answer: DHR;2"},
        {FaultRule::ignoreTelegram("DHR;0", FaultRule::kForever), "ERROR: Backup Main Board failed",
         "No or Invalid Answer"},
        {FaultRule::answerInstead("DPV;3", zeroPadded), "ERROR: Backup CPU Board failed",
         "Invalid CRC Answer: "},
        {FaultRule::ignoreTelegram("LS;2", FaultRule::kForever),
         "ERROR: Backup Measuring Module failed", "No or Invalid Answer"},
        // Noise instead of the echo would be stored as the value and written back later.
        {FaultRule::answerInstead("CH", "x#\xb0garbage"), "ERROR: Backup Main Board failed",
         "No or Invalid Answer: x#\xb0garbage"},
        {FaultRule::answerInstead(
             "DUV;7", "DUV;6;1;" + QByteArray::number(cCRC::crc16FromString("DUV;6;1;"))),
         "ERROR: Backup CPU Board failed", "No or Invalid Answer: DUV;6;1;"},
    };
    for (const auto &c : cases) {
        instrument().faults().clear();
        instrument().addFault(c.rule);
        EXPECT_FALSE(backup.SecureData(file));
        EXPECT_EQ(backup.CurrAction(), QString::fromLatin1(c.action));
        EXPECT_TRUE(backup.LastError().startsWith(QString::fromLatin1(c.error)))
            << backup.LastError().toStdString();
    }
}

TEST_F(BackupRestoreTest, RestoreBringsEveryParameterBackAfterAFlash)
{
    const auto before = parameters();
    ASSERT_TRUE(backup.SecureData(file));
    for (BoardKind kind : kAllBoards)
        InstrumentState::resetToFactory(kind, instrument().board(kind));
    ASSERT_NE(parameters(), before);

    for (BoardKind board : {BoardKind::Main, BoardKind::Meas, BoardKind::Cpu})
        ASSERT_TRUE(backup.RestoreData(board, file))
            << backup.CurrAction().toStdString() << ": " << backup.LastError().toStdString();
    EXPECT_EQ(parameters(), before);
}

TEST_F(BackupRestoreTest, WriteEnableBeforeEveryTelegramUntilCalibrationClosed)
{
    ASSERT_TRUE(backup.SecureData(file));
    markTrace();
    ASSERT_TRUE(backup.RestoreData(BoardKind::Main, file));
    const QByteArrayList sent = receivedSinceMark();
    ASSERT_EQ(sent.first(), QByteArray("DHR;2"));
    // CEW;1, telegram, CEW;1, telegram ... up to CEO;0, and nothing of the kind after it.
    const qsizetype ceo = sent.indexOf("CEO;0");
    ASSERT_GT(ceo, 0);
    for (qsizetype i = 1; i < ceo; i += 2) {
        EXPECT_EQ(sent[i], QByteArray("CEW;1")) << i;
        EXPECT_NE(sent[i + 1], QByteArray("CEW;1")) << i;
    }
    EXPECT_FALSE(sent.mid(ceo + 1).contains("CEW;1"));
}

TEST_F(BackupRestoreTest, ValueGarbledOnItsWayIsWrittenOnceMore)
{
    const QByteArray value = instrument().parameter(BoardKind::Main, "CH");
    ASSERT_TRUE(backup.SecureData(file));
    cXML xml;
    ASSERT_TRUE(xml.OpenXMLDocument(file));
    QList<QByteArray> telegrams;
    xml.GetTelegramsFromXML(u"Mainboard"_s, telegrams);
    // The bytes the restore sends, up to the last character of the value of "CH".
    QByteArray stream = "DHR;2\r\n";
    for (const QByteArray &t : telegrams) {
        stream += "CEW;1\r\n";
        if (t.startsWith("CH;"))
            break;
        stream += t + "\r\n";
    }
    instrument().addFault(
        FaultRule::dropBytes(FaultRule::Direction::In, stream.size() + 3 + value.size()));
    markTrace();
    ASSERT_TRUE(backup.RestoreData(BoardKind::Main, file)) << backup.LastError().toStdString();
    EXPECT_EQ(instrument().parameter(BoardKind::Main, "CH"), value);
    const QByteArrayList sent = receivedSinceMark();
    EXPECT_EQ(std::count_if(sent.begin(), sent.end(),
                            [](const QByteArray &t) { return t.startsWith("CH;"); }),
              2);
    EXPECT_EQ(sent.count("CH;" + value), 1); // the garbled one, then this one
}

TEST_F(BackupRestoreTest, ValueEchoedInTheBoardsOwnFormatIsSentOnce)
{
    ASSERT_TRUE(backup.SecureData(file));
    instrument().addFault(FaultRule::answerInstead("CH;12.5", "CH;12.50", FaultRule::kForever));
    markTrace();
    ASSERT_TRUE(backup.RestoreData(BoardKind::Main, file)) << backup.LastError().toStdString();
    EXPECT_EQ(receivedSinceMark().count("CH;12.5"), 1);
}

TEST_F(BackupRestoreTest, UnlockThatNeverSucceedsSendsNoAccessCode)
{
    ASSERT_TRUE(backup.SecureData(file));
    instrument().addFault(FaultRule::ignoreTelegram("XUC", FaultRule::kForever));
    markTrace();
    EXPECT_FALSE(backup.RestoreData(BoardKind::Cpu, file));
    EXPECT_EQ(backup.CurrAction(), u"ERROR: Backup CPU Board failed"_s);
    const QByteArrayList sent = receivedSinceMark();
    EXPECT_EQ(sent.count("XUC"), 4 * 3);
    for (const QByteArray &t : sent)
        EXPECT_FALSE(t.startsWith("XUX")) << t.constData();
}

TEST_F(BackupRestoreTest, WrongEchoIsSentOnceMore)
{
    ASSERT_TRUE(backup.SecureData(file));
    instrument().addFault(FaultRule::answerInstead(
        "CH;" + instrument().board(BoardKind::Main).values.value("CH"), "XY;5", 2));
    EXPECT_FALSE(backup.RestoreData(BoardKind::Main, file));
    EXPECT_EQ(backup.LastError(), u"No or Invalid Answer: XY;5"_s);
}

TEST_F(BackupRestoreTest, MissingOrBrokenBackupFileIsAClearFailureWithNothingSent)
{
    const QString broken = path(u"broken.xml"_s);
    QFile f(broken);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("<VARIMOsentry><Mainboard>");
    f.close();
    for (const QString &source : {path(u"missing.xml"_s), broken}) {
        markTrace();
        EXPECT_FALSE(backup.RestoreData(BoardKind::Main, source));
        EXPECT_TRUE(backup.LastError().contains(source)) << backup.LastError().toStdString();
        EXPECT_TRUE(receivedSinceMark().isEmpty());
    }
}

// The backup is the operator's only copy of the instrument's calibration.
class BackupSurvives : public BackupRestoreTest
{
protected:
    QByteArray previousGoodBackup()
    {
        EXPECT_TRUE(backup.SecureData(file));
        QFile f(file);
        EXPECT_TRUE(f.open(QIODevice::ReadOnly));
        return f.readAll();
    }

    QByteArray contentOf(const QString &name)
    {
        QFile f(name);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
};

TEST_F(BackupSurvives, AFailedRunKeepsTheLastGoodBackup)
{
    const QByteArray good = previousGoodBackup();
    instrument().addFault(FaultRule::ignoreTelegram("DUV;40", FaultRule::kForever));
    EXPECT_FALSE(backup.SecureData(file));
    EXPECT_EQ(contentOf(file), good);
    EXPECT_EQ(backup.PartialFile(), file + u".incomplete"_s);
}

TEST_F(BackupSurvives, AFullDiskFailsTheRunWithAReason)
{
    const QByteArray good = previousGoodBackup();
    // The disk fills up while the last values are read: the final save cannot be written.
    struct rlimit old
    {
    };
    getrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, SIG_IGN);
    struct Limiter : InstrumentObserver
    {
        void telegramHandled(const Exchange &e) override
        {
            if (e.telegram == "DUV;56") {
                struct rlimit small
                {
                    1024, RLIM_INFINITY
                };
                setrlimit(RLIMIT_FSIZE, &small);
            }
        }
    } limiter;
    instrument().addObserver(&limiter);
    const bool ok = backup.SecureData(file);
    setrlimit(RLIMIT_FSIZE, &old);
    instrument().removeObserver(&limiter);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(backup.LastError().contains(file)) << backup.LastError().toStdString();
    EXPECT_EQ(contentOf(file), good);
}

TEST_F(BackupSurvives, AFileThatDoesNotReadBackIntactFailsTheRun)
{
    const QByteArray good = previousGoodBackup();
    const struct
    {
        std::function<void(QByteArray &)> damage;
        const char *error;
    } cases[] = {
        {[](QByteArray &xml) { xml.chop(20); }, "cannot be read back"},
        {[](QByteArray &xml) { xml.replace(">2026-03-14<", ">2026-03-15<"); },
         "differs from what was read"},
    };
    for (const auto &c : cases) {
        backup.setAfterSaveHook([&](const QString &name) {
            QByteArray content = contentOf(name);
            c.damage(content);
            QFile f(name);
            ASSERT_TRUE(f.open(QIODevice::WriteOnly));
            f.write(content);
        });
        EXPECT_FALSE(backup.SecureData(file));
        EXPECT_TRUE(backup.LastError().contains(QString::fromLatin1(c.error)))
            << backup.LastError().toStdString();
        EXPECT_EQ(contentOf(file), good);
    }
}

} // namespace
