#include "ui/MicPanel.h"

#include "control/HandsFree.h"
#include "engine/VoiceEngine.h"

#include <QHBoxLayout>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <cmath>

namespace parlova::ui {

MicPanel::MicPanel(VoiceEngine& engine, HandsFree* handsFree, QWidget* parent)
    : QWidget(parent), engine_(engine), handsFree_(handsFree) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* row = new QHBoxLayout;
    cleanMic_ = new QCheckBox("Clean up my mic", this);
    cleanMic_->setToolTip("Takes out room noise and key clicks and closes a gate between words, before the voice");
    gate_ = new QSlider(Qt::Horizontal, this);
    gate_->setRange(int(CleanMicSetting::kMinGateDb), int(CleanMicSetting::kMaxGateDb));
    gate_->setMaximumWidth(160);
    gate_->setAccessibleName("Noise gate threshold");
    gate_->setToolTip("Sound quieter than this counts as room noise between words");
    gateValue_ = new QLabel(this);
    gateValue_->setMinimumWidth(60);
    talkMode_ = new QComboBox(this);
    talkMode_->addItem("Always on", int(TalkMode::always));
    talkMode_->addItem("Push to talk", int(TalkMode::pushToTalk));
    talkMode_->addItem("Push to mute", int(TalkMode::pushToMute));
    talkMode_->setAccessibleName("When the voice is heard");
    talkMode_->setToolTip("When call apps and you hear the voice");
    row->addWidget(cleanMic_);
    row->addWidget(gate_);
    row->addWidget(gateValue_);
    row->addStretch(1);
    row->addWidget(new QLabel("Voice on:", this));
    row->addWidget(talkMode_);
    layout->addLayout(row);
    hint_ = new QLabel(this);
    hint_->setWordWrap(true);
    hint_->setForegroundRole(QPalette::PlaceholderText);
    hint_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(hint_);

    CleanMicSetting& clean = engine_.cleanMic();
    connect(cleanMic_, &QCheckBox::toggled, &clean, [&clean](bool on) { clean.setEnabled(on); });
    connect(gate_, &QSlider::valueChanged, &clean, [&clean](int db) { clean.setGateDb(float(db)); });
    connect(talkMode_, &QComboBox::activated, this,
            [this] { engine_.talk().setMode(TalkMode(talkMode_->currentData().toInt())); });
    connect(&clean, &CleanMicSetting::enabledChanged, this, &MicPanel::refresh);
    connect(&clean, &CleanMicSetting::gateDbChanged, this, &MicPanel::refresh);
    connect(&engine_.talk(), &TalkControl::talkModeChanged, this, &MicPanel::refresh);
    if (handsFree_) connect(handsFree_, &HandsFree::shortcutsChanged, this, &MicPanel::refresh);
    refresh();
}

void MicPanel::refresh() {
    const CleanMicSetting& clean = engine_.cleanMic();
    {
        QSignalBlocker a(cleanMic_), b(gate_), c(talkMode_);
        cleanMic_->setChecked(clean.enabled());
        gate_->setValue(int(std::lround(clean.gateDb())));
        talkMode_->setCurrentIndex(talkMode_->findData(int(engine_.talk().mode())));
    }
    gate_->setEnabled(clean.enabled());
    gateValue_->setEnabled(clean.enabled());
    gateValue_->setText(QString("%1 dB").arg(std::lround(clean.gateDb())));
    // Where the key comes from matters only once a key decides.
    const bool keyed = engine_.talk().mode() != TalkMode::always;
    hint_->setVisible(keyed);
    hint_->setText(handsFree_ ? handsFree_->shortcutHint()
                              : "Bind 'parlova-cli control ptt press' and '… release' to a key in your desktop's "
                                "keyboard settings.");
}

}  // namespace parlova::ui
