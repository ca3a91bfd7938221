#include "ui/TransportCard.h"

#include "cloning/CloneLatency.h"
#include "engine/VoiceEngine.h"
#include "ui/Icons.h"
#include "ui/LevelMeter.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QMenu>
#include <QSignalBlocker>
#include <QStandardPaths>
#include <QVBoxLayout>

#include <cmath>

namespace parlova::ui {

TransportCard::TransportCard(VoiceEngine& engine, QWidget* parent) : QWidget(parent), engine_(engine) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    auto* controls = new QHBoxLayout;
    live_ = new QPushButton(this);
    live_->setMinimumHeight(40);
    QFont bold = live_->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.15);
    live_->setFont(bold);
    live_->setMinimumWidth(150);
    record_ = new QPushButton(this);
    natural_ = new QCheckBox("Natural voice", this);
    natural_->setToolTip("Turn the effect off without stopping Live, so a call stays connected");
    play_ = new QPushButton(this);
    audioMenu_ = new QToolButton(this);
    audioMenu_->setText("Audio");
    audioMenu_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    audioMenu_->setToolTip("Open or export audio");
    audioMenu_->setAccessibleName("Open or export audio");
    audioMenu_->setPopupMode(QToolButton::InstantPopup);
    auto* menu = new QMenu(audioMenu_);
    menu->addAction("Open Audio File…", this, &TransportCard::openAudioFile);
    export_ = menu->addAction("Export Clip in This Voice…", this, &TransportCard::exportClip);
    audioMenu_->setMenu(menu);
    controls->addWidget(live_);
    controls->addWidget(record_);
    controls->addWidget(natural_);
    controls->addWidget(play_);
    controls->addWidget(audioMenu_);
    controls->addStretch(1);
    layout->addLayout(controls);

    cloneDelay_ = new QComboBox(this);
    cloneDelay_->setToolTip("Shorter delay, or clearer words on fast speech");
    cloneDelay_->setVisible(false);  // only a cloned voice has a choice of delay
    cloneDelay_->setAccessibleName("Delay of the cloned voice");
    for (CloneLatency latency : kAllCloneLatencies) cloneDelay_->addItem("Delay " + label(latency), rawValue(latency));
    connect(cloneDelay_, &QComboBox::activated, this, [this] {
        if (auto latency = cloneLatencyFromRaw(cloneDelay_->currentData().toString()))
            engine_.setCloneLatency(*latency);
    });
    // An effect voice's delay: the standard one, or a shorter shifter block
    // and smaller buffers for hearing oneself in headphones.
    effectDelay_ = new QComboBox(this);
    effectDelay_->setToolTip("Low: hear yourself sooner, for monitoring in headphones");
    effectDelay_->setAccessibleName("Delay of the voice");
    effectDelay_->addItem("Delay: Normal", false);
    effectDelay_->addItem("Delay: Low", true);
    connect(effectDelay_, &QComboBox::activated, this,
            [this] { engine_.setLowDelay(effectDelay_->currentData().toBool()); });
    delay_ = new QLabel(this);
    delay_->setForegroundRole(QPalette::PlaceholderText);
    exportBar_ = new QProgressBar(this);
    exportBar_->setRange(0, 100);
    exportBar_->setMaximumWidth(220);
    exportBar_->setFormat("Exporting %p%");
    exportBar_->setVisible(false);

    // The sentence beside the delay, so the card keeps three rows.
    auto* statusRow = new QHBoxLayout;
    status_ = new QLabel(this);
    status_->setWordWrap(true);
    status_->setAccessibleName("Status");
    statusRow->addWidget(status_, 1);
    statusRow->addWidget(exportBar_);
    statusRow->addWidget(cloneDelay_);
    statusRow->addWidget(effectDelay_);
    statusRow->addWidget(delay_);
    layout->addLayout(statusRow);
    meter_ = new LevelMeter(
        [&engine] {
            const LevelMonitor::Level level = engine.meter().level();
            return std::pair{level.rmsDb, level.peakDb};
        },
        this);
    pitch_ = new QLabel(this);
    pitch_->setMinimumWidth(90);
    pitch_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    pitch_->setToolTip("The pitch of your voice as Parlova hears it now");
    pitch_->setAccessibleName("Your pitch");
    auto* meterRow = new QHBoxLayout;
    meterRow->addWidget(meter_, 1);
    meterRow->addWidget(pitch_);
    layout->addLayout(meterRow);
    showDetectedPitch(0);

    connect(live_, &QPushButton::clicked, &engine_, &VoiceEngine::toggleLive);
    connect(record_, &QPushButton::clicked, &engine_, &VoiceEngine::toggleRecording);
    connect(natural_, &QCheckBox::toggled, &engine_, [this](bool on) { engine_.setBypass(on); });
    connect(play_, &QPushButton::clicked, &engine_, [this] {
        if (engine_.isPlaying()) engine_.stopPlayback();
        else engine_.startPlayback();
    });
    for (auto signal : {&VoiceEngine::liveStateChanged, &VoiceEngine::isStartingLiveChanged,
                        &VoiceEngine::recordingChanged, &VoiceEngine::playingChanged, &VoiceEngine::clipChanged,
                        &VoiceEngine::isExportingChanged, &VoiceEngine::callModeChanged,
                        &VoiceEngine::bypassChanged, &VoiceEngine::cloneChanged, &VoiceEngine::cloneLatencyChanged, &VoiceEngine::lowDelayChanged,
                        &VoiceEngine::isConvertingChanged, &VoiceEngine::isStreamStartingChanged})
        connect(&engine_, signal, this, &TransportCard::refresh);
    connect(&engine_.talk(), &TalkControl::statusChanged, this, &TransportCard::refresh);
    connect(&engine_.talk(), &TalkControl::talkModeChanged, this, &TransportCard::refresh);
    connect(&engine_, &VoiceEngine::exportProgressChanged, this,
            [this] { exportBar_->setValue(int(engine_.exportProgress() * 100)); });
    // The delay is measured, not published: read it twice a second while live.
    delayTimer_.setInterval(500);
    connect(&delayTimer_, &QTimer::timeout, this, &TransportCard::refreshDelay);
    refresh();
}

