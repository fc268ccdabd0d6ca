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

    static QByteArray contentOf(const QString &name)
    {
        QFile f(name);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
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

TEST_F(BackupRestoreTest, SecureDataSendsTheWholeCatalogueInOrderAndKeepsEachIdentity)
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

    cXML xml;
    ASSERT_TRUE(xml.OpenXMLDocument(file));
    const std::pair<QString, BoardKind> boards[] = {{u"Mainboard"_s, BoardKind::Main},
                                                    {u"Measureboard"_s, BoardKind::Meas},
                                                    {u"CPUboard"_s, BoardKind::Cpu}};
    for (const auto &[element, kind] : boards) {
        const BoardState &state = instrument().board(kind);
        EXPECT_EQ(xml.BoardIdentity(element),
                  (QList<std::pair<QString, QByteArray>> {{u"Name"_s, state.name},
                                                          {u"Firmware"_s, state.firmware},
                                                          {u"Build"_s, state.build}}))
            << element.toStdString();
    }
}

TEST_F(BackupRestoreTest, AFailedExchangeEndsTheBackupAtOnceNamingTheBoardAndTheAnswer)
{
    const QByteArray text = "DPV;3;R&D <lab>;";
    const QByteArray zeroPadded = text + "0" + QByteArray::number(cCRC::crc16FromString(text));
    const struct
    {
        FaultRule rule;
        const char *last; // the telegram the backup ends with
        const char *action;
        const char *error;
    } cases[] = {
        {FaultRule::answerInstead("DHR;1", "DHR;2"), "DHR;1",
         "ERROR: Backup Measuring Module failed", "No or Invalid Answer: DHR;2"},
        {FaultRule::ignoreTelegram("DHR;0", FaultRule::kForever), "DHR;0",
         "ERROR: Backup Main Board failed", "No or Invalid Answer"},
        {FaultRule::answerInstead("DPV;3", zeroPadded), "DPV;3", "ERROR: Backup CPU Board failed",
         "Invalid CRC Answer: "},
        // Noise instead of the echo would be stored as the value and written back later.
        {FaultRule::answerInstead("CH", "x#\xb0garbage"), "CH", "ERROR: Backup Main Board failed",
         "No or Invalid Answer: x#\xb0garbage"},
        {FaultRule::answerInstead(
             "DUV;7", "DUV;6;1;" + QByteArray::number(cCRC::crc16FromString("DUV;6;1;"))),
         "DUV;7", "ERROR: Backup CPU Board failed", "No or Invalid Answer: DUV;6;1;"},
    };
    for (const auto &c : cases) {
        instrument().faults().clear();
        instrument().addFault(c.rule);
        markTrace();
        EXPECT_FALSE(backup.SecureData(file));
        EXPECT_EQ(backup.CurrAction(), QString::fromLatin1(c.action));
        EXPECT_TRUE(backup.LastError().startsWith(QString::fromLatin1(c.error)))
            << backup.LastError().toStdString();
        EXPECT_EQ(receivedSinceMark().last(), QByteArray(c.last)) << c.last;
    }
}

TEST_F(BackupRestoreTest, RestoreBringsEveryParameterBackAfterAFlash)
{
    const auto before = parameters();
    ASSERT_TRUE(backup.SecureData(file));
    for (BoardKind kind : kAllBoards)
        InstrumentState::resetToFactory(kind, instrument().board(kind));
    ASSERT_NE(parameters(), before);

    markTrace();
    ASSERT_TRUE(backup.RestoreData(BoardKind::Main, file)) << backup.LastError().toStdString();
    const QByteArrayList sent = receivedSinceMark();
    for (BoardKind board : {BoardKind::Meas, BoardKind::Cpu})
        ASSERT_TRUE(backup.RestoreData(board, file))
            << backup.CurrAction().toStdString() << ": " << backup.LastError().toStdString();
    EXPECT_EQ(parameters(), before);

    // DHR;2, then CEW;1 before every telegram up to CEO;0, and nothing of the kind after it.
    ASSERT_EQ(sent.first(), QByteArray("DHR;2"));
    const qsizetype ceo = sent.indexOf("CEO;0");
    ASSERT_GT(ceo, 0);
    for (qsizetype i = 1; i < ceo; i += 2) {
        EXPECT_EQ(sent[i], QByteArray("CEW;1")) << i;
        EXPECT_NE(sent[i + 1], QByteArray("CEW;1")) << i;
    }
    EXPECT_FALSE(sent.mid(ceo + 1).contains("CEW;1"));
}

