#include "board/BoardEntry.h"

namespace parlova {

namespace {

QString uuidText(const QUuid& id) { return id.isNull() ? QString() : id.toString(QUuid::WithoutBraces); }

}  // namespace

QJsonObject BoardEntry::toJson() const {
    QJsonObject object{{"id", uuidText(id)},
                       {"name", name},
                       {"kind", kind == Kind::clip ? QStringLiteral("clip") : QStringLiteral("speech")},
                       {"levelDb", levelDb},
                       {"duckDb", duckDb},
                       {"key", key}};
    if (kind == Kind::clip) {
        object.insert("file", clipFile);
        object.insert("seconds", clipSeconds);
        object.insert("inMyVoice", inMyVoice);
    } else {
        object.insert("text", text);
        if (!voiceID.isNull()) object.insert("voice", uuidText(voiceID));
        if (!cloneID.isNull()) object.insert("clone", uuidText(cloneID));
    }
    return object;
}

std::optional<BoardEntry> BoardEntry::fromJson(const QJsonObject& object) {
    const BoardEntry defaults;
    BoardEntry entry;
    entry.id = QUuid::fromString(object.value("id").toString());
    if (entry.id.isNull()) return std::nullopt;
    const QString kind = object.value("kind").toString(QStringLiteral("clip"));
    if (kind == QLatin1String("speech")) entry.kind = Kind::speech;
    else if (kind != QLatin1String("clip")) return std::nullopt;  // a kind this version doesn't know
    entry.name = object.value("name").toString();
    entry.levelDb = object.value("levelDb").toDouble(defaults.levelDb);
    entry.duckDb = object.value("duckDb").toDouble(defaults.duckDb);
    entry.key = object.value("key").toString();
    if (entry.kind == Kind::clip) {
        entry.clipFile = object.value("file").toString();
        // A bare name in the board's folder: the store deletes it with the entry.
        if (entry.clipFile.isEmpty() || entry.clipFile.contains(QLatin1Char('/')) || entry.clipFile.startsWith('.'))
            return std::nullopt;
        entry.clipSeconds = object.value("seconds").toDouble(0);
        entry.inMyVoice = object.value("inMyVoice").toBool(false);
    } else {
        entry.text = object.value("text").toString();
        entry.voiceID = QUuid::fromString(object.value("voice").toString());
        entry.cloneID = QUuid::fromString(object.value("clone").toString());
    }
    return entry;
}

}  // namespace parlova
