#include "ui/CallsPanel.h"

#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "engine/VoiceEngine.h"
#include "ui/Icons.h"

#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace parlova::ui {

namespace {

const QString kUnavailableDevice = "Unavailable device";

QLabel* wrappingLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    return label;
}

}  // namespace

CallsPanel::CallsPanel(VoiceEngine& engine, AudioDeviceList& devices, VirtualMicSetup& setup, QWidget* parent)
    : QWidget(parent), engine_(engine), devices_(devices), setup_(setup) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    auto* switches = new QHBoxLayout;
    callMode_ = new QCheckBox("Use in calls", this);
    callMode_->setIcon(themedIcon("call-start", QStyle::SP_DialogYesButton));
    hearMyself_ = new QCheckBox("Hear myself", this);
    help_ = new QPushButton("How to set up…", this);
    help_->setFlat(true);
    switches->addWidget(callMode_);
    switches->addWidget(hearMyself_);
    switches->addStretch(1);
    switches->addWidget(help_);
    layout->addLayout(switches);

    explanation_ = wrappingLabel(this);
    installPrompt_ = wrappingLabel(this);
    installPrompt_->setText(
        "To sound like this in Discord, WhatsApp or Zoom, install the app's virtual microphone, “Parlova Mic”. "
        "No password is needed, and other audio pauses for a moment while it loads.");
    formerNotice_ = wrappingLabel(this);
    formerNotice_->setText(
        "This is the virtual mic from when the app was called Tovix Voice Changer. It works the same; updating "
        "renames it to “Parlova Mic”.");
    // Something else moved the system microphone during a call: say so, and
    // offer to take it back (never done unasked).
    elsewhereRow_ = new QWidget(this);
    auto* elsewhereLayout = new QHBoxLayout(elsewhereRow_);
    elsewhereLayout->setContentsMargins(0, 0, 0, 0);
    auto* warning = new QLabel(elsewhereRow_);
    warning->setPixmap(themedIcon("dialog-warning", QStyle::SP_MessageBoxWarning).pixmap(16, 16));
    elsewhere_ = wrappingLabel(elsewhereRow_);
    takeBack_ = new QPushButton("Use Parlova Mic", elsewhereRow_);
    takeBack_->setToolTip("Make Parlova Mic the system microphone again, so call apps hear this voice");
    elsewhereLayout->addWidget(warning);
    elsewhereLayout->addWidget(elsewhere_, 1);
    elsewhereLayout->addWidget(takeBack_);
    layout->addWidget(elsewhereRow_);
    layout->addWidget(explanation_);
    layout->addWidget(installPrompt_);
    layout->addWidget(formerNotice_);

    auto* buttons = new QHBoxLayout;
    install_ = new QPushButton(themedIcon("go-down", QStyle::SP_ArrowDown), "Install Virtual Mic", this);
    waitingRow_ = new QWidget(this);
    auto* waitingLayout = new QHBoxLayout(waitingRow_);
    waitingLayout->setContentsMargins(0, 0, 0, 0);
    auto* spinner = new QProgressBar(waitingRow_);
    spinner->setRange(0, 0);  // busy indicator
    spinner->setMaximumWidth(60);
    spinner->setMaximumHeight(10);
    waiting_ = new QLabel("Waiting for the sound server to load it…", waitingRow_);
    waitingLayout->addWidget(spinner);
    waitingLayout->addWidget(waiting_);
    update_ = new QPushButton("Update Virtual Mic…", this);
    remove_ = new QPushButton("Remove Virtual Mic…", this);
    remove_->setFlat(true);
    buttons->addWidget(install_);
    buttons->addWidget(waitingRow_);
    buttons->addWidget(update_);
    buttons->addStretch(1);
    buttons->addWidget(remove_);
    layout->addLayout(buttons);

    auto* pickers = new QGridLayout;
    inputPicker_ = new QComboBox(this);
    outputPicker_ = new QComboBox(this);
    inputPicker_->setAccessibleName("Input");
    outputPicker_->setAccessibleName("Output");
    auto* inputLabel = new QLabel("Input", this);
    auto* outputLabel = new QLabel("Output", this);
    inputLabel->setBuddy(inputPicker_);
    outputLabel->setBuddy(outputPicker_);
    auto* speaker = new QLabel(this);
    speaker->setPixmap(themedIcon("audio-volume-high", QStyle::SP_MediaVolume).pixmap(16, 16));
    pickers->addWidget(inputLabel, 0, 0);
    pickers->addWidget(inputPicker_, 0, 1);
    auto* outputRow = new QHBoxLayout;
    outputRow->addWidget(speaker);
    outputRow->addWidget(outputLabel);
    pickers->addLayout(outputRow, 0, 2);
    pickers->addWidget(outputPicker_, 0, 3);
    pickers->setColumnStretch(1, 1);
    pickers->setColumnStretch(3, 1);
    layout->addLayout(pickers);

    connect(callMode_, &QCheckBox::toggled, &engine_, [this](bool on) { engine_.setCallMode(on); });
    connect(hearMyself_, &QCheckBox::toggled, &engine_, [this](bool on) { engine_.setHearMyself(on); });
    connect(help_, &QPushButton::clicked, this, &CallsPanel::showHelp);
    connect(takeBack_, &QPushButton::clicked, &engine_, [this] { engine_.takeBackSystemMic(); });
    connect(install_, &QPushButton::clicked, &setup_, &VirtualMicSetup::install);
    connect(update_, &QPushButton::clicked, &setup_, &VirtualMicSetup::install);
    connect(remove_, &QPushButton::clicked, this, &CallsPanel::removeMic);
    connect(inputPicker_, &QComboBox::activated, this, [this](int index) {
        QString uid = inputPicker_->itemData(index).toString();
        if (uid != engine_.inputUID()) engine_.setInputUID(uid);
    });
    connect(outputPicker_, &QComboBox::activated, this, [this](int index) {
        QString uid = outputPicker_->itemData(index).toString();
        if (uid != engine_.outputUID()) engine_.setOutputUID(uid);
    });

    for (auto signal : {&VoiceEngine::callModeChanged, &VoiceEngine::hearMyselfChanged, &VoiceEngine::devicesChosen,
                        &VoiceEngine::systemMicElsewhereChanged})
        connect(&engine_, signal, this, &CallsPanel::refresh);
    connect(&devices_, &AudioDeviceList::inputsChanged, this, &CallsPanel::refresh);
    connect(&devices_, &AudioDeviceList::outputsChanged, this, &CallsPanel::refresh);
    connect(&setup_, &VirtualMicSetup::installingChanged, this, &CallsPanel::refresh);
    refresh();
}

