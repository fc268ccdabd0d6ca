#include "SimDriver.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

TEST(SimStateFile, KeepsEveryByteOfEveryValueAndWhereEachBoardWasLeft)
{
    InstrumentState state = InstrumentState::defaults();
    QByteArray allBytes;
    for (int b = 0; b < 256; ++b)
        allBytes.append(char(b));
    state.board(BoardKind::Cpu).values["DUV;7"] = allBytes;
    state.board(BoardKind::Meas).values["LS;1"] = "";
    state.board(BoardKind::Main).mode = BoardMode::Receiving; // saved as where it would be found
    state.board(BoardKind::Main).imageValid = false;
    state.board(BoardKind::Cpu).mode = BoardMode::Waiting;
    state.serialNumber = 32767;
    state.route = 4;

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("state.json"));
    ASSERT_TRUE(StateFile::save(path, state));
    const StateFile::LoadResult loaded = StateFile::load(path);
    ASSERT_TRUE(loaded.ok) << loaded.error.toStdString();
    InstrumentState back = loaded.state;
    for (BoardKind kind : kAllBoards)
        EXPECT_EQ(back.board(kind).values, state.board(kind).values);
    EXPECT_EQ(back.board(BoardKind::Main).mode, BoardMode::Requesting);
    EXPECT_FALSE(back.board(BoardKind::Main).imageValid);
    EXPECT_EQ(back.board(BoardKind::Cpu).mode, BoardMode::Waiting);
    EXPECT_EQ(back.serialNumber, 32767);
    EXPECT_EQ(back.route, 4);
    EXPECT_EQ(back.board(BoardKind::Meas).name, "Vm2MM");

    // Loaded into an instrument whose CPU Board routes, the Main Board asks with "C" at once.
    back.board(BoardKind::Cpu).mode = BoardMode::Application;
    EXPECT_EQ(SimDriver(back).readFor(1500), "CC");
}

TEST(SimStateFile, SaysWhatIsWrong)
{
    const std::pair<const char *, const char *> rows[] = {
        {"{", "not JSON"},
        {"[]", "not an object"},
        {R"({"serialNumber": 40000})", "serialNumber"},
        {R"({"route": 7})", "route"},
        {R"({"boards": {"gpu": {}}})", "boards.gpu"},
        {R"({"boards": {"main": {"values": {"XYZ": "1"}}}})", "XYZ is not a parameter"},
        {R"({"boards": {"cpu": {"mode": "bootloader-idle"}}})", "boards.cpu.mode"},
        {R"({"boards": {"main": {"mode": "update-mode"}}})", "boards.main.mode"},
        {R"({"boards": {"main": {"values": {"CH": "\u20ac"}}}})", "Latin-1"},
        {R"({"boards": {"main": {"name": 5}}})", "boards.main.name"},
    };
    for (const auto &[json, says] : rows) {
        const StateFile::LoadResult r = StateFile::fromJson(json);
        EXPECT_FALSE(r.ok) << json;
        EXPECT_TRUE(r.error.contains(QString::fromLatin1(says)))
            << json << ": " << r.error.toStdString();
    }
    EXPECT_TRUE(StateFile::fromJson("{}").ok); // everything missing: the default instrument
    EXPECT_FALSE(StateFile::load(QStringLiteral("/nonexistent/state.json")).ok);
}

} // namespace
