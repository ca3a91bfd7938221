#include "ui/BoardPanel.h"

#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "cloning/CloneLibrary.h"
#include "common/VoiceEngineError.h"
#include "ui/Icons.h"
#include "voices/VoiceStore.h"

#include <QFileDialog>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QMessageBox>
#include <QShortcut>
#include <QSignalBlocker>
#include <QStandardPaths>
#include <QVBoxLayout>

#include <algorithm>

namespace parlova::ui {

namespace {

enum Column { playColumn, keyColumn, nameColumn, whatColumn };
constexpr int kEntryRole = Qt::UserRole;
constexpr int kCloneRole = Qt::UserRole + 1;

QToolButton* iconButton(const char* icon, QStyle::StandardPixmap fallback, const QString& tip, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(themedIcon(icon, fallback));
    button->setToolTip(tip);
    button->setAccessibleName(tip);
    button->setAutoRaise(true);
    return button;
}

QDoubleSpinBox* decibels(double minimum, double maximum, const QString& name, QWidget* parent) {
    auto* box = new QDoubleSpinBox(parent);
    box->setRange(minimum, maximum);
    box->setDecimals(0);
    box->setSingleStep(1);
    box->setSuffix(" dB");
    box->setAccessibleName(name);
    // Typing a number edits the entry once, when it is finished.
    box->setKeyboardTracking(false);
    return box;
}

}  // namespace

BoardPanel::BoardPanel(BoardStore& store, Soundboard& board, VoiceStore& voices, CloneLibrary& library,
                       QWidget* parent)
    : QWidget(parent), store_(store), board_(board), voices_(voices), library_(library) {
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    addClip_ = new QPushButton(themedIcon("list-add", QStyle::SP_FileDialogNewFolder), "Add Clip…", this);
    addClip_->setToolTip("Copy an audio file onto the board");
    stop_ = new QPushButton(themedIcon("media-playback-stop", QStyle::SP_MediaStop), "Stop", this);
    stop_->setToolTip("Stop every sound of the board");
    top->addWidget(addClip_);
    top->addStretch(1);
    top->addWidget(stop_);
    layout->addLayout(top);

    list_ = new QTreeWidget(this);
    list_->setColumnCount(4);
    list_->setHeaderLabels({"", "Key", "Name", "Plays"});
    list_->setRootIsDecorated(false);
    list_->setAccessibleName("Board entries");
    list_->header()->setSectionResizeMode(playColumn, QHeaderView::ResizeToContents);
    list_->header()->setSectionResizeMode(keyColumn, QHeaderView::ResizeToContents);
    list_->header()->setSectionResizeMode(nameColumn, QHeaderView::Interactive);
    list_->header()->setStretchLastSection(true);
    list_->setColumnWidth(nameColumn, 180);
    layout->addWidget(list_, 1);
    message_ = new QLabel(this);
    message_->setWordWrap(true);
    message_->setAccessibleName("Board status");
    layout->addWidget(message_);
    layout->addWidget(makeEditor());
    layout->addWidget(makeSpeech());

    connect(addClip_, &QPushButton::clicked, this, &BoardPanel::chooseClip);
    connect(stop_, &QPushButton::clicked, this, [this] {
        problem_.clear();
        board_.stop();
        refreshMessage();
    });
    connect(list_, &QTreeWidget::currentItemChanged, this, &BoardPanel::refreshEditor);
    connect(list_, &QTreeWidget::itemActivated, this,
            [this](QTreeWidgetItem* item) { play(item->data(nameColumn, kEntryRole).toUuid()); });
    auto* removeKey = new QShortcut(QKeySequence::Delete, list_, nullptr, nullptr, Qt::WidgetShortcut);
    connect(removeKey, &QShortcut::activated, this, &BoardPanel::removeCurrent);
    connect(&store_, &BoardStore::entriesChanged, this, &BoardPanel::refreshRows);
    connect(&voices_, &VoiceStore::voicesChanged, this, &BoardPanel::refreshSpeakers);
    connect(&library_, &CloneLibrary::voicesChanged, this, &BoardPanel::refreshSpeakers);
    connect(&voices_, &VoiceStore::voicesChanged, this, &BoardPanel::refreshRows);
    connect(&library_, &CloneLibrary::voicesChanged, this, &BoardPanel::refreshRows);
    connect(&board_, &Soundboard::statusChanged, this, &BoardPanel::refreshMessage);
    connect(&board_, &Soundboard::playingChanged, this, &BoardPanel::refreshMessage);
    connect(&board_, &Soundboard::failed, this, &BoardPanel::showProblem);
    refreshSpeakers();
    refreshRows();
    refreshMessage();
}

template <typename Change>
void BoardPanel::editCurrent(Change change) {
    auto entry = store_.entry(currentEntry());
    if (!entry) return;
    change(*entry);
    store_.update(*entry);
}

QWidget* BoardPanel::makeEditor() {
    editor_ = new QGroupBox("Selected entry", this);
    auto* layout = new QVBoxLayout(editor_);
    auto* first = new QHBoxLayout;
    name_ = new QLineEdit(editor_);
    name_->setAccessibleName("Entry name");
    name_->setPlaceholderText("Name");
    key_ = new QComboBox(editor_);
    key_->setAccessibleName("Key");
    key_->setToolTip("Plays the entry while the Parlova window has the focus");
    key_->addItem("No key", QString());
    for (int n = 1; n <= BoardStore::kDefaultKeys; ++n) key_->addItem(QString("Key %1").arg(n), QString::number(n));
    up_ = iconButton("go-up", QStyle::SP_ArrowUp, "Move up", editor_);
    down_ = iconButton("go-down", QStyle::SP_ArrowDown, "Move down", editor_);
    remove_ = iconButton("edit-delete", QStyle::SP_TrashIcon, "Remove from the board", editor_);
    first->addWidget(name_, 1);
    first->addWidget(key_);
    first->addWidget(up_);
    first->addWidget(down_);
    first->addWidget(remove_);
    layout->addLayout(first);

    auto* second = new QHBoxLayout;
    level_ = decibels(-30, 12, "Level", editor_);
    level_->setToolTip("How loud the entry plays into the call");
    duck_ = decibels(-40, 0, "Lower my voice by", editor_);
    duck_->setToolTip("How far your live voice is lowered while the entry plays; 0 dB leaves it as it is");
    inMyVoice_ = new QCheckBox("In my voice", editor_);
    inMyVoice_->setToolTip("Play the clip through the selected voice instead of as it is");
    second->addWidget(new QLabel("Level", editor_));
    second->addWidget(level_);
    second->addSpacing(12);
    second->addWidget(new QLabel("Lower my voice by", editor_));
    second->addWidget(duck_);
    second->addSpacing(12);
    second->addWidget(inMyVoice_);
    second->addStretch(1);
    layout->addLayout(second);

    connect(name_, &QLineEdit::editingFinished, this, [this] {
        const auto entry = store_.entry(currentEntry());
        const QString name = name_->text().trimmed();
        if (!entry || name.isEmpty() || name == entry->name) {
            if (entry) name_->setText(entry->name);
            return;
        }
        store_.rename(entry->id, name);
    });
    connect(key_, &QComboBox::activated, this, [this] { setKey(key_->currentData().toString()); });
    connect(level_, &QDoubleSpinBox::valueChanged, this,
            [this](double db) { editCurrent([db](BoardEntry& entry) { entry.levelDb = db; }); });
    connect(duck_, &QDoubleSpinBox::valueChanged, this,
            [this](double db) { editCurrent([db](BoardEntry& entry) { entry.duckDb = db; }); });
    connect(inMyVoice_, &QCheckBox::toggled, this,
            [this](bool on) { editCurrent([on](BoardEntry& entry) { entry.inMyVoice = on; }); });
    connect(up_, &QToolButton::clicked, this, [this] { moveCurrent(-1); });
    connect(down_, &QToolButton::clicked, this, [this] { moveCurrent(1); });
    connect(remove_, &QToolButton::clicked, this, &BoardPanel::removeCurrent);
    return editor_;
}

QWidget* BoardPanel::makeSpeech() {
    auto* box = new QWidget(this);
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(0, 6, 0, 0);
    sayBox_ = new QLineEdit(box);
    sayBox_->setPlaceholderText("Type something to say in the call");
    sayBox_->setAccessibleName("Text to say");
    speaker_ = new QComboBox(box);
    speaker_->setAccessibleName("Voice that says it");
    speaker_->setToolTip("The voice that says the text");
    say_ = new QPushButton(themedIcon("media-playback-start", QStyle::SP_MediaPlay), "Say", box);
    say_->setToolTip("Say the text into the call now (Enter)");
    addSentence_ = new QPushButton(themedIcon("list-add", QStyle::SP_FileDialogNewFolder), "Add to Board", box);
    addSentence_->setToolTip("Keep the text on the board, said by this voice");
    row->addWidget(sayBox_, 1);
    row->addWidget(speaker_);
    row->addWidget(say_);
    row->addWidget(addSentence_);
    connect(sayBox_, &QLineEdit::returnPressed, this, &BoardPanel::say);
    connect(say_, &QPushButton::clicked, this, &BoardPanel::say);
    connect(addSentence_, &QPushButton::clicked, this, &BoardPanel::addSentence);
    return box;
}

QUuid BoardPanel::currentEntry() const {
    QTreeWidgetItem* item = list_->currentItem();
    return item ? item->data(nameColumn, kEntryRole).toUuid() : QUuid();
}

void BoardPanel::selectEntry(const QUuid& id) {
    for (int i = 0; i < list_->topLevelItemCount(); ++i) {
        QTreeWidgetItem* item = list_->topLevelItem(i);
        if (item->data(nameColumn, kEntryRole).toUuid() == id) list_->setCurrentItem(item);
    }
}

QString BoardPanel::describe(const BoardEntry& entry) const {
    if (entry.kind == BoardEntry::Kind::clip)
        return QString::asprintf("Clip · %.1f s", entry.clipSeconds) + (entry.inMyVoice ? " · in my voice" : "");
    QString speaker = "the selected voice";
    if (!entry.cloneID.isNull()) {
        if (auto clone = library_.voice(entry.cloneID)) speaker = clone->name;
    } else if (!entry.voiceID.isNull()) {
        for (const Voice& voice : voices_.voices())
            if (voice.id == entry.voiceID) speaker = voice.name;
    }
    return QString("\u201c%1\u201d in %2").arg(entry.text, speaker);
}

void BoardPanel::refreshRows() {
    const QUuid current = currentEntry();
    {
        QSignalBlocker quiet(list_);
        list_->clear();
        for (const BoardEntry& entry : store_.entries()) {
            auto* item = new QTreeWidgetItem(list_);
            item->setText(keyColumn, entry.key);
            item->setText(nameColumn, entry.name);
            item->setData(nameColumn, kEntryRole, entry.id);
            item->setText(whatColumn, describe(entry));
            item->setToolTip(whatColumn, describe(entry));
            auto* play = iconButton("media-playback-start", QStyle::SP_MediaPlay, "Play " + entry.name, list_);
            connect(play, &QToolButton::clicked, this, [this, id = entry.id] { this->play(id); });
            list_->setItemWidget(item, playColumn, play);
        }
        if (!current.isNull()) selectEntry(current);
        if (!list_->currentItem() && list_->topLevelItemCount() > 0) list_->setCurrentItem(list_->topLevelItem(0));
    }
    refreshEditor();
    refreshMessage();
}

void BoardPanel::refreshEditor() {
    const auto entry = store_.entry(currentEntry());
    editor_->setEnabled(entry.has_value());
    QSignalBlocker a(key_), b(level_), c(duck_), d(inMyVoice_);
    if (!entry) {
        name_->clear();
        key_->setCurrentIndex(0);
        inMyVoice_->setVisible(false);
        return;
    }
    // The user's typing survives the board changing underneath.
    if (!name_->hasFocus()) name_->setText(entry->name);
    key_->setCurrentIndex(std::max(0, key_->findData(entry->key)));
    level_->setValue(entry->levelDb);
    duck_->setValue(entry->duckDb);
    inMyVoice_->setVisible(entry->kind == BoardEntry::Kind::clip);
    inMyVoice_->setChecked(entry->inMyVoice);
    const int index = list_->indexOfTopLevelItem(list_->currentItem());
    up_->setEnabled(index > 0);
    down_->setEnabled(index + 1 < list_->topLevelItemCount());
}

void BoardPanel::refreshSpeakers() {
    const QVariant voice = speaker_->currentData(kEntryRole), clone = speaker_->currentData(kCloneRole);
    QSignalBlocker quiet(speaker_);
    speaker_->clear();
    speaker_->addItem("Selected voice");
    for (const Voice& v : voices_.voices()) {
        speaker_->addItem(v.emoji.isEmpty() ? v.name : v.emoji + "  " + v.name);
        speaker_->setItemData(speaker_->count() - 1, v.id, kEntryRole);
    }
    if (!library_.voices().isEmpty()) speaker_->insertSeparator(speaker_->count());
    for (const ClonedVoice& v : library_.voices()) {
        speaker_->addItem(v.name + " (cloned)");
        speaker_->setItemData(speaker_->count() - 1, v.id, kCloneRole);
    }
    // The voice picked before, where it still exists; else the selected voice.
    speaker_->setCurrentIndex(0);
    for (int i = 1; i < speaker_->count(); ++i)
        if ((voice.isValid() && speaker_->itemData(i, kEntryRole) == voice) ||
            (clone.isValid() && speaker_->itemData(i, kCloneRole) == clone))
            speaker_->setCurrentIndex(i);
}

void BoardPanel::refreshMessage() {
    stop_->setEnabled(board_.isPlaying() || board_.isMaking());
    if (!problem_.isEmpty())
        message_->setText("\u26a0 " + problem_);
    else if (!board_.status().isEmpty())
        message_->setText(board_.status());
    else if (store_.entries().isEmpty())
        message_->setText("The board is empty. Add a clip, or type a sentence below and add it to the board.");
    else
        message_->setText("Press an entry's play button, or its key while the window has the focus.");
}

void BoardPanel::showProblem(const QString& sentence) {
    problem_ = sentence;
    refreshMessage();
}

void BoardPanel::chooseClip() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    const QString path = QFileDialog::getOpenFileName(
        window(), "Add Clip", folder, "Audio files (*.wav *.flac *.ogg *.opus *.mp3 *.m4a *.aac);;All files (*)");
    if (!path.isEmpty()) addClip(path);
}

