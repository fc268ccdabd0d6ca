#include "backup/cBackup.h"
#include "link/cCRC.h"
#include "support/SimFixture.h"

#include <csignal>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

TEST(BackupAnswers, ValueCutFromTheEchoAndRestoreEchoComparedByCommand)
{
    // telegram, answer, without the tail, value
    const std::tuple<const char *, const char *, bool, const char *> cases[] = {
        {"CEF;1;2", "CEF;1;2;17", false, "17"},
        {"HVC;2", "HVC;2;1200;77", false, "1200;77"}, // a checksum field stays
        {"CH", "CH;", false, ""},
        {"DPV;5", "DPV;5;12.5;", true, "12.5"},
        {"DPV;5", "DPV;5;a;b;", true, "a;b"}, // a value may hold ";"
        {"DUV;0", "DUV;0;;", true, ""}};
    for (const auto &[telegram, answer, tail, value] : cases)
        EXPECT_EQ(cBackup::ExtractValue(telegram, answer, tail), QByteArray(value)) << answer;
    // A restore answer is taken when it echoes the command; the value is not compared.
    const std::tuple<const char *, const char *, bool> restores[] = {
        {"CH;5", "CH;7", true}, {"CH;5", "XY;5", false},  {"USR", "xxUSRxx", true},
        {"USR", "US", false},   {"DUV;3;1", "DUV", true}, {"CH;5", "", true}};
    for (const auto &[telegram, answer, ok] : restores)
        EXPECT_EQ(cBackup::CheckRestoreAnswer(telegram, answer), ok) << telegram << " / " << answer;
}

class BackupRestoreTest : public SimFixture
{
protected:
    void SetUp() override
    {
        openPort();
        backup.Init(&comm);
        markTrace();
    }

    QString file = path(u"VarimoSentry_Backup_00042.xml"_s);
    cBackup backup;
};

TEST_F(BackupRestoreTest, SecureDataSendsTheWholeCatalogueInOrderAndKeepsEachIdentity)
{
    ASSERT_TRUE(backup.SecureData(file)) << backup.LastError().toStdString();

    QByteArrayList expected;
    expected << "DHR;2"
             << "KVT" << cBackup::MainBoardQueries() << "DHR;0"
             << "DHR;1"
             << "KVT" << cBackup::MeasProtectedQueries() << cBackup::MeasUserQueries() << "DHR;0"
             << "KVT";
    for (int i = 0; i < 28 + 57; ++i)
        expected << (i < 28 ? "DPV;" : "DUV;") + QByteArray::number(i < 28 ? i : i - 28);
    EXPECT_EQ(receivedSinceMark(), expected);

    const QByteArray saved = contentOf(file);
    for (const char *identity : {"<VARIMOsentry DocumentVersion=\"1.0\"",
                                 "<Mainboard Name=\"Vm2PS\" Firmware=\"1.02\" Build=\"7\">",
                                 "<Measureboard Name=\"Vm2MM\" Firmware=\"1.20\" Build=\"3\">",
                                 "<CPUboard Name=\"VARIMOsentry\" Firmware=\"2.00\" Build=\"15\">"})
        EXPECT_TRUE(saved.contains(identity)) << identity;
}

TEST_F(BackupRestoreTest, AFailedExchangeEndsTheBackupAtOnceNamingTheBoardAndTheAnswer)
{
    const QByteArray text = "DPV;3;R&D <lab>;";
    const qint32 crc = cCRC::crc16FromString(text);
    // fault, the telegram the backup ends with, the board named, the start of the error
    const std::tuple<FaultRule, const char *, const char *, const char *> cases[] = {
        {FaultRule::answerInstead("DHR;1", "DHR;2"), "DHR;1", "Measuring Module",
         "No or Invalid Answer: DHR;2"},
        // The CRC is compared as the decimal digits sent: a leading zero is wrong too.
        {FaultRule::answerInstead("DPV;3", text + "0" + QByteArray::number(crc)), "DPV;3",
         "CPU Board", "Invalid CRC Answer: "},
        {FaultRule::answerInstead(
             "DUV;7", "DUV;6;1;" + QByteArray::number(cCRC::crc16FromString("DUV;6;1;"))),
         "DUV;7", "CPU Board", "No or Invalid Answer: DUV;6;1;"},
    };
    for (const auto &[rule, last, board, error] : cases) {
        instrument().faults().clear();
        instrument().addFault(rule);
        markTrace();
        EXPECT_FALSE(backup.SecureData(file));
        EXPECT_EQ(backup.CurrAction(), u"ERROR: Backup %1 failed"_s.arg(QLatin1StringView(board)));
        EXPECT_TRUE(backup.LastError().startsWith(QLatin1StringView(error)))
            << backup.LastError().toStdString();
        EXPECT_EQ(receivedSinceMark().last(), QByteArray(last));
    }
}

