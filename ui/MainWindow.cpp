#include "ui/MainWindow.h"

#include "board/Soundboard.h"
#include "cloning/CloneLibrary.h"
#include "cloning/VoiceCloner.h"
#include "control/VoiceSelection.h"
#include "engine/VoiceEngine.h"
#include "ui/BoardPanel.h"
#include "ui/CallsPanel.h"
#include "ui/ClonePage.h"
#include "ui/MicPanel.h"
#include "ui/Icons.h"
#include "ui/Summaries.h"
#include "ui/TransportCard.h"
#include "ui/VoicePage.h"
#include "voices/VoiceStore.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QScrollArea>
#include <QSplitter>
#include <QToolButton>
#include <QVBoxLayout>

namespace parlova::ui {

namespace {

QLabel* makeLabel(const QString& text, QWidget* parent, double scale = 1.0, bool bold = false) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setBold(bold);
    label->setFont(font);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    return label;
}

// The desktop's microphone privacy settings: GNOME's panel where it exists,
// else KDE's, else the sound mixer where a blocked application can be seen.
void openPrivacySettings() {
    if (QProcess::startDetached("gnome-control-center", {"privacy"})) return;
    if (QProcess::startDetached("systemsettings", {"kcm_pulseaudio"})) return;
    QProcess::startDetached("pavucontrol", {"--tab=4"});
}

}  // namespace

MainWindow::MainWindow(AppModel model, QWidget* parent) : QMainWindow(parent), model_(model) {
    setWindowTitle("Parlova");
    setWindowIcon(appIcon());
    setMinimumSize(760, 560);
    // Tall enough for a voice's page above the controls, within the screen's room.
    QSize room = screen() ? screen()->availableSize() * 0.9 : defaultSize();
    resize(defaultSize().boundedTo(room));

    auto* splitter = new QSplitter(this);
    splitter->setChildrenCollapsible(false);
    splitter->addWidget(makeSidebarColumn());

    auto* right = new QWidget(splitter);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 6, 0, 0);
    detail_ = new QStackedWidget(right);
    placeholder_ = makePlaceholder();
    voicePage_ = new VoicePage;
    // Scrolls only where the screen is too small for the window's usual size.
    auto* scroll = new QScrollArea;
    scroll->setWidget(voicePage_);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    voiceScroll_ = scroll;
    clonePage_ = new ClonePage(model_.library, model_.cloner, model_.engine, model_.settings);
    auto* cloneScroll = new QScrollArea;
    cloneScroll->setWidget(clonePage_);
    cloneScroll->setWidgetResizable(true);
    cloneScroll->setFrameShape(QFrame::NoFrame);
    cloneScroll_ = cloneScroll;
    micDenied_ = makeMicDeniedScreen();
    detail_->addWidget(placeholder_);
    detail_->addWidget(voiceScroll_);
    detail_->addWidget(cloneScroll_);
    detail_->addWidget(micDenied_);
    sections_ = new QTabWidget(right);
    sections_->setDocumentMode(true);
    sections_->addTab(detail_, "Voice");
    if (model_.board && model_.soundboard) {
        boardPanel_ = new BoardPanel(*model_.board, *model_.soundboard, model_.store, model_.library);
        sections_->addTab(boardPanel_, "Board");
    }
    callsPage_ = makeCallsPage();
    sections_->addTab(callsPage_, "Calls");
    rightLayout->addWidget(sections_, 1);
    auto* card = new QFrame(right);
    card->setFrameShape(QFrame::StyledPanel);
    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(8, 6, 8, 6);
    transport_ = new TransportCard(model_.engine, card);
    cardLayout->addWidget(transport_);
    rightLayout->addWidget(card);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({250, 730});
    setCentralWidget(splitter);

    makeMenus();
    makeBoardKeys();

    connect(sidebar_, &Sidebar::selectionChangedTo, this, &MainWindow::selectionChanged);
    connect(sidebar_, &Sidebar::duplicateRequested, this, [this](const QUuid& id) {
        if (const Voice* voice = voiceWithId(id)) model_.store.duplicate(*voice);
    });
    connect(sidebar_, &Sidebar::resetRequested, this, [this](const QUuid& id) {
        if (const Voice* voice = voiceWithId(id)) model_.store.reset(*voice);
    });
    connect(sidebar_, &Sidebar::deleteRequested, this, [this](RowKind kind, const QUuid& id) {
        if (kind == RowKind::voice) deleteVoice(id);
        else deleteClone(id);
    });
    connect(voicePage_, &VoicePage::edited, this, &MainWindow::voiceEdited);
    connect(voicePage_, &VoicePage::resetRequested, this, [this](const Voice& voice) { model_.store.reset(voice); });
    connect(&model_.store, &VoiceStore::voicesChanged, this, &MainWindow::refreshRows);
    connect(&model_.library, &CloneLibrary::voicesChanged, this, &MainWindow::refreshRows);
    connect(&model_.cloner, &VoiceCloner::errorMessageChanged, this, &MainWindow::showError);
    connect(&model_.engine, &VoiceEngine::detectedPitchChanged, this, [this] {
        voicePage_->showDetectedPitch(model_.engine.detectedPitch());
        transport_->showDetectedPitch(model_.engine.detectedPitch());
    });
    voicePage_->previewButton()->setVisible(model_.soundboard);
    if (model_.soundboard)
        connect(voicePage_, &VoicePage::previewRequested, model_.soundboard, &Soundboard::previewVoice);
    connect(&model_.engine, &VoiceEngine::errorMessageChanged, this, &MainWindow::showError);
    connect(&model_.engine, &VoiceEngine::micDeniedChanged, this, &MainWindow::refreshDetail);
    for (auto signal : {&VoiceEngine::liveStateChanged, &VoiceEngine::recordingChanged, &VoiceEngine::playingChanged,
                        &VoiceEngine::clipChanged, &VoiceEngine::isExportingChanged, &VoiceEngine::isStartingLiveChanged})
        connect(&model_.engine, signal, this, &MainWindow::refreshMenu);

    // A voice selected from anywhere (the tray, a shortcut, the control
    // channel) shows here as if clicked.
    connect(&model_.selection, &VoiceSelection::changed, this, &MainWindow::followSelection);

    refreshRows();
    // Start on the voice already selected, else the one the engine carries, else the first one.
    if (model_.selection.current())
        followSelection();
    else if (!selectVoiceNamed(model_.engine.voice().name) && !model_.store.voices().empty())
        sidebar_->select(SidebarSelection{RowKind::voice, model_.store.voices().front().id});
    refreshMenu();
    refreshDetail();
}