bool BoardPanel::addClip(const QString& path) {
    try {
        const BoardEntry entry = store_.addClip(path);
        problem_.clear();
        selectEntry(entry.id);
        refreshMessage();
        return true;
    } catch (const VoiceEngineError& error) {
        showProblem(QString::fromStdString(error.errorDescription()));
        return false;
    }
}

void BoardPanel::addSentence() {
    const QString text = sayBox_->text().trimmed();
    if (text.isEmpty()) {
        showProblem("Type something to say.");
        return;
    }
    problem_.clear();
    const BoardEntry entry = store_.addSpeech(text, speaker_->currentData(kEntryRole).toUuid(),
                                              speaker_->currentData(kCloneRole).toUuid());
    selectEntry(entry.id);
    refreshMessage();
}

void BoardPanel::say() {
    const QString text = sayBox_->text().trimmed();
    if (text.isEmpty()) {
        showProblem("Type something to say.");
        return;
    }
    problem_.clear();
    refreshMessage();
    // A refusal comes back through failed(). The text stays, selected, so
    // Enter says it again and typing replaces it.
    if (board_.say(text, {speaker_->currentData(kEntryRole).toUuid(), speaker_->currentData(kCloneRole).toUuid()}))
        sayBox_->selectAll();
}

void BoardPanel::play(const QUuid& id) {
    problem_.clear();
    refreshMessage();
    board_.play(id);
}

