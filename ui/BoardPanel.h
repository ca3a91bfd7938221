#pragma once
// The soundboard's page: the entries (a play button, the key, the name, the
// clip's length or the sentence's text and voice), Stop, adding a clip or a
// typed sentence, and the selected entry's name, key, level, ducking, "In my
// voice" switch, place and removal. Below, the typed-speech box: a voice
// picker, Say (Enter says it) and Add to Board. A view over the board's store
// and player; every edit goes to the store, which saves it.
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>
#include <QUuid>
#include <QWidget>

namespace parlova {
class BoardStore;
class CloneLibrary;
class Soundboard;
class VoiceStore;
struct BoardEntry;
}  // namespace parlova

namespace parlova::ui {

class BoardPanel : public QWidget {
    Q_OBJECT
public:
    BoardPanel(BoardStore& store, Soundboard& board, VoiceStore& voices, CloneLibrary& library,
               QWidget* parent = nullptr);

    // Plays the entry that has `key` ("1".."9") and selects its row; false
    // when no entry has it.
    bool playKey(const QString& key);
    // Copies an audio file onto the board; a file that can't be used leaves
    // the board as it was and shows why.
    bool addClip(const QString& path);

    QTreeWidget* list() const { return list_; }
    QUuid currentEntry() const;
    void selectEntry(const QUuid& id);
    QLineEdit* sayBox() const { return sayBox_; }
    QComboBox* speakerPicker() const { return speaker_; }
    QPushButton* sayButton() const { return say_; }
    QPushButton* stopButton() const { return stop_; }
    // What the board does now, or why the last thing didn't work.
    QLabel* message() const { return message_; }
    QLineEdit* nameField() const { return name_; }
    QComboBox* keyPicker() const { return key_; }

private:
    QWidget* makeEditor();
    QWidget* makeSpeech();
    void refreshRows();
    void refreshEditor();
    void refreshSpeakers();
    void refreshMessage();
    void chooseClip();
    void addSentence();
    void say();
    void play(const QUuid& id);
    void removeCurrent();
    void moveCurrent(int step);
    void setKey(const QString& key);
    // Applies `change` to the selected entry and hands it to the store.
    template <typename Change>
    void editCurrent(Change change);
    void showProblem(const QString& sentence);
    QString describe(const BoardEntry& entry) const;

    BoardStore& store_;
    Soundboard& board_;
    VoiceStore& voices_;
    CloneLibrary& library_;
    QString problem_;  // the last sentence of failure, until the next action

    QTreeWidget* list_;
    QPushButton* addClip_;
    QPushButton* stop_;
    QLabel* message_;
    QWidget* editor_;
    QLineEdit* name_;
    QComboBox* key_;
    QDoubleSpinBox* level_;
    QDoubleSpinBox* duck_;
    QCheckBox* inMyVoice_;
    QToolButton* up_;
    QToolButton* down_;
    QToolButton* remove_;
    QLineEdit* sayBox_;
    QComboBox* speaker_;
    QPushButton* say_;
    QPushButton* addSentence_;
};

}  // namespace parlova::ui
