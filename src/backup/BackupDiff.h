#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

class cXML;

// Compares two backup documents board by board: the identity of each board (its Name, Firmware
// and Build attributes) and every value, matched by its group and key (the telegram or the
// index), so that a run can be shown to have brought every parameter back. A firmware update
// changes the identity but must leave the values as they were.
//
// Free functions without state; callable from any thread on documents that thread owns.
namespace BackupDiff {

struct Difference
{
    QString board; // "Main Board", "Measuring Module", "CPU Board"
    bool identity = false; // an attribute of the board rather than one of its values
    QString what; // "Firmware", "Telegram=CH", "User id=3"; empty for a whole board
    std::optional<QByteArray> first; // absent when the first document lacks it
    std::optional<QByteArray> second;
};

// Every difference, boards in the order Main Board, Measuring Module, CPU Board; values in the
// first document's order, then those only the second has.
QList<Difference> Compare(const cXML &first, const cXML &second);

// True when no difference concerns a value (identity differences are allowed).
bool SameValues(const QList<Difference> &differences);

// One line for a person: "Main Board  Telegram=CH: \"12.5\" -> \"12.6\"", bytes outside the
// printable range shown as \xNN.
QString Describe(const Difference &difference);

} // namespace BackupDiff
