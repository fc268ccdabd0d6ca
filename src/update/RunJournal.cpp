#include "RunJournal.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr char kFormat[] = "varimo-run-journal";
constexpr int kVersion = 1;
constexpr qint64 kMaxJournalBytes = qint64(64) * 1024;

const QString kPrefix = u"VarimoSentry_Journal_"_s;

// The stages as the file spells them.
const std::pair<Stage, QString> kStageNames[] = {
    {Stage::None, u"pending"_s},
    {Stage::Backup, u"backup"_s},
    {Stage::BootloaderStart, u"bootloader"_s},
    {Stage::Transfer, u"transfer"_s},
    {Stage::RestartWait, u"restart"_s},
    {Stage::Restore, u"restore"_s},
};

QString stageName(Stage stage)
{
    const auto it = std::ranges::find(kStageNames, stage, &std::pair<Stage, QString>::first);
    return it != std::end(kStageNames) ? it->second : u"pending"_s;
}

std::optional<Stage> stageFromName(const QString &name)
{
    const auto it = std::ranges::find(kStageNames, name, &std::pair<Stage, QString>::second);
    return it != std::end(kStageNames) ? std::optional(it->first) : std::nullopt;
}

// What a board of an unfinished run still needs, for the operator.
QString boardNeeds(const RunJournal::Board &b)
{
    const QString name = boardName(b.board);
    if (b.done)
        return u"%1 updated to %2"_s.arg(name, b.firmware);
    switch (b.stage) {
    case Stage::RestartWait:
    case Stage::Restore:
        return u"%1 flashed with %2, its parameters not yet restored"_s.arg(name, b.firmware);
    case Stage::BootloaderStart:
    case Stage::Transfer:
        return u"%1 still needs its image %2 (its transfer was broken off)"_s.arg(name, b.firmware);
    default:
        return u"%1 still needs its image %2"_s.arg(name, b.firmware);
    }
}

// What the file at path holds: a journal that can be trusted, or why not.
JournalFound readJournal(const QString &path)
{
    JournalFound found {path, std::nullopt, {}};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxJournalBytes) {
        found.problem = u"%1 cannot be read"_s.arg(path);
        return found;
    }
    const QJsonObject o = QJsonDocument::fromJson(file.readAll()).object();
    RunJournal j;
    j.path = path;
    j.serialNumber = o.value(u"serialNumber"_s).toString();
    j.backupFile = o.value(u"backupFile"_s).toString();
    bool valid = o.value(u"format"_s).toString() == QLatin1StringView(kFormat) &&
        o.value(u"version"_s).toInt() == kVersion && !j.serialNumber.isEmpty() &&
        !j.backupFile.isEmpty();
    for (const auto &value : o.value(u"boards"_s).toArray()) {
        const QJsonObject b = value.toObject();
        const auto kind = boardFromKey(b.value(u"board"_s).toString());
        const auto stage = stageFromName(b.value(u"stage"_s).toString());
        valid = valid && kind && stage && !b.value(u"image"_s).toString().isEmpty();
        if (valid)
            j.boards.append({*kind, b.value(u"image"_s).toString(),
                             b.value(u"firmware"_s).toString(), *stage,
                             b.value(u"done"_s).toBool()});
    }
    if (!valid) {
        found.problem = u"%1 is damaged"_s.arg(path);
        return found;
    }
    found.journal = j;
    return found;
}

} // namespace

QString RunJournal::fileNameFor(const QString &serialNumber)
{
    return kPrefix + serialNumber + u".json"_s;
}

JournalFound RunJournal::find(const QString &dataDir, const QString &serialNumber)
{
    if (serialNumber.isEmpty()) {
        const QList<JournalFound> all = findAll(dataDir);
        JournalFound found = all.size() == 1 ? all.front() : JournalFound();
        if (all.size() > 1)
            found.problem = u"%1 unfinished update runs in %2; the instrument did not say its "
                            "serial number"_s.arg(all.size())
                                .arg(dataDir);
        return found;
    }
    const QString path = QDir(dataDir).filePath(fileNameFor(serialNumber));
    if (!QFileInfo::exists(path))
        return {};
    JournalFound found = readJournal(path);
    if (found.journal && found.journal->serialNumber != serialNumber) {
        found.problem =
            u"%1 belongs to VARIMOsentry SN %2"_s.arg(path, found.journal->serialNumber);
        found.journal.reset();
    }
    return found;
}

QList<JournalFound> RunJournal::findAll(const QString &dataDir)
{
    QList<JournalFound> all;
    for (const QString &name :
         QDir(dataDir).entryList({kPrefix + u"*.json"_s}, QDir::Files, QDir::Name))
        all.append(readJournal(QDir(dataDir).filePath(name)));
    return all;
}

bool RunJournal::save(QString *error) const
{
    QJsonArray list;
    for (const Board &b : boards)
        list.append(QJsonObject {{u"board"_s, QString::fromLatin1(boardFacts(b.board).key)},
                                 {u"image"_s, b.image},
                                 {u"firmware"_s, b.firmware},
                                 {u"stage"_s, stageName(b.stage)},
                                 {u"done"_s, b.done}});
    const QByteArray bytes = QJsonDocument(QJsonObject {{u"format"_s, QString::fromLatin1(kFormat)},
                                                        {u"version"_s, kVersion},
                                                        {u"serialNumber"_s, serialNumber},
                                                        {u"backupFile"_s, backupFile},
                                                        {u"boards"_s, list}})
                                 .toJson();
    // QSaveFile writes a file beside, syncs it to the disk and renames it over the old one.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) ||
        file.write(bytes) != bytes.size() || !file.commit()) {
        *error = u"Cannot write the run journal %1: %2"_s.arg(path, file.errorString());
        return false;
    }
    return true;
}

bool RunJournal::discard() const
{
    return QFile::remove(path) || !QFileInfo::exists(path);
}

RunJournal::Board *RunJournal::board(BoardKind kind)
{
    const auto it = std::ranges::find(boards, kind, &Board::board);
    return it != boards.end() ? &*it : nullptr;
}

bool RunJournal::finished() const
{
    return std::ranges::all_of(boards, &Board::done);
}

QString RunJournal::describe() const
{
    QStringList parts;
    for (const Board &b : boards)
        parts.append(boardNeeds(b));
    return u"Unfinished update of VARIMOsentry SN %1 (backup %2): %3."_s.arg(
        serialNumber, backupFile, parts.join(u"; "_s));
}