QString CallsPanel::callHelpHtml(const QString& cableName) {
    QString cable = cableName.toHtmlEscaped();
    QStringList steps = {
        "1. Turn on <b>Use in calls</b>, pick a voice, and press <b>Talk Live</b>.",
        "2. <b>Discord:</b> Settings › Voice &amp; Video › Input Device: <b>" + cable +
            "</b> (or Default). Turn off Noise Suppression and Echo Cancellation there, or Discord may filter the "
            "effect out.",
        "3. <b>WhatsApp, FaceTime, Zoom:</b> they use the system microphone, which is now " + cable +
            ". In Zoom you can also pick it under Settings › Audio › Microphone.",
        "4. Wear headphones, and use <b>Natural voice</b> to talk normally without hanging up.",
        "When you stop Live, your computer's microphone switches back to your real mic.",
    };
    return "<p>" + steps.join("</p><p>") + "</p>";
}

void CallsPanel::refresh() {
    auto cable = devices_.virtualCable();
    bool installing = setup_.installing();
    QString cableName = cable ? cable->name : deviceRules::kVirtualMicName;
    bool former = cable && cable->name == deviceRules::kFormerVirtualMicName;
    {
        QSignalBlocker a(callMode_), b(hearMyself_);
        callMode_->setChecked(engine_.callMode());
        hearMyself_->setChecked(engine_.hearMyself());
    }
    // Call mode needs the virtual mic; switching it off stays possible.
    callMode_->setEnabled(cable.has_value() || engine_.callMode());
    hearMyself_->setEnabled(engine_.callMode());
    if (cable) {
        QString text = cableName +
                       " becomes your computer's microphone and carries this voice; your real mic comes back when "
                       "you stop.";
        if (engine_.hearMyself())
            text += " You hear yourself on the Output device, if it's headphones (not on speakers, which would echo "
                    "into the call).";
        explanation_->setText(text);
    }
    explanation_->setVisible(cable.has_value());
    const QString elsewhere = engine_.systemMicElsewhere();
    if (!elsewhere.isEmpty()) elsewhere_->setText(systemMicElsewhereSentence(elsewhere));
    elsewhereRow_->setVisible(!elsewhere.isEmpty());
    installPrompt_->setVisible(!cable);
    install_->setVisible(!cable && !installing);
    waitingRow_->setVisible(installing);
    formerNotice_->setVisible(former);
    update_->setVisible(former && !installing);
    remove_->setVisible(cable.has_value() && !installing);
    fillPicker(inputPicker_, true);
    fillPicker(outputPicker_, false);
}

void CallsPanel::fillPicker(QComboBox* picker, bool inputs) {
    QSignalBlocker block(picker);
    QString chosen = inputs ? engine_.inputUID() : engine_.outputUID();
    picker->clear();
    picker->addItem("System Default", QString());
    bool found = chosen.isEmpty();
    for (const auto& device : inputs ? devices_.inputs() : devices_.outputs()) {
        // The virtual mic is where the voice goes, not a microphone to speak into.
        if (inputs && deviceRules::isVirtualMicName(device.name)) continue;
        picker->addItem(device.name, device.uid);
        found = found || device.uid == chosen;
    }
    if (!found) picker->addItem(kUnavailableDevice, chosen);
    picker->setCurrentIndex(picker->findData(chosen));
}

void CallsPanel::showHelp() {
    auto* popover = new QFrame(this, Qt::Popup);
    popover->setAttribute(Qt::WA_DeleteOnClose);
    popover->setFrameShape(QFrame::StyledPanel);
    auto* layout = new QVBoxLayout(popover);
    auto cable = devices_.virtualCable();
    auto* text = new QLabel(callHelpHtml(cable ? cable->name : deviceRules::kVirtualMicName), popover);
    text->setTextFormat(Qt::RichText);
    text->setWordWrap(true);
    text->setMinimumWidth(380);
    layout->addWidget(text);
    popover->adjustSize();
    popover->move(help_->mapToGlobal(QPoint(help_->width() - popover->width(), help_->height())));
    popover->show();
}

void CallsPanel::removeMic() {
    auto answer = QMessageBox::question(window(), "Remove Virtual Mic",
                                        "Remove “Parlova Mic”? Call apps that use it will lose their microphone.");
    if (answer != QMessageBox::Yes) return;
    // The real microphone goes back before the device disappears.
    if (engine_.callMode()) engine_.setCallMode(false);
    setup_.remove();
}

}  // namespace parlova::ui