bool BoardPanel::playKey(const QString& key) {
    for (const BoardEntry& entry : store_.entries()) {
        if (entry.key != key) continue;
        selectEntry(entry.id);
        play(entry.id);
        return true;
    }
    return false;
}

void BoardPanel::setKey(const QString& key) {
    const QUuid id = currentEntry();
    // A key plays one entry: the one that had it gives it up.
    if (!key.isEmpty())
        for (BoardEntry other : store_.entries())
            if (other.key == key && other.id != id) {
                other.key.clear();
                store_.update(other);
            }
    editCurrent([&key](BoardEntry& entry) { entry.key = key; });
}

void BoardPanel::moveCurrent(int step) {
    const QUuid id = currentEntry();
    const int index = list_->indexOfTopLevelItem(list_->currentItem());
    if (id.isNull() || index < 0) return;
    store_.move(id, index + step);
}

void BoardPanel::removeCurrent() {
    const auto entry = store_.entry(currentEntry());
    if (!entry) return;
    auto answer = QMessageBox::question(
        this, "Remove from Board",
        QString("Remove \u201c%1\u201d from the board? This can't be undone.").arg(entry->name),
        QMessageBox::Cancel | QMessageBox::Yes, QMessageBox::Cancel);
    if (answer == QMessageBox::Yes) store_.remove(entry->id);
}

}  // namespace parlova::ui