QWidget* MainWindow::makeSidebarColumn() {
    auto* column = new QWidget(this);
    auto* layout = new QVBoxLayout(column);
    layout->setContentsMargins(6, 6, 0, 6);
    // Stacked, so the sidebar stays narrow and the page keeps the room.
    auto* buttons = new QVBoxLayout;
    buttons->setSpacing(2);
    auto addButton = [&](const QString& text, const char* icon, const QString& tip, void (MainWindow::*action)()) {
        auto* button = new QToolButton(column);
        button->setText(text);
        button->setIcon(themedIcon(icon, QStyle::SP_FileDialogNewFolder));
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setAutoRaise(true);
        button->setToolTip(tip);
        connect(button, &QToolButton::clicked, this, action);
        buttons->addWidget(button);
    };
    addButton("New Voice from Selected", "list-add", "Make an editable copy of the selected voice",
              &MainWindow::newVoiceFromSelected);
    addButton("New Cloned Voice", "contact-new",
              "Clone a real speaker's voice from samples (yours, or with their permission)", &MainWindow::newClonedVoice);
    layout->addLayout(buttons);
    sidebar_ = new Sidebar(column);
    layout->addWidget(sidebar_, 1);
    return column;
}

QWidget* MainWindow::makePlaceholder() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addStretch(1);
    auto* icon = new QLabel(page);
    icon->setPixmap(themedIcon("audio-input-microphone", QStyle::SP_MediaVolume).pixmap(48, 48));
    icon->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon);
    auto* text = makeLabel("Pick a voice", page, 1.3);
    text->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(text);
    layout->addStretch(1);
    return page;
}

QWidget* MainWindow::makeCallsPage() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    callsPanel_ = new CallsPanel(model_.engine, model_.devices, model_.micSetup, page);
    layout->addWidget(callsPanel_);
    auto* line = new QFrame(page);
    line->setFrameShape(QFrame::HLine);
    line->setForegroundRole(QPalette::Mid);
    layout->addWidget(line);
    micPanel_ = new MicPanel(model_.engine, model_.handsFree, page);
    layout->addWidget(micPanel_);
    layout->addStretch(1);
    auto* scroll = new QScrollArea;
    scroll->setWidget(page);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    return scroll;
}

// Keys 1 to 9 play the board's entry with that key while the window has the
// focus. A text field or number box with the focus keeps its digits: they
// claim the key before any shortcut sees it.
void MainWindow::makeBoardKeys() {
    if (!boardPanel_) return;
    for (int n = 1; n <= 9; ++n) {
        auto* key = new QShortcut(QKeySequence(QString::number(n)), this);
        connect(key, &QShortcut::activated, this, [this, n] { boardPanel_->playKey(QString::number(n)); });
    }
}

