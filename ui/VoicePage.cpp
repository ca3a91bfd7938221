#include "ui/VoicePage.h"

#include "ui/FieldSlider.h"
#include "ui/Icons.h"
#include "voices/VoiceFieldRanges.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QVBoxLayout>

#include <cmath>

namespace parlova::ui {

VoicePage::VoicePage(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    auto* header = new QHBoxLayout;
    emoji_ = new QLabel(this);
    QFont big = emoji_->font();
    big.setPointSizeF(big.pointSizeF() * 1.8);
    emoji_->setFont(big);
    name_ = new QLineEdit(this);
    QFont title = name_->font();
    title.setPointSizeF(title.pointSizeF() * 1.4);
    title.setBold(true);
    name_->setFont(title);
    name_->setFrame(false);
    name_->setAccessibleName("Voice name");
    reset_ = new QPushButton("Reset to Default", this);
    preview_ = new QPushButton(themedIcon("media-playback-start", QStyle::SP_MediaPlay), "Preview", this);
    preview_->setToolTip("Hear a sentence in this voice");
    header->addWidget(emoji_);
    header->addWidget(name_, 1);
    header->addWidget(preview_);
    header->addWidget(reset_);
    layout->addLayout(header);
    caption_ = new QLabel(this);
    caption_->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(caption_);

    // A group goes into the right column once the left one holds half the sliders.
    auto* columns = new QHBoxLayout;
    QVBoxLayout* column[2] = {new QVBoxLayout, new QVBoxLayout};
    for (QVBoxLayout* c : column) columns->addLayout(c, 1);
    layout->addLayout(columns);
    const int fieldCount = int(voiceFieldRanges().size());
    int placed = 0;
    QGroupBox* group = nullptr;
    std::string groupName;
    QVBoxLayout* groupLayout = nullptr;
    for (const auto& field : voiceFieldRanges()) {
        if (!group || groupName != field.group) {
            groupName = field.group;
            // "&" in a title would be taken as a keyboard mnemonic.
            group = new QGroupBox(QString::fromUtf8(field.group).replace("&", "&&"), this);
            groupLayout = new QVBoxLayout(group);
            column[2 * placed >= fieldCount ? 1 : 0]->addWidget(group);
        }
        ++placed;
        if (field.zeroMeansOff) {
            autoPitch_ = new QCheckBox("Auto pitch", group);
            autoPitch_->setToolTip("Steer your voice toward a target pitch instead of shifting it by a fixed amount");
            groupLayout->addWidget(autoPitch_);
            connect(autoPitch_, &QCheckBox::toggled, this, &VoicePage::setAutoPitch);
        }
        auto* slider = new FieldSlider(field, group);
        groupLayout->addWidget(slider);
        sliders_.push_back(slider);
        connect(slider, &FieldSlider::edited, this,
                [this, member = field.member](float value) { editField(member, value); });
    }
    for (QVBoxLayout* c : column) c->addStretch(1);
    pitchLine_ = new QLabel(this);
    layout->addWidget(pitchLine_);
    layout->addStretch(1);

    connect(name_, &QLineEdit::editingFinished, this, [this] {
        QString name = name_->text().trimmed();
        if (name.isEmpty() || name == voice_.name) {
            name_->setText(voice_.name);
            return;
        }
        voice_.name = name;
        emit edited(voice_);
    });
    connect(reset_, &QPushButton::clicked, this, [this] { emit resetRequested(voice_); });
    connect(preview_, &QPushButton::clicked, this, [this] { emit previewRequested(voice_); });
}

FieldSlider* VoicePage::slider(const QString& key) const {
    for (auto* s : sliders_)
        if (key == QLatin1String(s->field().key)) return s;
    return nullptr;
}

void VoicePage::showVoice(const Voice& voice) {
    voice_ = voice;
    emoji_->setText(voice.emoji);
    if (!name_->hasFocus()) name_->setText(voice.name);
    bool starting = voice.presetKey.has_value();
    // Starting voices keep their names so that Reset to Default means something.
    name_->setReadOnly(starting);
    reset_->setVisible(starting && Voice::factory(*voice.presetKey));
    caption_->setText(starting ? "Starting voice · edits are saved automatically"
                               : "Your voice · edits are saved automatically");
    auto factory = starting ? Voice::factory(*voice.presetKey) : std::nullopt;
    for (auto* s : sliders_) {
        s->showValue(voice.*(s->field().member));
        s->setFactoryValue(factory ? std::optional<float>((*factory).*(s->field().member)) : std::nullopt);
    }
    bool autoOn = voice.targetPitch > 0;
    if (autoOn) lastTarget_ = voice.targetPitch;
    {
        QSignalBlocker block(autoPitch_);
        autoPitch_->setChecked(autoOn);
    }
    slider("targetPitch")->setEnabled(autoOn);
    slider("pitch")->setEnabled(!autoOn);  // auto pitch decides the shift itself
    if (autoOn) slider("targetPitch")->showValue(voice.targetPitch);
    else slider("targetPitch")->showValue(lastTarget_);
    updatePitchLine();
}

void VoicePage::editField(float Voice::*member, float value) {
    if (member == &Voice::targetPitch) {
        if (!autoPitch_->isChecked()) return;
        lastTarget_ = value;
    }
    voice_.*member = value;
    updatePitchLine();
    emit edited(voice_);
}

void VoicePage::setAutoPitch(bool on) {
    voice_.targetPitch = on ? lastTarget_ : 0;
    slider("targetPitch")->setEnabled(on);
    updatePitchLine();
    emit edited(voice_);
}

void VoicePage::showDetectedPitch(float hz) {
    detectedPitch_ = hz;
    updatePitchLine();
}

void VoicePage::updatePitchLine() {
    if (detectedPitch_ <= 0) {
        pitchLine_->setText("Your voice: talk live to measure its pitch.");
        return;
    }
    QString heard = QString::asprintf("Your voice: %.0f Hz → ", double(detectedPitch_));
    if (voice_.targetPitch > 0) {
        double semitones = 12 * std::log2(voice_.targetPitch / detectedPitch_);
        pitchLine_->setText(heard + QString::asprintf("target %.0f Hz (%+.1f semitones)", double(voice_.targetPitch), semitones));
    } else {
        pitchLine_->setText(heard + QString::asprintf("shifting %+.1f semitones", voice_.pitch / 100.0 + 0.0));
    }
}

}  // namespace parlova::ui
