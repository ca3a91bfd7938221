// The window driven as a user would, offscreen, over an engine on an
// in-memory sound server and settings in a temporary folder.
#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "cloning/CloneLibrary.h"
#include "cloning/VoiceCloner.h"
#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "engine/VoiceEngine.h"
#include "support/FakeBackend.h"
#include "support/Files.h"
#include "support/TestAudio.h"
#include "ui/BoardPanel.h"
#include "ui/CallsPanel.h"
#include "ui/ClonePage.h"
#include "ui/FieldSlider.h"
#include "ui/MainWindow.h"
#include "ui/MicPanel.h"
#include "ui/Summaries.h"
#include "ui/TransportCard.h"
#include "ui/TransportStatus.h"
#include "ui/VoicePage.h"
#include "voices/VoiceFieldRanges.h"
#include "voices/VoiceStore.h"

#include "control/VoiceSelection.h"
#include "ui/LevelMeter.h"

#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

using namespace parlova;
using namespace parlova::ui;

namespace {

// One window over its own settings and fake server.
struct Harness {
    explicit Harness(const char* cableName = "Parlova Mic")
        : backend([cableName] { return testaudio::fakeMachine(cableName); }),
          settings(dir.filePath("settings.ini"), QSettings::IniFormat), store(&settings),
          engine(&settings, &backend, jobs), devices(&backend), setup(&devices),
          cloner(VoiceClonerOptions{dir.filePath("support"), {}, {}, QProcessEnvironment::systemEnvironment()}),
          library(dir.filePath("ClonedVoices"), &settings), selection(engine, store, &library),
          board(dir.filePath("Board")), soundboard(board, engine, store, &library),
          window(AppModel{store, engine, devices, setup, library, cloner, settings, selection, nullptr, &board,
                          &soundboard}) {
        engine.setCloner(&cloner);
        QTRY_VERIFY(!devices.inputs().empty());
    }
    QTemporaryDir dir;
    testaudio::FakeBackend backend;
    QSettings settings;
    VoiceStore store;
    BackendJobs jobs;
    VoiceEngine engine;
    AudioDeviceList devices;
    VirtualMicSetup setup;
    VoiceCloner cloner;
    CloneLibrary library;
    VoiceSelection selection;
    BoardStore board;
    Soundboard soundboard;
    MainWindow window;
};

// A clip of a steady tone, by default long enough to still play when it is looked at.
QString writeClip(const QTemporaryDir& dir, const QString& name, double hz = 440, int seconds = 3) {
    const QString path = dir.filePath(name + ".wav");
    if (!testaudio::writeWav(path.toStdString(), testaudio::spread(testaudio::tone(hz, 48000, seconds * 48000), 48000)))
        return {};
    return path;
}

}  // namespace

class MainWindowTest : public QObject {
    Q_OBJECT
private slots:
    // Which state the status line speaks of when several hold: the one that
    // matters most, as if it held alone.
    void statusSentenceSpeaksOfTheStateThatMattersMost() {
        auto state = [](auto change) {
            TransportState s;
            s.voiceName = "Old Lady";
            change(s);
            return transportStatus(s);
        };
        const struct {
            QString both, alone;
        } cases[] = {
            {state([](auto& s) { s.isPlaying = s.hasClip = true; }), state([](auto& s) { s.isPlaying = true; })},
            {state([](auto& s) { s.isLive = s.isPlaying = true; }), state([](auto& s) { s.isLive = true; })},
            {state([](auto& s) { s.isLive = s.callMode = s.isCloned = true; }),
             state([](auto& s) { s.isLive = s.callMode = true; })},
            {state([](auto& s) { s.isRecording = s.isLive = true; }), state([](auto& s) { s.isRecording = true; })},
            {state([](auto& s) { s.isConverting = s.isRecording = true; }), state([](auto& s) { s.isConverting = true; })},
            {state([](auto& s) { s.isExporting = s.isConverting = s.isLive = true; }),
             state([](auto& s) { s.isExporting = true; })},
            // Call mode without Live changes nothing the user hears yet.
            {state([](auto& s) { s.callMode = true; }), state([](auto&) {})},
        };
        for (const auto& c : cases) QCOMPARE(c.both, c.alone);
        // The cloned voice's name and the clip's length reach the sentence.
        QVERIFY(state([](auto& s) { s.isLive = s.isCloned = true, s.cloneDelayLabel = "~0.4 s"; }).contains("~0.4 s"));
        QVERIFY(state([](auto& s) { s.hasClip = true, s.clipDuration = 3.21; }).contains("3.2 s"));
        QVERIFY(state([](auto& s) { s.callMode = s.isLive = true; }).contains("Old Lady"));
    }