QWidget* MainWindow::makeMicDeniedScreen() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addStretch(1);
    layout->addWidget(makeLabel("Microphone access is off", page, 1.5, true));
    layout->addWidget(makeLabel("Allow Parlova to use the microphone in Settings › Privacy › Microphone, "
                                "or unmute it for Parlova in the sound mixer.",
                                page));
    auto* open = new QPushButton("Open Privacy Settings", page);
    connect(open, &QPushButton::clicked, this, [] { openPrivacySettings(); });
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(open);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addStretch(1);
    return page;
}

void MainWindow::makeMenus() {
    appMenu_ = menuBar()->addMenu("&Parlova");
    QMenu* voiceMenu = menuBar()->addMenu("&Voice");
    VoiceEngine& engine = model_.engine;
    liveAction_ = voiceMenu->addAction("Talk Live", QKeySequence("Ctrl+L"), &engine, &VoiceEngine::toggleLive);
    recordAction_ =
        voiceMenu->addAction("Record Clip", QKeySequence("Ctrl+R"), &engine, &VoiceEngine::toggleRecording);
    playAction_ = voiceMenu->addAction("Play Clip", QKeySequence("Ctrl+P"), &engine, [&engine] {
        if (engine.isPlaying())
            engine.stopPlayback();
        else
            engine.startPlayback();
    });
    voiceMenu->addSeparator();
    openAction_ = voiceMenu->addAction("Open Audio File…", QKeySequence("Ctrl+O"), transport_,
                                       &TransportCard::openAudioFile);
}

void MainWindow::refreshMenu() {
    const VoiceEngine& engine = model_.engine;
    bool busy = engine.isExporting();
    liveAction_->setText(engine.isLive() ? "Stop Live" : "Talk Live");
    liveAction_->setEnabled(!busy && (engine.isLive() || !engine.isStartingLive()));
    recordAction_->setText(engine.isRecording() ? "Stop Recording" : "Record Clip");
    recordAction_->setEnabled(!busy && !engine.isPlaying());
    playAction_->setText(engine.isPlaying() ? "Stop Playback" : "Play Clip");
    playAction_->setEnabled(!busy && !engine.isRecording() && (engine.isPlaying() || !engine.clipURL().isEmpty()));
    openAction_->setEnabled(!busy && !engine.isRecording());
}

void MainWindow::refreshRows() {
    std::vector<SidebarRow> rows;
    for (const Voice& voice : model_.store.voices())
        rows.push_back({voice.id, voice.emoji.isEmpty() ? voice.name : voice.emoji + "  " + voice.name,
                        voiceSummary(voice), !voice.presetKey.has_value(), voice.presetKey.has_value()});
    sidebar_->showRows(RowKind::voice, rows);
    std::vector<SidebarRow> clones;
    for (const ClonedVoice& voice : model_.library.voices())
        clones.push_back({voice.id, voice.name, sampleLine(int(voice.samples.size()), voice.totalSeconds()), true, false});
    sidebar_->showRows(RowKind::clone, clones);
    // The voice on screen follows the store: an edit (from here or elsewhere)
    // shows at once; the selection hands it to the engine.
    showSelected();
}

void MainWindow::refreshDetail() {
    if (model_.engine.micDenied()) {
        detail_->setCurrentWidget(micDenied_);
        sections_->setCurrentWidget(detail_);
        return;
    }
    auto chosen = sidebar_->selection();
    if (chosen && chosen->kind == RowKind::voice && voiceWithId(chosen->id))
        detail_->setCurrentWidget(voiceScroll_);
    else if (chosen && chosen->kind == RowKind::clone && model_.library.voice(chosen->id))
        detail_->setCurrentWidget(cloneScroll_);
    else
        detail_->setCurrentWidget(placeholder_);
}

QString MainWindow::currentPage() const {
    QWidget* page = detail_->currentWidget();
    if (page == voiceScroll_) return "voice";
    if (page == micDenied_) return "micDenied";
    if (page == cloneScroll_) return "clone";
    if (page == placeholder_) return "placeholder";
    return "clone";
}

QString MainWindow::currentSection() const {
    QWidget* page = sections_->currentWidget();
    if (page == callsPage_) return "calls";
    if (boardPanel_ && page == boardPanel_) return "board";
    return "voice";
}

bool MainWindow::showSection(const QString& section) {
    QWidget* page = section == "voice" ? detail_
                    : section == "calls" ? callsPage_
                    : section == "board" ? static_cast<QWidget*>(boardPanel_)
                                         : nullptr;
    if (!page) return false;
    sections_->setCurrentWidget(page);
    return true;
}

bool MainWindow::selectVoiceNamed(const QString& name) { return model_.selection.selectNamed(name); }

