#pragma once
// The selected voice: one effect voice or one cloned voice, owned here and
// followed by everything that shows or uses it. The window's sidebar, the tray
// menu, the control channel and the global shortcuts all select through this
// object; it hands the choice to the engine (a cloned voice rebuilds a running
// live route with the clone stage, an effect voice with the effect chain) and
// tells the views through changed().
//
// Edits follow the stores: an edited effect voice reaches the engine at once,
// a cloned voice whose samples changed speaks with the new ones, and a voice
// that is deleted gives way to the first effect voice.
//
// Main thread only.
#include "voices/Voice.h"

#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace parlova {

class CloneLibrary;
class VoiceEngine;
class VoiceStore;

class VoiceSelection : public QObject {
    Q_OBJECT
public:
    enum class Kind { effect, clone };
    struct Choice {
        Kind kind = Kind::effect;
        QUuid id;
        bool operator==(const Choice&) const = default;
    };

    // Without a library only effect voices (and "Natural") can be selected.
    // Nothing is selected until the first select call.
    VoiceSelection(VoiceEngine& engine, VoiceStore& store, CloneLibrary* library = nullptr, QObject* parent = nullptr);

    std::optional<Choice> current() const { return current_; }
    bool isClone() const { return current_ && current_->kind == Kind::clone; }
    // The selected voice's name as the user knows it (empty: none).
    QString name() const;

    // Each returns false, changing nothing, when no such voice exists; the
    // voice already selected is left as it is.
    bool selectVoice(const QUuid& id);
    bool selectClone(const QUuid& id);
    // An effect voice as given (with changes for this run only, or "Natural").
    void selectEffect(const Voice& voice);
    // By name, case-insensitively: effect voices, then "Natural", then cloned voices.
    bool selectNamed(const QString& name);
    // The voice selectNamed would select, of `kind` only when given; nothing when none has the name.
    std::optional<Choice> findNamed(const QString& name, std::optional<Kind> kind = std::nullopt) const;
    // The next (+1) or previous (-1) voice in the order the window lists them,
    // effect voices first and then the cloned voices that can speak (with
    // samples, cloning set up), wrapping around; false when there is nothing
    // to move to.
    bool step(int direction);

signals:
    // The selection moved to another voice (not emitted for edits of the same one).
    void changed();

private:
    void apply(const Choice& choice, const Voice* effect);
    void followVoices();
    void followClones();

    VoiceEngine& engine_;
    VoiceStore& store_;
    CloneLibrary* library_;
    std::optional<Choice> current_;
    QString effectName_;  // the name of an effect voice selected as given
};

}  // namespace parlova