TEST_F(BackupRestoreTest, RestoreBringsEveryParameterBackAfterAFlash)
{
    const InstrumentState before = instrument().state();
    ASSERT_TRUE(backup.SecureData(file));
    for (BoardKind kind : kAllBoards)
        InstrumentState::resetToFactory(kind, instrument().board(kind));

    markTrace();
    ASSERT_TRUE(backup.RestoreData(BoardKind::Main, file)) << backup.LastError().toStdString();
    const QByteArrayList sent = receivedSinceMark();
    markTrace();
    for (BoardKind board : {BoardKind::Meas, BoardKind::Cpu})
        ASSERT_TRUE(backup.RestoreData(board, file))
            << backup.CurrAction().toStdString() << ": " << backup.LastError().toStdString();
    for (BoardKind kind : kAllBoards)
        EXPECT_EQ(instrument().board(kind).values, before.board(kind).values);

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
TEST_F(BackupRestoreTest, RestoreTelegramWithAWrongEchoIsSentOnceMoreAndALockedBoardGetsNoCode)
{
    ASSERT_TRUE(backup.SecureData(file));
    // echo, how often, restored, the telegram before the second CH;12.5 (none: sent once)
    const std::tuple<const char *, int, bool, QByteArray> cases[] = {
        {"CH;12.50", FaultRule::kForever, true, {}},
        {"CH;12.", 1, true, "CEW;1"},
        {"XY;5", 1, true, "CH;12.5"},
        {"XY;5", 2, false, "CH;12.5"}};
    for (const auto &[echo, times, ok, beforeResend] : cases) {
        instrument().faults().clear();
        instrument().addFault(FaultRule::answerInstead("CH;12.5", echo, times));
        markTrace();
        EXPECT_EQ(backup.RestoreData(BoardKind::Main, file), ok) << echo << times;
        const QByteArrayList sent = receivedSinceMark();
        const qsizetype first = sent.indexOf("CH;12.5");
        ASSERT_GT(first, 0);
        EXPECT_EQ(sent[first - 1], QByteArray("CEW;1"));
        EXPECT_EQ(sent.count("CH;12.5"), beforeResend.isEmpty() ? 1 : 2) << echo << times;
        EXPECT_EQ(sent.value(sent.indexOf("CH;12.5", first + 1) - 1), beforeResend);
        EXPECT_EQ(backup.LastError(), ok ? QString() : u"No or Invalid Answer: XY;5"_s);
    }
    // A CPU Board that never unlocks gets no access code.
    instrument().faults().clear();
    instrument().addFault(FaultRule::ignoreTelegram("XUC", FaultRule::kForever));
    markTrace();
    EXPECT_FALSE(backup.RestoreData(BoardKind::Cpu, file));
    EXPECT_EQ(backup.CurrAction(), u"ERROR: Backup CPU Board failed"_s);
    const QByteArrayList sent = receivedSinceMark();
    EXPECT_EQ(sent.count("XUC"), 4 * 3);
    for (const QByteArray &t : sent)
        EXPECT_FALSE(t.startsWith("XUX")) << t.constData();
}

TEST_F(BackupRestoreTest, FileThatIsNoBackupIsRefusedSayingWhyWithNothingSent)
{
    const QString source = path(u"in.xml"_s);
    const std::tuple<BoardKind, const char *, QString> cases[] = {
        // board, content (nullptr: no file at all), why
        {BoardKind::Main, nullptr, u"Cannot open backup file %1: No such file or directory"_s},
        {BoardKind::Main, "<VARIMOsentry>\n<Mainboard>\n",
         u"Cannot open backup file %1: line 3, column 0: Premature end of document."_s},
        {BoardKind::Main, "<Backup><Mainboard/></Backup>",
         u"Cannot open backup file %1: the root element is <Backup>, not <VARIMOsentry>"_s},
        {BoardKind::Main, "<VARIMOsentry>\r\n </VARIMOsentry>",
         u"Cannot open backup file %1: the root element <VARIMOsentry> is empty"_s},
        {BoardKind::Meas, "<VARIMOsentry><Measureboard><User/></Measureboard></VARIMOsentry>",
         u"Backup file %1: backup file %1: no element /VARIMOsentry/Measureboard/Protected"_s},
    };
    for (const auto &[board, content, why] : cases) { // the file is missing until the first write
        if (content)
            writeFile(source, content);
        markTrace();
        EXPECT_FALSE(backup.RestoreData(board, source));
        EXPECT_EQ(backup.LastError(), why.arg(source)) << backup.LastError().toStdString();
        EXPECT_TRUE(receivedSinceMark().isEmpty());
    }
}

// The backup is the operator's only copy of the instrument's calibration: a backup that fails on
// the disk leaves the last good one as it was and the new one beside it.
TEST_F(BackupRestoreTest, AFailedBackupKeepsTheLastGoodOne)
{
    ASSERT_TRUE(backup.SecureData(file));
    const QByteArray good = contentOf(file);
    // A full disk (no file grows beyond its first kilobyte), or the file damaged after its save.
    const std::pair<std::function<void(QByteArray &)>, QString> cases[] = {
        {{}, u"cannot save backup file "_s + file},
        {[](QByteArray &xml) { xml.chop(20); }, file + u".incomplete cannot be read back"_s},
        {[](QByteArray &xml) { xml.replace(">2026-03-14<", ">2026-03-15<"); },
         file +
             u".incomplete differs from what was read: /VARIMOsentry/CPUboard/Protected[1]/"
             "Value[2]: text \"2026-03-14\" here, \"2026-03-15\" in the other document"_s},
    };
    signal(SIGXFSZ, SIG_IGN);
    rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    for (const auto &[damage, error] : cases) {
        backup.setAfterSaveHook([&](const QString &name) {
            QByteArray content = contentOf(name);
            if (damage)
                damage(content);
            writeFile(name, content);
        });
        const rlimit limit {damage ? old.rlim_cur : 1024, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        const bool ok = backup.SecureData(file);
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_FALSE(ok) << error.toStdString();
        EXPECT_TRUE(backup.LastError().contains(error)) << backup.LastError().toStdString();
        EXPECT_EQ(contentOf(file), good) << error.toStdString();
        EXPECT_EQ(backup.PartialFile(), file + u".incomplete"_s) << error.toStdString();
    }
}

} // namespace