    // The bar rises at once and falls at its rate whatever the repaint rate;
    // the peak mark holds, then falls.
    void theMeterMovesInDecibelsPerSecond() {
        MeterBallistics fast, slow;
        fast.advance(-10, -6, 0.01f);
        slow.advance(-10, -6, 0.1f);
        QCOMPARE(fast.barDb, -10.0f);
        QCOMPARE(fast.peakDb, -6.0f);
        for (int i = 0; i < 50; ++i) fast.advance(-60, -60, 0.01f);
        for (int i = 0; i < 5; ++i) slow.advance(-60, -60, 0.1f);
        QVERIFY(std::fabs(fast.barDb - slow.barDb) < 0.01f);
        QVERIFY(fast.barDb < -10.0f && fast.barDb > MeterBallistics::kFloorDb);
        QCOMPARE(fast.peakDb, -6.0f);  // half a second: still held
        for (int i = 0; i < 100; ++i) fast.advance(-60, -60, 0.01f);
        QVERIFY(fast.peakDb < -6.0f);
        QCOMPARE(MeterBallistics::position(MeterBallistics::kFloorDb - 10), 0.0f);
        QCOMPARE(MeterBallistics::position(3), 1.0f);
    }

    // A voice chosen from outside the window (the tray, a shortcut, the
    // control channel) shows in the window as if clicked.
    void theWindowFollowsAVoiceSelectedElsewhere() {
        Harness h;
        QVERIFY(h.selection.selectNamed("Middle-Aged Man"));
        QCOMPARE(h.window.sidebar()->selection()->id, h.store.find("Middle-Aged Man")->id);
        QCOMPARE(h.window.currentPage(), "voice");
        QCOMPARE(h.engine.voice().name, "Middle-Aged Man");
        QVERIFY(h.selection.selectNamed("My Voice"));
        QCOMPARE(h.window.currentPage(), "clone");
        QCOMPARE(h.engine.clone().name, "My Voice");
        QVERIFY(h.selection.step(1));  // past the last voice: back to the first effect voice
        QCOMPARE(h.window.currentPage(), "voice");
        QVERIFY(h.engine.clone().isEmpty());
        QCOMPARE(h.engine.voice().id, h.store.voices().front().id);
        QCOMPARE(h.window.voicePage()->voice().id, h.engine.voice().id);
        h.window.sidebar()->select(std::nullopt);
        QCOMPARE(h.window.currentPage(), "placeholder");
    }

    // A slider moved while live reaches the running chain and the settings.
    void anEditIsSavedAndAppliedToTheRunningChain() {
        Harness h;
        QVERIFY(h.window.selectVoiceNamed("Old Lady"));
        h.engine.toggleLive();
        QTRY_VERIFY(h.engine.isLive() && h.engine.liveGraph());
        FieldSlider* formant = h.window.voicePage()->slider("formant");
        QVERIFY(formant);
        emit formant->edited(-2.5f);
        QCOMPARE(h.engine.voice().formant, -2.5f);
        QCOMPARE(h.engine.liveGraph()->chain()->voice().formant, -2.5f);
        VoiceStore reread(&h.settings);
        QCOMPARE(reread.find("Old Lady")->formant, -2.5f);
        QVERIFY(h.window.sidebar()->section(RowKind::voice)->child(0)->text(0).contains("Old Lady"));
        h.engine.toggleLive();
    }

