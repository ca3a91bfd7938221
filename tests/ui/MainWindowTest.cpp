// The window driven as a user would, offscreen, over an engine on an
// in-memory sound server and settings in a temporary folder.
#include "cloning/CloneLibrary.h"
#include "cloning/VoiceCloner.h"
#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "engine/VoiceEngine.h"
#include "support/FakeBackend.h"
#include "support/TestAudio.h"
#include "ui/CallsPanel.h"
#include "ui/ClonePage.h"
#include "ui/FieldSlider.h"
#include "ui/MainWindow.h"
#include "ui/MicPanel.h"
#include "ui/Summaries.h"
#include "ui/TransportCard.h"
#include "ui/TransportStatus.h"
#include "ui/VoicePage.h"
#include "voices/VoiceStore.h"

#include "control/VoiceSelection.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

using namespace parlova;
using namespace parlova::ui;

namespace {

// One window over its own settings and fake server.
struct Harness {
    explicit Harness(const char* cableName = "Parlova Mic")
        : backend([cableName] { return testaudio::fakeMachine(cableName); }),
          settings(dir.filePath("settings.ini"), QSettings::IniFormat), store(&settings),
          engine(&settings, &backend), devices(&backend), setup(&devices),
          cloner(VoiceClonerOptions{dir.filePath("support"), {}, {}, QProcessEnvironment::systemEnvironment()}),
          library(dir.filePath("ClonedVoices"), &settings), selection(engine, store, &library),
          window(AppModel{store, engine, devices, setup, library, cloner, settings, selection, nullptr}) {
        engine.setCloner(&cloner);
        QTRY_VERIFY(!devices.inputs().empty());
    }
    QTemporaryDir dir;
    testaudio::FakeBackend backend;
    QSettings settings;
    VoiceStore store;
    VoiceEngine engine;
    AudioDeviceList devices;
    VirtualMicSetup setup;
    VoiceCloner cloner;
    CloneLibrary library;
    VoiceSelection selection;
    MainWindow window;
};

Voice voiceWith(float pitch, float targetPitch) {
    Voice v = Voice::natural();
    v.pitch = pitch;
    v.targetPitch = targetPitch;
    return v;
}

}  // namespace

class MainWindowTest : public QObject {
    Q_OBJECT
private slots:
    void statusSentenceFollowsTheFirstRuleThatHolds_data() {
        QTest::addColumn<TransportState>("state");
        QTest::addColumn<QString>("expected");
        auto state = [](auto change) {
            TransportState s;
            s.voiceName = "Old Lady";
            change(s);
            return s;
        };
        QTest::newRow("idle") << state([](auto&) {})
                              << "Talk Live to hear yourself transformed, or Record a clip and play it back in any voice.";
        QTest::newRow("idle, cloned") << state([](auto& s) { s.isCloned = true; })
                                      << "Talk Live to speak as Old Lady, or Record a clip and Play in Voice to convert it.";
        QTest::newRow("clip") << state([](auto& s) { s.hasClip = true, s.clipDuration = 3.21; })
                              << "Clip ready (3.2 s). Switch voices and press Play to compare.";
        QTest::newRow("playing beats clip") << state([](auto& s) { s.isPlaying = s.hasClip = true; })
                                            << "Playing clip as Old Lady.";
        QTest::newRow("live beats playing") << state([](auto& s) { s.isLive = s.isPlaying = true; })
            << "Live — use headphones to avoid feedback. Tweak the sliders while you talk.";
        QTest::newRow("live cloned, loading") << state([](auto& s) { s.isLive = s.isCloned = s.isStreamStarting = true; })
                                              << "Loading Old Lady's voice…";
        QTest::newRow("live cloned") << state([](auto& s) { s.isLive = s.isCloned = true, s.cloneDelayLabel = "~0.4 s"; })
                                     << "Live as Old Lady: your speech comes out in their voice ~0.4 s behind you.";
        QTest::newRow("call beats cloned") << state([](auto& s) { s.isLive = s.callMode = s.isCloned = true; })
                                           << "In call mode: apps using the system mic now hear Old Lady.";
        QTest::newRow("call, natural") << state([](auto& s) { s.isLive = s.callMode = s.bypass = true; })
            << "In call mode with your natural voice. Turn off Natural voice to change it again.";
        QTest::newRow("call mode without live") << state([](auto& s) { s.callMode = true; })
            << "Talk Live to hear yourself transformed, or Record a clip and play it back in any voice.";
        QTest::newRow("recording beats live") << state([](auto& s) { s.isRecording = s.isLive = true; })
            << "Recording your normal voice — play it back to hear it in any voice.";
        QTest::newRow("converting beats recording") << state([](auto& s) { s.isConverting = s.isRecording = true; })
                                                    << "Re-speaking the clip in Old Lady's voice…";
        QTest::newRow("exporting beats all") << state([](auto& s) { s.isExporting = s.isConverting = s.isLive = true; })
                                             << "Exporting…";
        QTest::newRow("exporting cloned") << state([](auto& s) { s.isExporting = s.isCloned = true; })
                                          << "Converting and exporting…";
    }
    void statusSentenceFollowsTheFirstRuleThatHolds() {
        QFETCH(TransportState, state);
        QFETCH(QString, expected);
        QCOMPARE(transportStatus(state), expected);
    }

