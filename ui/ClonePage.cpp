#include "ui/ClonePage.h"

#include "cloning/CloneLibrary.h"
#include "cloning/CloneModel.h"
#include "cloning/Generation.h"
#include "cloning/ReadingScripts.h"
#include "cloning/SampleRecording.h"
#include "cloning/Transcriber.h"
#include "cloning/VoiceCloner.h"
#include "common/VoiceEngineError.h"
#include "engine/VoiceEngine.h"
#include "ui/Icons.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPointer>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QToolButton>
#include <QUrl>

namespace parlova::ui {

namespace {

QToolButton* iconButton(const char* icon, QStyle::StandardPixmap fallback, const QString& tip, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(themedIcon(icon, fallback));
    button->setToolTip(tip);
    button->setAccessibleName(tip);
    button->setAutoRaise(true);
    return button;
}

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

void clearLayout(QVBoxLayout* layout) {
    while (QLayoutItem* item = layout->takeAt(0)) {
        if (QWidget* widget = item->widget()) widget->deleteLater();
        delete item;
    }
}

}  // namespace

ClonePage::ClonePage(CloneLibrary& library, VoiceCloner& cloner, VoiceEngine& engine, QSettings& settings,
                     QWidget* parent)
    : QWidget(parent), library_(library), cloner_(cloner), engine_(engine), settings_(settings) {
    auto* layout = new QVBoxLayout(this);
    auto* header = new QHBoxLayout;
    name_ = new QLineEdit(this);
    QFont big = name_->font();
    big.setPointSizeF(big.pointSizeF() * 1.4);
    big.setBold(true);
    name_->setFont(big);
    name_->setFrame(false);
    name_->setAccessibleName("Voice name");
    connect(name_, &QLineEdit::editingFinished, this, [this] {
        QString name = name_->text().trimmed();
        if (!name.isEmpty()) library_.rename(voiceID_, name);
    });
    header->addWidget(name_, 1);
    layout->addLayout(header);
    summary_ = note({}, this);
    layout->addWidget(summary_);

    layout->addWidget(makeSetup());
    consent_ = new QCheckBox(Generation::consentLabel(), this);
    connect(consent_, &QCheckBox::toggled, this, [this](bool on) {
        if (on) consented_.insert(voiceID_);
        else consented_.remove(voiceID_);
        refreshGenerate();
    });
    layout->addWidget(consent_);

    auto* samplesGroup = new QGroupBox("Samples", this);
    auto* samplesOuter = new QVBoxLayout(samplesGroup);
    samples_ = new QWidget(samplesGroup);
    samplesLayout_ = new QVBoxLayout(samples_);
    samplesLayout_->setContentsMargins(0, 0, 0, 0);
    samplesOuter->addWidget(samples_);
    samplesOuter->addWidget(makeRecorder());
    layout->addWidget(samplesGroup);
    layout->addWidget(makeSpeech());
    layout->addStretch(1);

    connect(qApp, &QApplication::focusChanged, this, [this] {
        if (samplesStale_ && !editingTranscript()) QTimer::singleShot(0, this, &ClonePage::refreshSamples);
    });
    recordingTimer_.setInterval(200);
    connect(&recordingTimer_, &QTimer::timeout, this, &ClonePage::recordingTick);
    connect(&library_, &CloneLibrary::voicesChanged, this, &ClonePage::refresh);
    connect(&cloner_, &VoiceCloner::stateChanged, this, &ClonePage::refresh);
    connect(&cloner_, &VoiceCloner::statusChanged, this, &ClonePage::refreshSetup);
    connect(&cloner_, &VoiceCloner::takesChanged, this, &ClonePage::refreshTakes);
    connect(&engine_, &VoiceEngine::recordingChanged, this, [this] {
        if (recordingSample_ && !engine_.isRecording()) recordingFinished();
        refreshGenerate();
    });
    connect(&engine_, &VoiceEngine::liveStateChanged, this, &ClonePage::refreshGenerate);
    connect(&engine_, &VoiceEngine::clipChanged, this, &ClonePage::refreshGenerate);
}

QWidget* ClonePage::makeSetup() {
    setupBox_ = new QGroupBox("Voice cloning", this);
    auto* layout = new QVBoxLayout(setupBox_);
    layout->addWidget(note("Cloned voices are made by a speech model that runs on this computer. It needs a one-time "
                           "setup of a few minutes; nothing you record leaves your computer.",
                           setupBox_));
    auto* row = new QHBoxLayout;
    setup_ = new QPushButton("Set Up Voice Cloning", setupBox_);
    setup_->setIcon(themedIcon("system-software-install", QStyle::SP_ArrowDown));
    connect(setup_, &QPushButton::clicked, &cloner_, &VoiceCloner::install);
    setupBusy_ = new QProgressBar(setupBox_);
    setupBusy_->setRange(0, 0);  // the script reports lines, not a fraction
    setupBusy_->setMaximumWidth(160);
    row->addWidget(setup_);
    row->addWidget(setupBusy_);
    row->addStretch(1);
    layout->addLayout(row);
    setupStatus_ = note({}, setupBox_);
    layout->addWidget(setupStatus_);
    return setupBox_;
}

QWidget* ClonePage::makeRecorder() {
    auto* box = new QWidget(this);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->addWidget(new QLabel(
        "Read this aloud in your normal voice. Each script uses sentences this voice hasn't read yet:", box));
    auto* scriptRow = new QHBoxLayout;
    script_ = new QLabel(box);
    script_->setWordWrap(true);
    script_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    script_->setFrameShape(QFrame::StyledPanel);
    script_->setMargin(8);
    QFont larger = script_->font();
    larger.setPointSizeF(larger.pointSizeF() * 1.1);
    script_->setFont(larger);
    auto* another = iconButton("view-refresh", QStyle::SP_BrowserReload, "Other sentences", box);
    connect(another, &QToolButton::clicked, this, &ClonePage::newScript);
    scriptRow->addWidget(script_, 1);
    scriptRow->addWidget(another, 0, Qt::AlignTop);
    layout->addLayout(scriptRow);
    auto* buttons = new QHBoxLayout;
    recordSample_ = new QPushButton("Record Sample", box);
    recordSample_->setIcon(themedIcon("media-record", QStyle::SP_DialogNoButton));
    connect(recordSample_, &QPushButton::clicked, this, &ClonePage::toggleSampleRecording);
    addFiles_ = new QPushButton("Add Audio Files…", box);
    connect(addFiles_, &QPushButton::clicked, this, [this] {
        QStringList files = QFileDialog::getOpenFileNames(
            window(), "Add Audio Files", QStandardPaths::writableLocation(QStandardPaths::MusicLocation),
            "Audio files (*.wav *.flac *.ogg *.opus *.mp3 *.m4a *.aac);;All files (*)");
        for (const QString& file : files) addSampleFile(file);
    });
    addClip_ = new QPushButton("Add Current Clip", box);
    addClip_->setToolTip("Add the clip recorded or opened with the controls below");
    connect(addClip_, &QPushButton::clicked, this, [this] { addSampleFile(engine_.clipURL()); });
    buttons->addWidget(recordSample_);
    buttons->addWidget(addFiles_);
    buttons->addWidget(addClip_);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    recordHint_ = note(SampleRecording::hint(), box);
    layout->addWidget(recordHint_);
    return box;
}

QWidget* ClonePage::makeSpeech() {
    auto* group = new QGroupBox("Speak typed text", this);
    auto* layout = new QVBoxLayout(group);
    layout->addWidget(note("Text-to-speech in this voice. Each take is checked so no words are cut off.", group));
    text_ = new QPlainTextEdit(Generation::defaultText(), group);
    text_->setMaximumHeight(90);
    text_->setAccessibleName("Text to say");
    connect(text_, &QPlainTextEdit::textChanged, this, &ClonePage::refreshGenerate);
    layout->addWidget(text_);
    auto* row = new QHBoxLayout;
    model_ = new QComboBox(group);
    for (CloneModel model : kAllCloneModels) model_->addItem(displayName(model), rawValue(model));
    model_->setCurrentIndex(model_->findData(rawValue(Generation::model(settings_))));
    connect(model_, &QComboBox::currentIndexChanged, this, [this] {
        if (auto model = cloneModelFromRaw(model_->currentData().toString())) Generation::setModel(settings_, *model);
        refresh();
    });
    generate_ = new QPushButton("Generate", group);
    generate_->setDefault(true);
    connect(generate_, &QPushButton::clicked, this, [this] { generate(Generation::kGenerateSeed); });
    playWhenReady_ = new QCheckBox("Play when ready", group);
    playWhenReady_->setChecked(Generation::playWhenReady(settings_));
    connect(playWhenReady_, &QCheckBox::toggled, this,
            [this](bool on) { Generation::setPlayWhenReady(settings_, on); });
    row->addWidget(new QLabel("Model", group));
    row->addWidget(model_);
    row->addWidget(generate_);
    row->addWidget(playWhenReady_);
    row->addStretch(1);
    layout->addLayout(row);
    modelInfo_ = note({}, group);
    layout->addWidget(modelInfo_);
    blocker_ = new QLabel(group);
    blocker_->setWordWrap(true);
    layout->addWidget(blocker_);
    clonerStatus_ = note({}, group);
    layout->addWidget(clonerStatus_);
    takes_ = new QWidget(group);
    takesLayout_ = new QVBoxLayout(takes_);
    takesLayout_->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(takes_);
    return group;
}

void ClonePage::showVoice(const QUuid& voiceID) {
    bool sameVoice = voiceID == voiceID_;
    voiceID_ = voiceID;
    if (!sameVoice) {
        scriptSentences_.clear();
        QSignalBlocker block(consent_);
        consent_->setChecked(consented_.contains(voiceID));
    }
    refresh();
}

void ClonePage::refresh() {
    auto voice = library_.voice(voiceID_);
    if (!voice) return;
    if (!name_->hasFocus()) name_->setText(voice->name);
    CloneModel model = Generation::model(settings_);
    summary_->setText(Generation::voiceSummary(*voice, model));
    if (scriptSentences_.isEmpty()) newScript();
    QString info = modelDescription(model);
    if (!isDownloaded(model))
        info += " The first take downloads this model, which takes a while; later takes start at once.";
    modelInfo_->setText(info);
    refreshSetup();
    refreshSamples();
    refreshTakes();
    refreshGenerate();
}

void ClonePage::refreshSetup() {
    auto state = cloner_.state();
    setupBox_->setVisible(state == VoiceCloner::State::notInstalled || state == VoiceCloner::State::installing ||
                          !cloner_.isInstalled());
    setup_->setEnabled(state != VoiceCloner::State::installing);
    setupBusy_->setVisible(state == VoiceCloner::State::installing);
    setupStatus_->setText(cloner_.status());
    clonerStatus_->setText(state == VoiceCloner::State::installing ? QString() : cloner_.status());
}

bool ClonePage::editingTranscript() const {
    QWidget* focus = QApplication::focusWidget();
    return focus && samples_->isAncestorOf(focus) && qobject_cast<QLineEdit*>(focus);
}

void ClonePage::refreshSamples() {
    // Rebuilding the rows under the user's typing would lose it: wait until
    // the transcript field is left.
    if (editingTranscript()) {
        samplesStale_ = true;
        return;
    }
    samplesStale_ = false;
    clearLayout(samplesLayout_);
    auto voice = library_.voice(voiceID_);
    if (!voice) return;
    if (voice->samples.isEmpty())
        samplesLayout_->addWidget(note("No samples yet. Record one below, or add audio files of the speaker.", samples_));
    QSet<QUuid> used = usedSamples(Generation::model(settings_), *voice);
    for (int i = 0; i < voice->samples.size(); ++i) {
        const VoiceSample sample = voice->samples[i];
        auto* row = new QWidget(samples_);
        auto* rowLayout = new QVBoxLayout(row);
        rowLayout->setContentsMargins(0, 2, 0, 2);
        auto* line = new QHBoxLayout;
        const QString path = library_.samplePath(voiceID_, sample);
        auto* play = iconButton("media-playback-start", QStyle::SP_MediaPlay, "Play sample", row);
        connect(play, &QToolButton::clicked, this, [this, path] { this->play(path); });
        auto* length = new QLabel(QString::asprintf("%.0f s", sample.duration), row);
        length->setMinimumWidth(36);
        length->setToolTip(used.contains(sample.id) ? "The chosen model listens to this sample"
                                                     : "The chosen model doesn't reach this sample");
        auto* transcript = new QLineEdit(sample.transcript, row);
        transcript->setPlaceholderText(transcribing_.contains(sample.id) ? "Transcribing…" : "What is said in it");
        transcript->setAccessibleName("Transcript");
        connect(transcript, &QLineEdit::editingFinished, this, [this, transcript, id = sample.id] {
            library_.setTranscript(transcript->text().trimmed(), id, voiceID_);
        });
        auto* again = iconButton("view-refresh", QStyle::SP_BrowserReload, "Transcribe Again", row);
        connect(again, &QToolButton::clicked, this, [this, sample] { transcribe(sample); });
        auto* top = iconButton("go-top", QStyle::SP_ArrowUp, "Move to top", row);
        top->setEnabled(i > 0);
        connect(top, &QToolButton::clicked, this, [this, id = sample.id] { library_.moveToTop(id, voiceID_); });
        auto* remove = iconButton("edit-delete", QStyle::SP_TrashIcon, "Remove sample", row);
        connect(remove, &QToolButton::clicked, this, [this, id = sample.id] { library_.removeSample(id, voiceID_); });
        line->addWidget(play);
        line->addWidget(length);
        line->addWidget(transcript, 1);
        line->addWidget(again);
        line->addWidget(top);
        line->addWidget(remove);
        rowLayout->addLayout(line);
        if (SampleRecording::isShort(sample.duration)) {
            auto* mark = new QLabel("⚠ " + SampleRecording::shortSampleMark(), row);
            mark->setWordWrap(true);
            rowLayout->addWidget(mark);
        }
        samplesLayout_->addWidget(row);
    }
}

void ClonePage::refreshTakes() {
    clearLayout(takesLayout_);
    auto voice = library_.voice(voiceID_);
    if (!voice) return;
    for (const Take& take : cloner_.takes()) {
        if (take.voiceName != voice->name) continue;
        auto* row = new QWidget(takes_);
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(0, 0, 0, 0);
        auto* play = iconButton("media-playback-start", QStyle::SP_MediaPlay, "Play take", row);
        connect(play, &QToolButton::clicked, this, [this, file = take.file] { this->play(file); });
        auto* folder = iconButton("folder-open", QStyle::SP_DirOpenIcon, "Open folder", row);
        connect(folder, &QToolButton::clicked, this, [file = take.file] {
            QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(file).absolutePath()));
        });
        auto* text = new QLabel(QString::asprintf("%.1f s · ", take.duration) + take.text, row);
        text->setToolTip(take.text);
        // Long texts give way to the buttons; the whole text is in the tooltip.
        text->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        text->setMinimumWidth(80);
        line->addWidget(play);
        line->addWidget(folder);
        line->addWidget(text, 1);
        if (take.verified == true) line->addWidget(new QLabel("✓ Checked", row));
        if (take.verified == false) line->addWidget(new QLabel("⚠ " + Generation::mayBeCutOff(), row));
        auto* another = new QPushButton("Another Take", row);
        another->setToolTip("Same text, different delivery");
        connect(another, &QPushButton::clicked, this, [this, take] {
            QPointer<ClonePage> self(this);
            cloner_.anotherTake(take, library_.target(voiceID_),
                                [self](const std::optional<Take>& made, const QString& error) {
                                    if (self) self->tookOne(made, error);
                                });
        });
        line->addWidget(another);
        takesLayout_->addWidget(row);
    }
}

