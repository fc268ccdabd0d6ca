#pragma once

#include <QString>
#include <array>
#include <optional>

// The three boards of the instrument and everything that differs between them, in one table.
// Nothing else in the program distinguishes the boards by their kind: code that needs a board's
// telegram, text, size or settings section reads it here.
//
// Constant data; callable from any thread.

// The board kind; its value is also the board's number in the select telegram "DHR;n".
enum class BoardKind : qint32 { Cpu = 0, Meas = 1, Main = 2 };

inline constexpr int kBoardCount = 3;

// The orders in which the boards are visited, deliberately different by task.
inline constexpr std::array<BoardKind, kBoardCount> kReadOrder = {BoardKind::Cpu, BoardKind::Meas,
                                                                  BoardKind::Main};
inline constexpr std::array<BoardKind, kBoardCount> kUpdateOrder = {
    BoardKind::Main, BoardKind::Meas, BoardKind::Cpu};
// Patterns, panels and checks.
inline constexpr std::array<BoardKind, kBoardCount> kPanelOrder = {BoardKind::Cpu, BoardKind::Main,
                                                                   BoardKind::Meas};

struct BoardFacts
{
    BoardKind kind;
    const char *key; // the board on the command line: "cpu", "main", "meas"
    const char *name; // "Main Board"
    // Selects the board for parameters and identity ("DHR;2").
    const char *select;
    // Selects the board's bootloader ("DHR;4"); the CPU Board has none of its own.
    const char *bootloaderSelect;
    // What the bootloader answers once it is started ("BLSP;1").
    const char *bootloaderTelegram;
    // Asks a waiting bootloader to show itself with "C".
    const char *probe;
    // The text the identity answer must contain.
    const char *identity;
    // The exact size of the firmware image in 128-byte packets.
    qint32 packets;
    // The settings section of the file-name pattern and the minimum version.
    const char *section;
    const char *defaultPattern;
    const char *minimumVersion;
    // The element of the board in the backup document.
    const char *backupElement;
    // Texts of the update run.
    const char *startText; // "Starting Main Board bootloader..."
    const char *transferText; // "Sending Main Board binary file "
    const char *doneText; // "Update of Main Board successfully completed."
    const char *restoreText; // "Restoring parameters to Main Board..."
    const char *backupFailedText; // "ERROR: Backup Main Board failed"
    const char *belowMinimumText; // "ERROR: Cannot update to this Main Board version"
};

const BoardFacts &boardFacts(BoardKind kind);

// The board whose key is key ("cpu", "main", "meas"), if any.
std::optional<BoardKind> boardFromKey(const QString &key);

inline QString boardName(BoardKind kind)
{
    return QString::fromLatin1(boardFacts(kind).name);
}

// One value per board, indexed by kind.
template<typename T>
class PerBoard
{
public:
    T &operator[](BoardKind kind) { return m_values[std::size_t(kind)]; }
    const T &operator[](BoardKind kind) const { return m_values[std::size_t(kind)]; }
    auto begin() { return m_values.begin(); }
    auto end() { return m_values.end(); }
    auto begin() const { return m_values.begin(); }
    auto end() const { return m_values.end(); }
    bool operator==(const PerBoard &other) const = default;

private:
    std::array<T, kBoardCount> m_values {};
};