    void voiceMenuFollowsTheEngine() {
        Harness h;
        QCOMPARE(h.window.liveAction()->text(), "Talk Live");
        QVERIFY(!h.window.playAction()->isEnabled());  // no clip yet
        QVERIFY(h.window.openAction()->isEnabled());
        QVERIFY(h.engine.loadClip(writeClip(h.dir, "clip", 220, 1)));
        QVERIFY(h.window.playAction()->isEnabled());
        h.window.liveAction()->trigger();
        QTRY_COMPARE(h.window.liveAction()->text(), "Stop Live");
        QVERIFY(h.window.transport()->status().startsWith("Live"));
        h.window.liveAction()->trigger();
        QTRY_COMPARE(h.window.liveAction()->text(), "Talk Live");
    }

    void callsPanelExplainsEachState() {
        const auto open = [](Harness& h) {
            h.window.showSection("calls");
            h.window.show();
            return h.window.callsPanel();
        };
        {
            Harness h("");
            CallsPanel* calls = open(h);
            QTRY_VERIFY(calls->installButton()->isVisible());
            QVERIFY(calls->installPrompt()->isVisible());
            QVERIFY(!calls->callModeSwitch()->isEnabled());
            QVERIFY(!calls->explanation()->isVisible());
        }
        {
            Harness h(kFormerName);
            CallsPanel* calls = open(h);
            QTRY_VERIFY(calls->formerNotice()->isVisible());
            QVERIFY(calls->updateButton()->isVisible());
            QVERIFY(calls->explanation()->text().startsWith(kFormerName));
        }
        {
            Harness h;
            CallsPanel* calls = open(h);
            QTRY_VERIFY(calls->callModeSwitch()->isEnabled());
            QVERIFY(!calls->installButton()->isVisible() && !calls->formerNotice()->isVisible());
            // The virtual mic is an output of the voice, never offered as a microphone.
            QCOMPARE(calls->inputPicker()->itemText(0), "System Default");
            QCOMPARE(calls->inputPicker()->findText("Parlova Mic"), -1);
        }
    }

    // A cloned voice's page walks the user through what generation still needs.
    void clonedVoicePageSaysWhatIsMissing() {
        Harness h;
        QVERIFY(h.window.selectVoiceNamed("My Voice"));
        QCOMPARE(h.window.currentPage(), "clone");
        QCOMPARE(h.engine.clone().name, "My Voice");
        QVERIFY(h.window.transport()->status().startsWith("Talk Live to speak as My Voice"));
        ClonePage* page = h.window.clonePage();
        QCOMPARE(page->blocker()->text(), "Record at least 5 seconds of samples first.");
        QVERIFY(!page->generateButton()->isEnabled());

        h.library.addSample(h.library.find("My Voice")->id, writeClip(h.dir, "sample", 180, 6), "Hello there.");
        QCOMPARE(page->blocker()->text(), "Confirm you have permission to clone this voice.");
        QCOMPARE(h.window.sidebar()->section(RowKind::clone)->child(0)->data(0, Qt::AccessibleDescriptionRole).toString(),
                 "1 sample · 6 s");
        bool marked = false;
        for (QLabel* label : page->samplesBox()->findChildren<QLabel*>()) marked |= label->text().contains("Too short");
        QVERIFY(marked);  // 6 s is kept but marked
        page->consent()->setChecked(true);
        QVERIFY(page->blocker()->isHidden());

        // Typing in a transcript survives the library changing underneath.
        h.window.show();
        QVERIFY(QTest::qWaitForWindowActive(&h.window));
        auto* transcript = page->samplesBox()->findChild<QLineEdit*>();
        transcript->setFocus();
        QTRY_VERIFY(transcript->hasFocus());
        QTest::keyClicks(transcript, " And more");
        h.library.rename(h.library.find("My Voice")->id, "My Own Voice");
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(page->samplesBox()->findChild<QLineEdit*>()->text(), "Hello there. And more");
        QCOMPARE(h.engine.clone().samples.size(), 1);  // the engine follows the new sample
        h.window.sidebar()->setFocus();  // leaving the field saves it
        QTRY_COMPARE(h.library.find("My Own Voice")->samples[0].transcript, "Hello there. And more");
        QVERIFY(h.window.selectVoiceNamed("Old Lady"));
        QVERIFY(h.engine.clone().isEmpty());
    }