void ClonePage::refreshGenerate() {
    auto voice = library_.voice(voiceID_);
    if (!voice) return;
    QString reason = Generation::blocker(Generation::model(settings_), *voice, consent_->isChecked(),
                                         text_->toPlainText());
    bool working = cloner_.state() == VoiceCloner::State::working ||
                   cloner_.state() == VoiceCloner::State::installing;
    blocker_->setText(reason);
    blocker_->setVisible(!reason.isEmpty());
    generate_->setEnabled(reason.isEmpty() && !working && cloner_.isInstalled());
    generate_->setText(cloner_.state() == VoiceCloner::State::working ? "Generating…" : "Generate");
    bool otherRecording = engine_.isRecording() && !recordingSample_;
    recordSample_->setText(recordingSample_ ? "Stop & Add Sample" : "Record Sample");
    recordSample_->setEnabled(!engine_.isLive() && !otherRecording);
    recordSample_->setToolTip(engine_.isLive() ? SampleRecording::liveIsOn() : QString());
    if (engine_.isLive() && !recordingSample_) recordHint_->setText(SampleRecording::liveIsOn());
    else if (!recordingSample_) recordHint_->setText(SampleRecording::hint());
    addClip_->setEnabled(!engine_.clipURL().isEmpty() && !engine_.isRecording());
}

