#pragma once
// What the cloned-voice page and the command line share about generating
// speech: the checks made before asking the worker, the seeds, and the
// choices kept in the settings.
#include "cloning/CloneModel.h"

#include <QSettings>
#include <QString>

namespace parlova {

struct Generation {
    static constexpr int kGenerateSeed = 42;  // Generate asks for the same take each time
    static constexpr const char* kModelKey = "cloneModel";
    static constexpr const char* kPlayWhenReadyKey = "clonePlayWhenReady";
    static constexpr double kMinimumSeconds = 5.0;

    static QString defaultText() {
        return QStringLiteral("Hello dear, it's so lovely to hear from you. Did you remember to eat lunch today?");
    }
    static QString consentLabel() {
        return QStringLiteral("This is my own voice, or I have the speaker's permission to clone it.");
    }
    static QString mayBeCutOff() { return QStringLiteral("May be cut off: try Another Take"); }

    // The first reason not to generate, in the page's order; empty when
    // generation may go ahead.
    static QString blocker(CloneModel model, const ClonedVoice& voice, bool permissionConfirmed, const QString& text);

    // Another Take: a seed drawn uniformly from 1 to 9999.
    static int anotherTakeSeed();

    // "17 s of samples · 2 of 61 practice sentences read · Chatterbox Turbo listens to 15 s"
    static QString voiceSummary(const ClonedVoice& voice, CloneModel model);

    static CloneModel model(const QSettings& settings);
    static void setModel(QSettings& settings, CloneModel model);
    static bool playWhenReady(const QSettings& settings);
    static void setPlayWhenReady(QSettings& settings, bool on);
};

}  // namespace parlova