// A restore telegram's echo: the same value, also in the board's own number format, is taken.
// Another value (garbled on its way) is written once more, write-enabled again; another command
// is sent once more at once, and fails the restore when it comes again.
TEST_F(BackupRestoreTest, RestoreTelegramWithAWrongEchoIsSentOnceMore)
{
    ASSERT_TRUE(backup.SecureData(file));
    ASSERT_EQ(instrument().parameter(BoardKind::Main, "CH"), QByteArray("12.5"));
    const struct
    {
        const char *echo;
        int times;
        bool ok;
        const char *beforeResend; // nullptr: sent once
    } cases[] = {{"CH;12.50", FaultRule::kForever, true, nullptr},
                 {"CH;12.", 1, true, "CEW;1"},
                 {"XY;5", 1, true, "CH;12.5"},
                 {"XY;5", 2, false, "CH;12.5"}};
    for (const auto &c : cases) {
        instrument().faults().clear();
        instrument().addFault(FaultRule::answerInstead("CH;12.5", c.echo, c.times));
        markTrace();
        EXPECT_EQ(backup.RestoreData(BoardKind::Main, file), c.ok) << c.echo << c.times;
        const QByteArrayList sent = receivedSinceMark();
        const qsizetype first = sent.indexOf("CH;12.5");
        ASSERT_GT(first, 0);
        EXPECT_EQ(sent[first - 1], QByteArray("CEW;1"));
        EXPECT_EQ(sent.count("CH;12.5"), c.beforeResend ? 2 : 1) << c.echo << c.times;
        if (c.beforeResend) {
            EXPECT_EQ(sent.value(sent.indexOf("CH;12.5", first + 1) - 1), c.beforeResend);
        }
        EXPECT_EQ(backup.LastError(), c.ok ? QString() : u"No or Invalid Answer: XY;5"_s);
    }
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

// The backup is the operator's only copy of the instrument's calibration: a backup that fails on
// the disk leaves the last good one as it was and the new one beside it.
TEST_F(BackupRestoreTest, AFailedBackupKeepsTheLastGoodOne)
{
    ASSERT_TRUE(backup.SecureData(file));
    const QByteArray good = contentOf(file);
    const struct
    {
        bool diskFull; // no file can grow beyond its first kilobyte
        std::function<void(QByteArray &)> damage; // done to the file after it is saved
        QString error;
    } cases[] = {
        {true, {}, u"cannot save backup file "_s + file},
        {false, [](QByteArray &xml) { xml.chop(20); }, file + u".incomplete cannot be read back"_s},
        {false, [](QByteArray &xml) { xml.replace(">2026-03-14<", ">2026-03-15<"); },
         file + u".incomplete differs from what was read"_s},
    };
    signal(SIGXFSZ, SIG_IGN);
    for (const auto &c : cases) {
        backup.setAfterSaveHook([&](const QString &name) {
            QByteArray content = contentOf(name);
            if (c.damage)
                c.damage(content);
            QFile f(name);
            ASSERT_TRUE(f.open(QIODevice::WriteOnly));
            f.write(content);
        });
        rlimit old {};
        getrlimit(RLIMIT_FSIZE, &old);
        const rlimit small {1024, old.rlim_max};
        if (c.diskFull)
            setrlimit(RLIMIT_FSIZE, &small);
        const bool ok = backup.SecureData(file);
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_FALSE(ok) << c.error.toStdString();
        EXPECT_TRUE(backup.LastError().contains(c.error)) << backup.LastError().toStdString();
        EXPECT_EQ(contentOf(file), good) << c.error.toStdString();
        EXPECT_EQ(backup.PartialFile(), file + u".incomplete"_s) << c.error.toStdString();
    }
}

} // namespace
