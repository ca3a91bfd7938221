#pragma once
// The commands of the local control channel, applied to an engine and the
// voice list: the same words "parlova-cli control" takes, one request per
// line. A request that is not understood changes nothing and is answered with
// a sentence saying why.
//
// Words: ptt press|release|toggle, bypass on|off|toggle, voice next|prev|NAME
// (effect voices and cloned voices alike),
// live start|stop|toggle, board play NAME|key N|stop (the soundboard's sounds,
// by name or by the key they play on), say TEXT [--voice NAME | --clone NAME]
// (typed speech into the call; the option follows the text and its name is
// the rest of the line), status [--json], and for the desktop app "open" followed by
// a JSON object of start options ({"voice": NAME, "call": true, "live": true,
// "show": true}) that a second launch hands to the running one.
//
// Main thread only.
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <functional>
#include <optional>

namespace parlova {

class BoardStore;
class Soundboard;
class VoiceEngine;
class VoiceSelection;

struct ControlReply {
    bool ok = false;
    QString message;     // a finished sentence (or the status lines)
    QJsonObject status;  // filled for "status"

    // One line of the wire format: {"ok":..., "message":..., "status":{...}}.
    QByteArray toLine() const;
    // Reads a reply line; a damaged one becomes a failed reply that says so.
    static ControlReply fromLine(const QByteArray& line);
};

// "say TEXT [--voice NAME | --clone NAME]" taken apart: the text, then at most
// one option whose name is the rest of the words.
struct SayRequest {
    QString text;
    QString voice;  // an effect voice's name (or "Natural")
    QString clone;  // a cloned voice's name

    // Nothing, with the sentence in `error`, when the words don't fit.
    static std::optional<SayRequest> parse(const QString& words, QString* error);
};

class ControlCommands {
public:
    ControlCommands(VoiceEngine& engine, VoiceSelection& selection) : engine_(engine), selection_(selection) {}

    // A sentence on which global-shortcut mechanism is active, for the status.
    void setShortcutHint(std::function<QString()> hint) { shortcutHint_ = std::move(hint); }
    // The soundboard the "board" and "say" words act on (none: they are refused).
    void setBoard(BoardStore* store, Soundboard* board) {
        boardStore_ = store;
        board_ = board;
    }
    // Takes a second launch's start options (the desktop app only).
    using OpenHandler = std::function<ControlReply(const QJsonObject& options)>;
    void setOpenHandler(OpenHandler handler) { openHandler_ = std::move(handler); }

    ControlReply run(const QStringList& words);
    // Splits a request line on white space (a voice name may contain spaces).
    ControlReply runLine(const QString& line);

    QJsonObject status() const;

private:
    ControlReply ptt(const QString& action);
    ControlReply bypass(const QString& action);
    ControlReply voice(const QString& which);
    ControlReply live(const QString& action);
    ControlReply open(const QString& options);
    ControlReply board(const QStringList& words);
    ControlReply play(const QUuid& id, const QString& name);
    ControlReply say(const QString& words);
    QString statusText(const QJsonObject& status) const;

    VoiceEngine& engine_;
    VoiceSelection& selection_;
    std::function<QString()> shortcutHint_;
    OpenHandler openHandler_;
    BoardStore* boardStore_ = nullptr;
    Soundboard* board_ = nullptr;
};

}  // namespace parlova