void MainWindow::selectionChanged(const std::optional<SidebarSelection>& selection) {
    // A row picked in the sidebar is a voice the user wants to see.
    if (selection) sections_->setCurrentWidget(detail_);
    const auto before = model_.selection.current();
    if (selection && selection->kind == RowKind::clone) model_.selection.selectClone(selection->id);
    if (selection && selection->kind == RowKind::voice) model_.selection.selectVoice(selection->id);
    // A move comes back through followSelection(), which shows it.
    if (model_.selection.current() == before) showSelected();
}

void MainWindow::followSelection() {
    const auto current = model_.selection.current();
    if (!current) return;
    const SidebarSelection row{current->kind == VoiceSelection::Kind::clone ? RowKind::clone : RowKind::voice,
                               current->id};
    const auto shown = sidebar_->selection();
    if (!shown || shown->kind != row.kind || shown->id != row.id) {
        // Shown below, once: the row is not a new choice.
        QSignalBlocker quiet(sidebar_);
        sidebar_->select(row);
        // A voice the sidebar does not list ("Natural") leaves no row selected.
        const auto now = sidebar_->selection();
        if (!now || now->id != row.id) sidebar_->select(std::nullopt);
    }
    showSelected();
}

void MainWindow::showSelected() {
    const auto current = model_.selection.current();
    if (current && current->kind == VoiceSelection::Kind::clone) {
        if (model_.library.voice(current->id)) {
            model_.library.setSelectedID(current->id);
            clonePage_->showVoice(current->id);
        }
    } else if (current) {
        if (const Voice* voice = voiceWithId(current->id)) voicePage_->showVoice(*voice);
    }
    if (current) transport_->setVoiceName(model_.selection.name());
    refreshDetail();
}

void MainWindow::voiceEdited(const Voice& edited) {
    std::vector<Voice> voices = model_.store.voices();
    for (Voice& voice : voices)
        if (voice.id == edited.id) voice = edited;
    // Saving emits voicesChanged, which shows the edit and hands it to the engine.
    model_.store.setVoices(std::move(voices));
}

void MainWindow::newVoiceFromSelected() {
    auto chosen = sidebar_->selection();
    const Voice* source = chosen && chosen->kind == RowKind::voice ? voiceWithId(chosen->id) : nullptr;
    if (!source && !model_.store.voices().empty()) source = &model_.store.voices().front();
    if (!source) return;
    Voice copy = model_.store.duplicate(*source);
    sidebar_->select(SidebarSelection{RowKind::voice, copy.id});
}

void MainWindow::newClonedVoice() {
    QString name = "New Voice";
    for (int n = 2; model_.library.find(name); ++n) name = QString("New Voice %1").arg(n);
    ClonedVoice voice = model_.library.createVoice(name);
    sidebar_->select(SidebarSelection{RowKind::clone, voice.id});
}

void MainWindow::deleteClone(const QUuid& id) {
    auto clone = model_.library.voice(id);
    if (!clone) return;
    auto answer = QMessageBox::question(
        this, "Delete Cloned Voice",
        QString("Delete the cloned voice \u201c%1\u201d and its %2 samples? This can't be undone.")
            .arg(clone->name)
            .arg(clone->samples.size()),
        QMessageBox::Cancel | QMessageBox::Yes, QMessageBox::Cancel);
    if (answer != QMessageBox::Yes) return;
    model_.library.deleteVoice(id);
}

void MainWindow::deleteVoice(const QUuid& id) {
    const Voice* voice = voiceWithId(id);
    if (!voice || voice->presetKey) return;
    auto answer = QMessageBox::question(this, "Delete Voice",
                                        QString("Delete the voice \u201c%1\u201d? This can't be undone.").arg(voice->name),
                                        QMessageBox::Cancel | QMessageBox::Yes, QMessageBox::Cancel);
    if (answer != QMessageBox::Yes) return;
    Voice removed = *voice;
    model_.store.remove(removed);
    if (!sidebar_->selection() && !model_.store.voices().empty())
        sidebar_->select(SidebarSelection{RowKind::voice, model_.store.voices().front().id});
}

void MainWindow::showError() {
    QString message = model_.engine.errorMessage();
    bool fromCloner = message.isEmpty();
    if (fromCloner) message = model_.cloner.errorMessage();
    if (message.isEmpty() || showingError_) return;
    showingError_ = true;
    // Window-modal and asynchronous: the window keeps painting behind it.
    auto* box = new QMessageBox(QMessageBox::Warning, "Something went wrong", message, QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::finished, this, [this, fromCloner] {
        showingError_ = false;
        if (fromCloner) model_.cloner.setErrorMessage({});
        else model_.engine.setErrorMessage({});
    });
    box->open();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (closeHandler_ && !closeHandler_())
        event->ignore();
    else
        event->accept();
}

const Voice* MainWindow::voiceWithId(const QUuid& id) const {
    for (const Voice& voice : model_.store.voices())
        if (voice.id == id) return &voice;
    return nullptr;
}

}  // namespace parlova::ui
