#include "InstrumentState.h"

#include "ParameterCatalog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace {

BoardState defaultBoard(BoardKind kind, const char *name, const char *firmware, const char *build)
{
    BoardState board;
    board.name = name;
    board.firmware = firmware;
    board.build = build;
    for (const QByteArray &key : ParameterCatalog::keys(kind)) {
        if (key != "SER")
            board.values.insert(key, ParameterCatalog::defaultValue(kind, key));
    }
    return board;
}

QString text(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes);
}

// Text from JSON back to bytes; false for characters above 255.
bool bytes(const QJsonValue &value, QByteArray *out)
{
    if (!value.isString())
        return false;
    const QString s = value.toString();
    for (QChar c : s) {
        if (c.unicode() > 255)
            return false;
    }
    *out = s.toLatin1();
    return true;
}

StateFile::LoadResult failure(const QString &error)
{
    StateFile::LoadResult result;
    result.error = error;
    return result;
}

} // namespace

InstrumentState InstrumentState::defaults()
{
    InstrumentState state;
    state.board(BoardKind::Cpu) = defaultBoard(BoardKind::Cpu, "VARIMOsentry", "2.00", "15");
    state.board(BoardKind::Meas) = defaultBoard(BoardKind::Meas, "Vm2MM", "1.20", "3");
    state.board(BoardKind::Main) = defaultBoard(BoardKind::Main, "Vm2PS", "1.02", "7");
    return state;
}

BoardMode InstrumentState::settledMode(BoardKind kind, BoardMode mode)
{
    if (mode == BoardMode::Receiving)
        return kind == BoardKind::Cpu ? BoardMode::Waiting : BoardMode::Requesting;
    if (mode == BoardMode::Restarting)
        return BoardMode::Application;
    return mode;
}

void InstrumentState::resetToFactory(BoardKind kind, BoardState &board)
{
    for (auto it = board.values.begin(); it != board.values.end(); ++it) {
        if (!ParameterCatalog::isReadOnly(it.key()))
            it.value() = ParameterCatalog::factoryValue(kind, it.key());
    }
}

namespace StateFile {

QByteArray toJson(const InstrumentState &state)
{
    QJsonObject boards;
    for (BoardKind kind : kAllBoards) {
        const BoardState &b = state.board(kind);
        const BoardMode mode = InstrumentState::settledMode(kind, b.mode);
        QJsonObject values;
        for (auto it = b.values.cbegin(); it != b.values.cend(); ++it)
            values.insert(text(it.key()), text(it.value()));
        boards.insert(text(boardKey(kind)),
                      QJsonObject {{u"name"_s, text(b.name)},
                                   {u"firmware"_s, text(b.firmware)},
                                   {u"build"_s, text(b.build)},
                                   {u"mode"_s, text(modeName(mode))},
                                   {u"imageValid"_s, b.imageValid},
                                   {u"values"_s, values}});
    }
    const QJsonObject root {{u"serialNumber"_s, state.serialNumber},
                            {u"poweredOn"_s, state.poweredOn},
                            {u"route"_s, state.route},
                            {u"boards"_s, boards}};
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

LoadResult fromJson(const QByteArray &json)
{
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parseError);
    if (doc.isNull())
        return failure(
            u"not JSON at offset %1: %2"_s.arg(parseError.offset).arg(parseError.errorString()));
    if (!doc.isObject())
        return failure(u"the top level is not an object"_s);
    const QJsonObject root = doc.object();
    InstrumentState state = InstrumentState::defaults();

    if (root.contains(u"serialNumber"_s)) {
        const QJsonValue v = root.value(u"serialNumber"_s);
        const int serial = v.toInt(-1);
        if (!v.isDouble() || serial < 0 || serial > InstrumentState::kMaxSerialNumber)
            return failure(u"serialNumber must be a number from 0 to 32767"_s);
        state.serialNumber = serial;
    }
    if (root.contains(u"poweredOn"_s))
        state.poweredOn = root.value(u"poweredOn"_s).toBool(true);
    if (root.contains(u"route"_s)) {
        const int route = root.value(u"route"_s).toInt(-1);
        if (route < 0 || route > 4)
            return failure(u"route must be a board select from 0 to 4"_s);
        state.route = route;
    }

    const QJsonObject boards = root.value(u"boards"_s).toObject();
    for (auto it = boards.begin(); it != boards.end(); ++it) {
        const auto kind = boardFromKey(it.key().toLatin1());
        if (!kind)
            return failure(u"boards.%1: unknown board (cpu, meas, main)"_s.arg(it.key()));
        const QString where = u"boards.%1"_s.arg(it.key());
        const QJsonObject obj = it.value().toObject();
        BoardState &b = state.board(*kind);
        for (const auto &[field, target] :
             {std::pair {u"name"_s, &b.name}, std::pair {u"firmware"_s, &b.firmware},
              std::pair {u"build"_s, &b.build}}) {
            if (obj.contains(field) && !bytes(obj.value(field), target))
                return failure(u"%1.%2 must be Latin-1 text"_s.arg(where, field));
        }
        if (obj.contains(u"mode"_s)) {
            const auto mode = modeFromName(obj.value(u"mode"_s).toString().toLatin1());
            const bool cpuOnly = mode == BoardMode::UpdateMode || mode == BoardMode::Waiting;
            if (!mode || (*kind == BoardKind::Cpu ? *mode == BoardMode::Idle : cpuOnly))
                return failure(u"%1.mode: not a mode this board has"_s.arg(where));
            b.mode = *mode;
        }
        if (obj.contains(u"imageValid"_s))
            b.imageValid = obj.value(u"imageValid"_s).toBool(true);
        const QJsonObject values = obj.value(u"values"_s).toObject();
        for (auto v = values.begin(); v != values.end(); ++v) {
            const QByteArray key = v.key().toLatin1();
            if (!ParameterCatalog::contains(*kind, key) || key == "SER")
                return failure(
                    u"%1.values: %2 is not a parameter of this board"_s.arg(where, v.key()));
            QByteArray value;
            if (!bytes(v.value(), &value))
                return failure(u"%1.values.%2 must be Latin-1 text"_s.arg(where, v.key()));
            b.values.insert(key, value);
        }
    }
    LoadResult result;
    result.ok = true;
    result.state = state;
    return result;
}

LoadResult load(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failure(u"%1: %2"_s.arg(path, file.errorString()));
    LoadResult result = fromJson(file.readAll());
    if (!result.ok)
        result.error = u"%1: %2"_s.arg(path, result.error);
    return result;
}

bool save(const QString &path, const InstrumentState &state, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(toJson(state)) < 0 || !file.commit()) {
        if (error)
            *error = u"%1: %2"_s.arg(path, file.errorString());
        return false;
    }
    return true;
}

} // namespace StateFile