    void pushToTalkIsSaidWhileLive() {
        Harness h;
        h.window.micPanel()->talkModePicker()->setCurrentIndex(1);
        emit h.window.micPanel()->talkModePicker()->activated(1);
        QCOMPARE(h.engine.talk().mode(), TalkMode::pushToTalk);
        QVERIFY(!h.window.micPanel()->shortcutHint()->isHidden());
        h.engine.toggleLive();
        QTRY_VERIFY(h.window.transport()->status().contains("Push to talk: hold"));
        h.engine.talk().setKeyHeld(true);
        QVERIFY(h.window.transport()->status().endsWith("Talking"));
        h.engine.toggleLive();
        QTRY_VERIFY(!h.window.transport()->status().contains("Push to talk"));
    }

    void aRefusedMicrophoneShowsItsOwnScreen() {
        Harness h;
        h.backend.captureError = kMicrophoneRefusedMessage;
        h.backend.captureErrorCode = ErrorCode::microphoneRefused;
        h.engine.toggleLive();
        QTRY_COMPARE(h.window.currentPage(), "micDenied");
        QVERIFY(h.engine.errorMessage().isEmpty());  // the screen says it; no error box on top
        h.backend.captureError.clear();
        h.engine.toggleLive();
        QTRY_COMPARE(h.window.currentPage(), "voice");
        h.engine.toggleLive();
    }

