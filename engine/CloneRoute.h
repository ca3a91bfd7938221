#pragma once
// Live speech in a cloned voice: the voice stage the live route runs instead
// of the effect chain, and the main-side part that feeds the worker's stream.
//
//   audio thread:  mic -> CloneVoiceStage -> (mic ring)      ... output <- (voice queue)
//   worker thread: every 10 ms: mic ring -> 24 kHz -> worker "stream"
//                  worker "stream_out" -> 48 kHz -> voice queue
//   main thread:   starts and stops the stream; never touches the audio
//
// The stage only copies between preallocated rings; it never waits on the
// worker. With bypass the stage plays the microphone as it is and the voice
// queue is cleared with a short cushion, so turning bypass off again starts
// from fresh audio.
#include "cloning/CloneLatency.h"
#include "cloning/ClonedVoice.h"
#include "cloning/SampleQueue.h"
#include "engine/VoiceStage.h"

#include <QObject>

#include <atomic>
#include <memory>

namespace parlova {

class VoiceCloner;

// What the audio thread shares with the two other sides of one stream.
struct CloneStreamBuffers {
    explicit CloneStreamBuffers(double sampleRate);
    double sampleRate;
    SampleQueue mic;    // audio thread -> worker thread; no cushion
    SampleQueue voice;  // reader thread -> audio thread
    std::atomic<bool> bypass{false};
    std::atomic<double> blockSeconds{0.3};  // the worker's block: part of the delay
    // Set by the reader thread at a stream's first converted block; cleared
    // by the main thread when a stream starts.
    std::atomic<bool> flowing{false};
};

class CloneVoiceStage final : public VoiceStage {
public:
    CloneVoiceStage(AudioSource& input, std::shared_ptr<CloneStreamBuffers> buffers);
    int32_t render(BufferList& out, int frames) noexcept override;
    double latencySeconds() const override;

private:
    AudioSource& input_;
    std::shared_ptr<CloneStreamBuffers> buffers_;
    std::unique_ptr<float[]> scratch_;
};

class CloneRoute : public QObject {
    Q_OBJECT
public:
    static constexpr double kCushionSeconds = 0.08;
    static constexpr double kBypassCushionSeconds = 0.02;
    static constexpr int kStreamRate = 24000;  // the speech model's own rate

    explicit CloneRoute(VoiceCloner* cloner, QObject* parent = nullptr);
    ~CloneRoute() override;

    // Main thread, before the route is built: a stage factory over fresh buffers.
    VoiceStageFactory stageFactory(double sampleRate);
    // Once the route runs: asks the worker for a stream of `voice`.
    void start(const CloneTarget& voice, CloneLatency latency);
    void stop();
    void setBypass(bool on);

    bool isStreamStarting() const { return starting_; }
    bool isStreaming() const { return streaming_; }
    const CloneStreamBuffers* buffers() const { return buffers_.get(); }

signals:
    void isStreamStartingChanged();
    // The stream could not start: a sentence for the user.
    void failed(const QString& message);
    // The first converted speech of a stream has arrived (once per stream).
    void speechFlowing();

private:
    void setStarting(bool on);

    VoiceCloner* cloner_;
    std::shared_ptr<CloneStreamBuffers> buffers_;
    bool starting_ = false;
    bool streaming_ = false;
    bool bypass_ = false;
    int generation_ = 0;
};

}  // namespace parlova
