#pragma once

#include "SimTypes.h"

#include <QMap>
#include <QString>
#include <array>

// What the instrument keeps between runs: each board's identity, what it runs and every parameter
// value, the serial number, whether it is switched on and which board the line is switched to.
// Values are bytes (0-255).
//
// Plain data, owned by an Instrument on its thread (or by whoever loads or saves it).
struct BoardState
{
    QByteArray name;
    QByteArray firmware;
    QByteArray build;
    BoardMode mode = BoardMode::Application;
    // Whether the board holds a complete image: a transfer that began erases it, a good transfer
    // restores it. A board without one starts its bootloader when switched on.
    bool imageValid = true;
    // Parameter key (the query telegram, "DPV;3" for the CPU Board) to value. "SER" is not here:
    // it is the instrument's serial number.
    QMap<QByteArray, QByteArray> values;
};

struct InstrumentState
{
    static constexpr int kMaxSerialNumber = 32767;

    int serialNumber = 42;
    bool poweredOn = true;
    int route = 0; // the last board select, 0..4
    std::array<BoardState, 3> boards;

    BoardState &board(BoardKind kind) { return boards[size_t(boardIndex(kind))]; }
    const BoardState &board(BoardKind kind) const { return boards[size_t(boardIndex(kind))]; }

    // The realistic default instrument: CPU Board "VARIMOsentry" 2.00 build 15, Main Board "Vm2PS"
    // 1.02 build 7, Measuring Module "Vm2MM" 1.20 build 3, serial number 42, all applications
    // running, customer values in every parameter.
    static InstrumentState defaults();
    // Every writable parameter of the board back to its factory value.
    static void resetToFactory(BoardKind kind, BoardState &board);
    // Where a board in mode is found when it is picked up again (loaded, or saved): a transfer
    // in progress has broken off (CPU Board waiting, the others asking), a restart is done.
    static BoardMode settledMode(BoardKind kind, BoardMode mode);
};

// The state file: JSON with the values as Latin-1 text (lossless for bytes 0-255).
namespace StateFile {

struct LoadResult
{
    bool ok = false;
    QString error; // what was wrong and where, when not ok
    InstrumentState state;
};

// Missing entries keep the default instrument's values.
LoadResult load(const QString &path);
QByteArray toJson(const InstrumentState &state);
LoadResult fromJson(const QByteArray &json);
bool save(const QString &path, const InstrumentState &state, QString *error = nullptr);

} // namespace StateFile