    // At the window's usual size a voice's sliders all show without
    // scrolling, and the transport card stays in view whichever page shows.
    void theVoicePageFitsAndTheControlsStayInView() {
        Harness h;
        QVERIFY(h.window.selectVoiceNamed("Old Lady"));
        h.window.resize(MainWindow::defaultSize());
        h.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&h.window));
        auto* scroll = qobject_cast<QScrollArea*>(h.window.voicePage()->parentWidget()->parentWidget());
        QVERIFY(scroll);
        QCOMPARE(scroll->verticalScrollBar()->maximum(), 0);
        for (const auto& field : voiceFieldRanges()) {
            FieldSlider* slider = h.window.voicePage()->slider(field.key);
            QVERIFY2(slider->visibleRegion().boundingRect() == slider->rect(), field.key);
        }
        QVERIFY(!h.window.voicePage()->previewButton()->visibleRegion().isEmpty());
        TransportCard* transport = h.window.transport();
        for (const char* section : {"board", "calls", "voice"}) {
            QVERIFY(h.window.showSection(section));
            QCOMPARE(h.window.currentSection(), section);
            for (QWidget* part : std::initializer_list<QWidget*>{transport->liveButton(), transport->playButton(),
                                                                 transport->meter(), transport->pitchLabel()})
                QVERIFY2(part->visibleRegion().boundingRect() == part->rect(), section);
        }
        // A voice picked in the sidebar brings its page back.
        QVERIFY(h.window.showSection("calls"));
        h.window.sidebar()->select(SidebarSelection{RowKind::voice, h.store.find("Middle-Aged Man")->id});
        QCOMPARE(h.window.currentSection(), "voice");
        QCOMPARE(h.window.voicePage()->voice().name, "Middle-Aged Man");
    }

    // The board's page lists the store's entries and follows every change,
    // made on the page or elsewhere; a file that isn't audio is refused with
    // a sentence and leaves the board as it was.
    void theBoardPageFollowsItsStore() {
        Harness h;
        BoardPanel* panel = h.window.boardPanel();
        QTreeWidget* list = panel->list();
        QVERIFY(panel->addClip(writeClip(h.dir, "Doorbell")));
        h.board.addSpeech("Back in a minute.", h.store.find("Old Lady")->id);
        QCOMPARE(list->topLevelItemCount(), 2);
        QCOMPARE(list->topLevelItem(0)->text(2), "Doorbell");
        QVERIFY(list->topLevelItem(0)->text(3).contains("3.0 s"));
        QVERIFY(list->topLevelItem(1)->text(3).contains("Back in a minute."));
        QVERIFY(list->topLevelItem(1)->text(3).contains("Old Lady"));
        QCOMPARE(list->topLevelItem(1)->text(1), "2");
        const QUuid bell = h.board.entries()[0].id, back = h.board.entries()[1].id;

        panel->selectEntry(bell);
        panel->nameField()->setText("Ding dong");
        emit panel->nameField()->editingFinished();
        QCOMPARE(h.board.entry(bell)->name, "Ding dong");
        QCOMPARE(list->topLevelItem(0)->text(2), "Ding dong");
        h.board.rename(back, "Back soon");
        QCOMPARE(list->topLevelItem(1)->text(2), "Back soon");
        h.board.move(back, 0);
        QCOMPARE(list->topLevelItem(0)->text(2), "Back soon");
        QCOMPARE(panel->currentEntry(), bell);  // the selection follows its entry
        // A key given to one entry is taken from the one that had it.
        QComboBox* key = panel->keyPicker();
        key->setCurrentIndex(key->findData("2"));
        emit key->activated(key->currentIndex());
        QCOMPARE(h.board.entry(bell)->key, "2");
        QVERIFY(h.board.entry(back)->key.isEmpty());

        const QString notAudio = h.dir.filePath("notes.wav");
        QVERIFY(testfiles::write(notAudio, "not a sound"));
        QVERIFY(!panel->addClip(notAudio));
        QVERIFY(panel->message()->text().endsWith('.'));
        QCOMPARE(h.board.entries().size(), 2);

        h.board.remove(back);
        QCOMPARE(list->topLevelItemCount(), 1);
        QCOMPARE(list->topLevelItem(0)->text(2), "Ding dong");
    }

    // A number key plays the entry with that key while the window has the
    // focus; in the Say box it is only typed. Enter there says the text.
    void aNumberKeyPlaysItsEntryUnlessTextIsTyped() {
        Harness h;
        const BoardEntry bell = h.board.addClip(writeClip(h.dir, "Doorbell"));
        const BoardEntry back = h.board.addSpeech("Back in a minute.");
        QCOMPARE(bell.key, "1");
        BoardPanel* panel = h.window.boardPanel();
        QVERIFY(h.window.showSection("board"));
        h.window.show();
        QVERIFY(QTest::qWaitForWindowActive(&h.window));
        panel->selectEntry(back.id);

        QLineEdit* say = panel->sayBox();
        say->setFocus();
        QTRY_VERIFY(say->hasFocus());
        QTest::keyClick(say, '1');
        QCOMPARE(say->text(), "1");
        QCOMPARE(panel->currentEntry(), back.id);
        QVERIFY(!h.soundboard.isPlaying());

        QSignalSpy failed(&h.soundboard, &Soundboard::failed);
        panel->list()->setFocus();
        QTRY_VERIFY(panel->list()->hasFocus());
        QTest::keyClick(panel->list(), '1');
        QCOMPARE(panel->currentEntry(), bell.id);
        QTRY_VERIFY(h.soundboard.isPlaying());
        QCOMPARE(failed.count(), 0);
        panel->stopButton()->click();
        QTRY_VERIFY(!h.soundboard.isPlaying());

        // Enter in the Say box hands the text to the board: it is made, or
        // the board says why not.
        say->setFocus();
        QTRY_VERIFY(say->hasFocus());
        say->setText("Hello everyone.");
        QSignalSpy status(&h.soundboard, &Soundboard::statusChanged);
        QTest::keyClick(say, Qt::Key_Return);
        QTRY_VERIFY(h.soundboard.isMaking() || status.count() > 0 || failed.count() > 0);
        h.soundboard.stop();
    }

    // Preview on a voice's page has the board say a sentence in that voice.
    void previewReachesTheBoard() {
        Harness h;
        QVERIFY(h.window.selectVoiceNamed("Old Lady"));
        QPushButton* preview = h.window.voicePage()->previewButton();
        QVERIFY(!preview->isHidden());
        QSignalSpy sounds(&h.engine, &VoiceEngine::soundsPlayingChanged);
        QSignalSpy playing(&h.soundboard, &Soundboard::playingChanged);
        QSignalSpy failed(&h.soundboard, &Soundboard::failed);
        preview->click();
        // It plays, or the board says why it can't.
        QTRY_VERIFY_WITH_TIMEOUT(sounds.count() + playing.count() + failed.count() > 0, 20000);
        h.soundboard.stop();
    }

private:
    static constexpr const char* kFormerName = "Tovix Voice Changer Mic";
};

QTEST_MAIN(MainWindowTest)
#include "MainWindowTest.moc"