void TransportCard::setVoiceName(const QString& name) {
    voiceName_ = name;
    refresh();
}

void TransportCard::showDetectedPitch(float hz) {
    pitch_->setText(hz > 0 ? QString::asprintf("Pitch %.0f Hz", double(hz)) : QString("Pitch —"));
}

TransportState TransportCard::state() const {
    TransportState s;
    s.voiceName = voiceName_;
    s.isExporting = engine_.isExporting();
    s.isRecording = engine_.isRecording();
    s.isLive = engine_.isLive();
    s.callMode = engine_.callMode();
    s.bypass = engine_.bypass();
    s.isPlaying = engine_.isPlaying();
    s.hasClip = !engine_.clipURL().isEmpty();
    s.clipDuration = engine_.clipDuration();
    s.isCloned = !engine_.clone().isEmpty();
    s.isConverting = engine_.isConverting();
    s.isStreamStarting = engine_.isStreamStarting();
    s.cloneDelayLabel = label(engine_.cloneLatency());
    return s;
}

void TransportCard::refresh() {
    TransportState s = state();
    bool starting = engine_.isStartingLive();
    live_->setText(s.isLive ? "Stop Live" : starting ? "Starting…" : "Talk Live");
    live_->setIcon(s.isLive ? themedIcon("media-playback-stop", QStyle::SP_MediaStop)
                            : themedIcon("audio-input-microphone", QStyle::SP_MediaPlay));
    // The one accent colour: live is red, like a recording light.
    live_->setStyleSheet(s.isLive ? "QPushButton { background: #d9483b; color: white; border-radius: 6px; padding: 6px 14px; }"
                                  : QString());
    record_->setText(s.isRecording ? "Stop" : "Record");
    record_->setIcon(s.isRecording ? themedIcon("media-playback-stop", QStyle::SP_MediaStop)
                                   : themedIcon("media-record", QStyle::SP_DialogNoButton));
    {
        QSignalBlocker block(natural_);
        natural_->setChecked(s.bypass);
    }
    play_->setText(s.isConverting ? "Converting…" : s.isPlaying ? "Stop" : "Play in Voice");
    play_->setIcon(s.isPlaying ? themedIcon("media-playback-stop", QStyle::SP_MediaStop)
                               : themedIcon("media-playback-start", QStyle::SP_MediaPlay));
    play_->setEnabled(s.isPlaying || (s.hasClip && !s.isRecording && !s.isConverting));
    audioMenu_->setIcon(s.isExporting ? themedIcon("content-loading", QStyle::SP_BrowserReload)
                                      : themedIcon("document-save-as", QStyle::SP_DialogSaveButton));
    export_->setEnabled(s.hasClip && !s.isRecording && !s.isExporting);
    exportBar_->setVisible(s.isExporting);
    cloneDelay_->setVisible(s.isCloned);
    cloneDelay_->setCurrentIndex(cloneDelay_->findData(rawValue(engine_.cloneLatency())));
    effectDelay_->setVisible(!s.isCloned);
    effectDelay_->setCurrentIndex(effectDelay_->findData(engine_.lowDelay()));
    // While a key decides whether the voice is heard, say which way it is now.
    QString talk = s.isLive && engine_.talk().mode() != TalkMode::always ? engine_.talk().status() : QString();
    status_->setText(talk.isEmpty() ? transportStatus(s) : transportStatus(s) + " " + talk);
    if (s.isLive && !delayTimer_.isActive()) delayTimer_.start();
    if (!s.isLive) delayTimer_.stop();
    refreshDelay();
}

void TransportCard::refreshDelay() {
    const double seconds = engine_.liveDelayEstimate().value_or(0);
    delay_->setText(seconds > 0 ? QString("Delay %1 ms").arg(std::lround(seconds * 1000)) : QString());
    delay_->setToolTip("From your microphone to what you and the call hear");
}

void TransportCard::openAudioFile() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    QString path = QFileDialog::getOpenFileName(window(), "Open Audio File", folder,
                                                "Audio files (*.wav *.flac *.ogg *.opus *.mp3 *.m4a *.aac);;All files (*)");
    if (!path.isEmpty()) engine_.loadClip(path);
}

void TransportCard::exportClip() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    QString suggested = folder + '/' + QFileInfo(engine_.clipURL()).completeBaseName() + " as " + voiceName_ + ".m4a";
    QString path = QFileDialog::getSaveFileName(window(), "Export Clip in This Voice", suggested,
                                                "AAC audio (*.m4a);;FLAC (*.flac);;WAV (*.wav)");
    if (!path.isEmpty()) engine_.exportClip(path);
}

}  // namespace parlova::ui
