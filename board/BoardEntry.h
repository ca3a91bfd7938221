#pragma once
// One entry of the soundboard: a clip (a copy of an audio file kept in the
// board's folder) or a typed sentence with the voice that says it. Value type.
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace parlova {

struct BoardEntry {
    enum class Kind { clip, speech };

    QUuid id;
    QString name;
    Kind kind = Kind::clip;
    QString clipFile;        // clip: the copy's file name in the board's folder
    double clipSeconds = 0;  // clip: its length
    bool inMyVoice = false;  // clip: played through the selected voice instead of as it is
    QString text;            // speech: what is said
    QUuid voiceID;           // speech: the effect voice that says it (null: the selected voice)
    QUuid cloneID;           // speech: the cloned voice that says it (wins over voiceID)
    double levelDb = 0;      // its level in the call
    double duckDb = -12;     // how far the live voice is lowered while it plays; 0: not at all
    QString key;             // plays it while the window has focus ("1".."9"; empty: none)

    bool operator==(const BoardEntry&) const = default;

    QJsonObject toJson() const;
    // Nothing when the object is not an entry (no id, or a clip without a file).
    static std::optional<BoardEntry> fromJson(const QJsonObject& object);
};

}  // namespace parlova
