#pragma once

#include "boards/Board.h"

#include <QByteArray>
#include <QtGlobal>
#include <optional>

// Names and fixed facts of the simulated instrument shared by all its parts.
//
// Plain values; usable from any thread.

// The boards are named by the updater's BoardKind (its number is the one in "DHR;n"); every fact
// about them below is the model's own.
constexpr BoardKind kAllBoards[] = {BoardKind::Cpu, BoardKind::Meas, BoardKind::Main};

constexpr int boardIndex(BoardKind kind)
{
    return int(kind);
}

// The image size of each board in 128-byte packets (the bootloader takes exactly this much).
int imagePackets(BoardKind kind);
qint64 imageSizeBytes(BoardKind kind);
// The text the board's identity answer always contains: "VARIMO", "Vm2MM", "Vm2PS".
QByteArray identityText(BoardKind kind);
// "CPU Board", "Measuring Module", "Main Board" (for traces and messages).
QByteArray boardLabel(BoardKind kind);
// "cpu", "meas", "main" (state file, firmware options).
QByteArray boardKey(BoardKind kind);
std::optional<BoardKind> boardFromKey(const QByteArray &key);

// What a board runs. Requesting, Receiving and Restarting are passing states; the others are where
// a board can be left (and are written to the state file).
enum class BoardMode {
    Application, // the board's firmware runs and answers telegrams
    UpdateMode, // CPU Board only: bootloader entered by the keys, announcing "KVT;BLCPU;1"
    Waiting, // CPU Board only: bootloader left waiting, "E;1" to everything but "F"
    Idle, // Main Board, Measuring Module: bootloader started at power-on, silent until its
          // bootloader side is selected
    Requesting, // bootloader asking with "C" about once a second
    Receiving, // bootloader taking XMODEM blocks
    Restarting, // an image was flashed; the board restarts into it
};

QByteArray modeName(BoardMode mode);
std::optional<BoardMode> modeFromName(const QByteArray &name);

// The front panel. UpdateMode is RANGE+SETUP held while POWER is pressed.
enum class PanelKey { ResetZero, Power, UpdateMode, MenuOpen, MenuClose };

// "reset-zero", "power", "update-mode", "menu-open", "menu-close".
QByteArray keyName(PanelKey key);
std::optional<PanelKey> keyFromName(const QByteArray &name);

// Every time of the model, in milliseconds unless the name says otherwise.
struct SimTiming
{
    int answerDelayMs = 5; // from a complete telegram or block to its answer
    int baud = 57600; // line rate of both directions; 0 for unpaced
    int restartDelayMs = 3000; // from the end of a good transfer to the board running the image
    int bootTimeMs = 1000; // from POWER to the boards answering
    int jumpDelayMs = 300; // from "BOT;$" to the bootloader's announcement
    int announceDelayMs = 300; // CPU bootloader: from entering or "DHR;0" to "KVT;BLCPU;1"
    int firstRequestDelayMs = 250; // from the start of requesting to the first "C"
    int requestIntervalMs = 1000; // between two "C"
    int blockGapTimeoutMs = 500; // a block that stops arriving is dropped and refused
    int receiveIdleTimeoutMs = 10000; // a transfer without bytes for this long has broken off
    int storeBusyMs = 1000; // after "CEO;1" the board stores and does not listen
    int keyGapMs = 300; // auto-operator: between two key presses
};

// Error answers of the instrument (besides "E;03" for the open setup menu and "E;1" of a waiting
// CPU bootloader).
namespace SimError {
inline const QByteArray kMenuOpen = QByteArrayLiteral("E;03");
inline const QByteArray kBootloaderWaiting = QByteArrayLiteral("E;1");
inline const QByteArray kUnknownTelegram = QByteArrayLiteral("E;10");
inline const QByteArray kBadArgument = QByteArrayLiteral("E;11");
inline const QByteArray kReadOnly = QByteArrayLiteral("E;20");
inline const QByteArray kWriteLocked = QByteArrayLiteral("E;21");
inline const QByteArray kAccessDenied = QByteArrayLiteral("E;22");
} // namespace SimError