void ClonePage::newScript() {
    auto voice = library_.voice(voiceID_);
    if (!voice) return;
    QSet<QString> shown(scriptSentences_.begin(), scriptSentences_.end());
    scriptSentences_ = ReadingScripts::nextSentences(*voice, SampleRecording::kScriptSentences, shown);
    script_->setText(scriptSentences_.join(' '));
}

void ClonePage::toggleSampleRecording() {
    if (engine_.isLive()) {
        recordHint_->setText(SampleRecording::liveIsOn());
        return;
    }
    if (!recordingSample_) {
        recordingSample_ = true;
        recordingTimer_.start();
        engine_.toggleRecording();
    } else {
        engine_.toggleRecording();  // finishes through recordingChanged
    }
    refreshGenerate();
}

void ClonePage::recordingTick() {
    // The audio held so far, not the time since the button: the microphone
    // may take a moment to send its first sound.
    const double elapsed = engine_.recordedSeconds();
    recordHint_->setText(QString::asprintf("%.0f s — ", elapsed) + SampleRecording::progressWord(elapsed) + "  " +
                         SampleRecording::hint());
    if (SampleRecording::shouldAutoStop(elapsed) && engine_.isRecording()) engine_.toggleRecording();
}

void ClonePage::recordingFinished() {
    recordingSample_ = false;
    recordingTimer_.stop();
    recordHint_->setText(SampleRecording::hint());
    if (auto refusal = SampleRecording::rejection(engine_.clipDuration())) {
        recordHint_->setText(*refusal);
        return;
    }
    addSampleFile(engine_.clipURL(), scriptSentences_);
    newScript();
}

