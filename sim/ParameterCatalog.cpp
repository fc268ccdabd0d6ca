#include "ParameterCatalog.h"

#include <QHash>

namespace ParameterCatalog {

namespace {

QByteArrayList indexed(const char *prefix, int count)
{
    QByteArrayList out;
    for (int i = 0; i < count; ++i)
        out << QByteArray(prefix) + QByteArray::number(i);
    return out;
}

using ValueTable = QHash<QByteArray, QByteArray>;

// 0xB0 is the degree sign, 0xB5 the micro sign (Latin-1).
const ValueTable &mainDefaults()
{
    static const ValueTable table {
        {"CH", "12.5"}, {"CN", "3"},    {"CA", "0.250"}, {"C3", "1"},
        {"C5", "0"},    {"C12", "230"}, {"CEO", "0"},
    };
    return table;
}

const ValueTable &mainFactory()
{
    static const ValueTable table {
        {"CH", "10.0"}, {"CN", "1"},  {"CA", "0.000"}, {"C3", "0"},
        {"C5", "0"},    {"C12", "0"}, {"CEO", "0"},
    };
    return table;
}

const ValueTable &measDefaults()
{
    static const ValueTable table {
        {"CEF;0;0", "1.0021"},
        {"CEF;0;1", "0.9987"},
        {"CEF;0;2", "1.0003"},
        {"CEF;0;3", "0.9995"},
        {"CEF;1;0", "1.0110"},
        {"CEF;1;1", "0.9872"},
        {"CEF;1;2", "1.0004"},
        {"CEF;1;3", "1.0000"},
        {"CEF;2;0", "0.9931"},
        {"CEF;2;1", "1.0062"},
        {"CEF;2;2", "0.9999"},
        {"CEF;2;3", "1.0017"},
        {"HW", "VM2-MM rev.C"},
        {"HVO", "850"},
        {"HVC;0", "0.0"},
        {"HVC;1", "12.5"},
        {"HVC;2", "-3.25"},
        {"HVC;3", "0.0071"},
        {"ZOL", "0.003"},
        {"DFI", "5"},
        {"ADF", "16"},
        {"CET;0", "21.5"},
        {"CET;1", "0.012"},
        {"CET;2", "-0.0004"},
        {"CEO", "0"},
        {"RGE", "2"},
        {"ACH", "1"},
        {"ADG", "4"},
        {"HV", "900"},
        {"HVE", "1"},
        {"HVR", "10"},
        {"FMD", "\xB5Sv/h"},
        {"MIC;0", "1"},
        {"MIC;1", "0"},
        {"MIC;2", "250"},
        {"ASE", ""},
        {"ASP;0", "Alarm <5 & >10"},
        {"ASP;1", "3;7"},
        {"ASP;2", "0"},
        {"LS;0", "Lab 1"},
        {"LS;1", "North & South"},
        {"LS;2", "<none>"},
    };
    return table;
}

QByteArray measFactory(const QByteArray &key)
{
    if (key.startsWith("CEF;"))
        return QByteArrayLiteral("1.0000");
    static const ValueTable table {
        {"HVO", "800"}, {"ZOL", "0.000"}, {"DFI", "1"}, {"ADF", "1"},           {"CEO", "0"},
        {"RGE", "0"},   {"ACH", "0"},     {"ADG", "1"}, {"HV", "800"},          {"HVE", "0"},
        {"HVR", "1"},   {"FMD", "cps"},   {"ASE", "0"}, {"HW", "VM2-MM rev.C"},
    };
    if (table.contains(key))
        return table.value(key);
    if (key.startsWith("LS;"))
        return QByteArray();
    return QByteArrayLiteral("0");
}

QByteArray cpuDefault(const QByteArray &key)
{
    static const ValueTable table {
        {"DPV;0", "Site 7;Hall B"},
        {"DPV;1", "2026-03-14"},
        {"DPV;2",
         "\xB0"
         "C"},
        {"DPV;3", "R&D <lab>"},
        {"DPV;4", ""},
        {"DPV;5", "\xB5Sv/h"},
        {"DUV;0", "Operator A&B"},
        {"DUV;1", "<default>"},
        {"DUV;2",
         "20.5 \xB0"
         "C"},
        {"DUV;3", ""},
        {"DUV;4", "x;y;z"},
    };
    if (table.contains(key))
        return table.value(key);
    const int index = key.mid(4).toInt();
    // Plausible numbers that differ from the factory value 0.
    return QByteArray::number(key.startsWith("DPV") ? 100 + 7 * index : 3 * index + 1);
}

} // namespace

QByteArrayList mainQueries()
{
    return {"SER", "CH", "CN", "CA", "C3", "C5", "C12", "CEO"};
}

QByteArrayList measProtectedQueries()
{
    return {"CEF;0;0", "CEF;0;1", "CEF;0;2", "CEF;0;3", "CEF;1;0", "CEF;1;1", "CEF;1;2",
            "CEF;1;3", "CEF;2;0", "CEF;2;1", "CEF;2;2", "CEF;2;3", "SER",     "HW",
            "HVO",     "HVC;0",   "HVC;1",   "HVC;2",   "HVC;3",   "ZOL",     "DFI",
            "ADF",     "CET;0",   "CET;1",   "CET;2",   "CEO"};
}

QByteArrayList measUserQueries()
{
    return {"RGE",   "ACH", "ADG",   "HV",    "HVE",   "HVR",  "FMD",  "MIC;0", "MIC;1",
            "MIC;2", "ASE", "ASP;0", "ASP;1", "ASP;2", "LS;0", "LS;1", "LS;2"};
}

QByteArrayList keys(BoardKind kind)
{
    switch (kind) {
    case BoardKind::Cpu:
        return indexed("DPV;", kCpuProtectedCount) + indexed("DUV;", kCpuUserCount);
    case BoardKind::Meas:
        return measProtectedQueries() + measUserQueries();
    case BoardKind::Main:
        return mainQueries();
    }
    return {};
}

bool contains(BoardKind kind, const QByteArray &key)
{
    static const QHash<int, QByteArrayList> all {
        {boardIndex(BoardKind::Cpu), keys(BoardKind::Cpu)},
        {boardIndex(BoardKind::Meas), keys(BoardKind::Meas)},
        {boardIndex(BoardKind::Main), keys(BoardKind::Main)},
    };
    return all.value(boardIndex(kind)).contains(key);
}

bool isReadOnly(const QByteArray &key)
{
    return key == "SER" || key == "HW";
}

QByteArray factoryValue(BoardKind kind, const QByteArray &key)
{
    switch (kind) {
    case BoardKind::Cpu:
        return QByteArrayLiteral("0");
    case BoardKind::Meas:
        return measFactory(key);
    case BoardKind::Main:
        return mainFactory().value(key, QByteArrayLiteral("0"));
    }
    return {};
}

QByteArray defaultValue(BoardKind kind, const QByteArray &key)
{
    switch (kind) {
    case BoardKind::Cpu:
        return cpuDefault(key);
    case BoardKind::Meas:
        return measDefaults().value(key);
    case BoardKind::Main:
        return mainDefaults().value(key);
    }
    return {};
}

} // namespace ParameterCatalog
