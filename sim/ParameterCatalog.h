#pragma once

#include "SimTypes.h"

#include <QByteArrayList>

// The parameters each board holds, by the query telegram that reads them: the Main Board's 8, the
// Measuring Module's 26 protected and 17 user queries, and the CPU Board's indexed values
// "DPV;0".."DPV;27" and "DUV;0".."DUV;56". Also which of them are read-only, their factory values
// (what a flash leaves) and the values of the default instrument.
//
// Stateless; callable from any thread.
namespace ParameterCatalog {

constexpr int kCpuProtectedCount = 28;
constexpr int kCpuUserCount = 57;

QByteArrayList mainQueries();
QByteArrayList measProtectedQueries();
QByteArrayList measUserQueries();
// Every parameter key of a board, in the order the board lists them.
QByteArrayList keys(BoardKind kind);
bool contains(BoardKind kind, const QByteArray &key);

// "SER" (answered from the instrument's serial number) and "HW" cannot be written; they keep
// their values through a flash.
bool isReadOnly(const QByteArray &key);

QByteArray factoryValue(BoardKind kind, const QByteArray &key);
// The default instrument's values: a customer's settings, different from the factory values, a
// few of them with ";", "&", "<", bytes above 127 (0xB0, 0xB5) or empty.
QByteArray defaultValue(BoardKind kind, const QByteArray &key);

} // namespace ParameterCatalog
