#include "RunJournal.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace {

constexpr char kFormat[] = "varimo-run-journal";
constexpr int kVersion = 1;
constexpr qint64 kMaxJournalBytes = 64 * 1024;

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
    for (const auto &[s, name] : kStageNames) {
        if (s == stage)
            return name;
    }
    return u"pending"_s;
}

std::optional<Stage> stageFromName(const QString &name)
{
    for (const auto &[s, n] : kStageNames) {
        if (n == name)
            return s;
    }
    return std::nullopt;
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

} // namespace

std::optional<RunJournal> readJournal(const QString &path, QString *problem);

QString RunJournal::fileNameFor(const QString &serialNumber)
{
    return kPrefix + serialNumber + u".json"_s;
}

JournalFound RunJournal::find(const QString &dataDir, const QString &serialNumber)
{
    JournalFound found;
    QString path;
    if (!serialNumber.isEmpty()) {
        path = QDir(dataDir).filePath(fileNameFor(serialNumber));
    } else {
        const QStringList all =
            QDir(dataDir).entryList({kPrefix + u"*.json"_s}, QDir::Files, QDir::Name);
        if (all.size() > 1)
            found.problem = u"%1 unfinished update runs in %2; the instrument did not say its "
                            "serial number"_s.arg(all.size())
                                .arg(dataDir);
        if (all.size() != 1)
            return found;
        path = QDir(dataDir).filePath(all.front());
    }
    if (!QFileInfo::exists(path))
        return found;
    found.path = path;
    found.journal = readJournal(path, &found.problem);
    if (found.journal && !serialNumber.isEmpty() && found.journal->serialNumber != serialNumber) {
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
         QDir(dataDir).entryList({kPrefix + u"*.json"_s}, QDir::Files, QDir::Name)) {
        JournalFound found;
        found.path = QDir(dataDir).filePath(name);
        found.journal = readJournal(found.path, &found.problem);
        all.append(found);
    }
    return all;
}

std::optional<RunJournal> readJournal(const QString &path, QString *problem)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxJournalBytes) {
        *problem = u"%1 cannot be read"_s.arg(path);
        return std::nullopt;
    }
    const QJsonObject o = QJsonDocument::fromJson(file.readAll()).object();
    RunJournal j;
    j.path = path;
    j.serialNumber = o.value(u"serialNumber"_s).toString();
    j.backupFile = o.value(u"backupFile"_s).toString();
    bool valid = o.value(u"format"_s).toString() == QLatin1StringView(kFormat) &&
        o.value(u"version"_s).toInt() == kVersion && !j.serialNumber.isEmpty() &&
        !j.backupFile.isEmpty();
    for (const QJsonValue &value : o.value(u"boards"_s).toArray()) {
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
        *problem = u"%1 is damaged"_s.arg(path);
        return std::nullopt;
    }
    return j;
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
    for (Board &b : boards) {
        if (b.board == kind)
            return &b;
    }
    return nullptr;
}

bool RunJournal::finished() const
{
    for (const Board &b : boards) {
        if (!b.done)
            return false;
    }
    return true;
}

QString RunJournal::describe() const
{
    QStringList parts;
    for (const Board &b : boards)
        parts.append(boardNeeds(b));
    return u"Unfinished update of VARIMOsentry SN %1 (backup %2): %3."_s.arg(
        serialNumber, backupFile, parts.join(u"; "_s));
}