    void sidebarLinesReadAsFormatted() {
        QCOMPARE(voiceSummary(voiceWith(-250, 0)), "-2.5 semitones");
        QCOMPARE(voiceSummary(voiceWith(0, 0)), "+0.0 semitones");
        QCOMPARE(voiceSummary(voiceWith(-0.0f, 0)), "+0.0 semitones");
        QCOMPARE(voiceSummary(voiceWith(650, 0)), "+6.5 semitones");
        QCOMPARE(voiceSummary(voiceWith(-900, 180)), "Auto pitch → 180 Hz");
        QCOMPARE(sampleLine(1, 7.6), "1 sample · 8 s");
        QCOMPARE(sampleLine(3, 42.4), "3 samples · 42 s");
        QCOMPARE(sampleLine(0, 0), "No samples yet");
    }

    void selectingARowHandsItsVoiceToTheEngine() {
        Harness h;
        QVERIFY(h.window.selectVoiceNamed("Middle-Aged Man"));
        QCOMPARE(h.engine.voice().name, "Middle-Aged Man");
        QCOMPARE(h.window.currentPage(), "voice");
        QCOMPARE(h.window.voicePage()->voice().name, "Middle-Aged Man");
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
        const QString clip = h.dir.filePath("clip.wav");
        QVERIFY(testaudio::writeWav(clip.toStdString(), testaudio::spread(testaudio::tone(220, 48000, 48000), 48000)));
        QVERIFY(h.engine.loadClip(clip));
        QVERIFY(h.window.playAction()->isEnabled());
        h.window.liveAction()->trigger();
        QTRY_COMPARE(h.window.liveAction()->text(), "Stop Live");
        QVERIFY(h.window.transport()->status().startsWith("Live"));
        h.window.liveAction()->trigger();
        QTRY_COMPARE(h.window.liveAction()->text(), "Talk Live");
    }

    void callsPanelExplainsEachState() {
        {
            Harness h("");
            CallsPanel* calls = h.window.transport()->callsPanel();
            h.window.show();
            QTRY_VERIFY(calls->installButton()->isVisible());
            QVERIFY(calls->installPrompt()->isVisible());
            QVERIFY(!calls->callModeSwitch()->isEnabled());
            QVERIFY(!calls->explanation()->isVisible());
        }
        {
            Harness h(kFormerName);
            CallsPanel* calls = h.window.transport()->callsPanel();
            h.window.show();
            QTRY_VERIFY(calls->formerNotice()->isVisible());
            QVERIFY(calls->updateButton()->isVisible());
            QVERIFY(calls->explanation()->text().startsWith(kFormerName));
        }
        {
            Harness h;
            CallsPanel* calls = h.window.transport()->callsPanel();
            h.window.show();
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

        const QString file = h.dir.filePath("sample.wav");
        QVERIFY(testaudio::writeWav(file.toStdString(), testaudio::spread(testaudio::tone(180, 48000, 6 * 48000), 48000)));
        h.library.addSample(h.library.find("My Voice")->id, file, "Hello there.");
        QCOMPARE(page->blocker()->text(), "Confirm you have permission to clone this voice.");
        QCOMPARE(h.window.sidebar()->section(RowKind::clone)->child(0)->data(0, Qt::AccessibleDescriptionRole).toString(),
                 "1 sample · 6 s");
        QVERIFY(page->samplesBox()->findChildren<QLabel*>().size() > 0);
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

private:
    static constexpr const char* kFormerName = "Tovix Voice Changer Mic";
};

QTEST_MAIN(MainWindowTest)
#include "MainWindowTest.moc"