void ClonePage::addSampleFile(const QString& path, const QStringList& script) {
    if (path.isEmpty()) return;
    try {
        VoiceSample sample = library_.addSample(voiceID_, path);
        transcribe(sample, script);
    } catch (const VoiceEngineError& error) {
        engine_.setErrorMessage(SampleRecording::addFailed(QString::fromStdString(error.errorDescription())));
    }
}

void ClonePage::transcribe(const VoiceSample& sample, const QStringList& script) {
    Transcriber transcriber(&cloner_);
    if (!transcriber.isAvailable()) return;  // the transcript can be typed, or redone after setup
    const QUuid voiceID = voiceID_;
    transcribing_.insert(sample.id);
    refreshSamples();
    transcriber.transcribe(library_.samplePath(voiceID, sample), script,
                           [self = QPointer<ClonePage>(this), voiceID, id = sample.id](const std::optional<QString>& text) {
                               if (!self) return;
                               self->transcribing_.remove(id);
                               if (text) self->library_.setTranscript(*text, id, voiceID);
                               self->refreshSamples();
                           });
}

void ClonePage::generate(int seed) {
    auto voice = library_.voice(voiceID_);
    if (!voice) return;
    CloneModel model = Generation::model(settings_);
    if (!Generation::blocker(model, *voice, consent_->isChecked(), text_->toPlainText()).isEmpty()) return;
    cloner_.generate(text_->toPlainText().trimmed(), library_.target(voiceID_), model, seed,
                     [self = QPointer<ClonePage>(this)](const std::optional<Take>& take, const QString& error) {
                         if (self) self->tookOne(take, error);
                     });
}

void ClonePage::tookOne(const std::optional<Take>& take, const QString& error) {
    if (!error.isEmpty()) engine_.setErrorMessage(error);
    if (take && Generation::playWhenReady(settings_)) play(take->file);
}

void ClonePage::play(const QString& file) {
    // Samples and takes are heard as they are, without the voice's effects.
    if (!QProcess::startDetached("paplay", {file}) && !QProcess::startDetached("pw-play", {file}))
        engine_.setErrorMessage("Parlova couldn't play the file: neither paplay nor pw-play could be started.");
}

}  // namespace parlova::ui
