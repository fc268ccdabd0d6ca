#include "backup/cBackup.h"

#include <gtest/gtest.h>

namespace {

TEST(ExtractValue, CutsTheEchoAndOptionallyTheTail)
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
}

TEST(CheckRestoreAnswer, ComparesTheEchoedCommand)
{
    const std::tuple<const char *, const char *, bool> cases[] = {
        {"CH;5", "CH;5", true},   {"CH;5", "CH;7", true},   {"CH;5", "XY;5", false},
        {"USR", "USR", true},     {"USR", "xxUSRxx", true}, {"USR", "US", false},
        {"DUV;3;1", "DUV", true}, {"CH;5", "", true}};
    for (const auto &[telegram, answer, ok] : cases)
        EXPECT_EQ(cBackup::CheckRestoreAnswer(telegram, answer), ok) << telegram << " / " << answer;
}

} // namespace
