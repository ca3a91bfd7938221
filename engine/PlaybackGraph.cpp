#include "engine/PlaybackGraph.h"

#include "engine/ChainOutput.h"
#include "media/RateConverter.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace parlova {

// Feeds the decoded clip into the chain at its own rate, then silence; marks
// the end once the chain's delay has been flushed out too.
class PlaybackGraph::Player : public AudioSource {
public:
    Player(AudioFileReader& file, std::atomic<bool>& finished, long long flushFrames)
        : file_(file), finished_(finished), flushFrames_(flushFrames) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        const int got = file_.read(out.data, frames);
        for (int c = 0; c < out.count; ++c) std::fill(out.data[c] + got, out.data[c] + frames, 0.0f);
        if (got < frames) {
            afterEnd_ += frames - got;
            if (afterEnd_ >= flushFrames_) finished_.store(true, std::memory_order_release);
        }
        return status::ok;
    }

private:
    AudioFileReader& file_;
    std::atomic<bool>& finished_;
    long long flushFrames_;
    long long afterEnd_ = 0;
};

PlaybackGraph::PlaybackGraph(AudioBackend& backend, std::unique_ptr<AudioFileReader> file, const DeviceEntry& output,
                             const Voice& voice, BlockHandler meterTap, const StreamFaults& faults)
    : file_(std::move(file)) {
    const AudioFormat fileFormat = file_->format();
    meterRelay_ = std::make_unique<TapRelay>(1024, std::move(meterTap));
    // The shifter's 75 ms block plus a short reverb tail.
    player_ = std::make_unique<Player>(*file_, finished_, static_cast<long long>(0.4 * fileFormat.sampleRate));
    // The chain runs at its own rate whatever the file's; the server converts for the device.
    converted_ = RateConvertingSource::create(player_.get(), fileFormat.channels, fileFormat.sampleRate,
                                              kChainSampleRate);
    if (!converted_)
        throw VoiceEngineError(unconvertibleRateMessage(fileFormat.sampleRate));
    chain_ = std::make_shared<VoiceChain>(voice, converted_.get(), AudioFormat{kChainSampleRate, fileFormat.channels});
    stage_ = std::make_unique<EffectVoiceStage>(chain_);
    renderer_ = std::make_unique<ChainOutput>(*stage_, *meterRelay_, kChainSampleRate);
    output_ = backend.openOutput(output, AudioFormat{kChainSampleRate, 2}, *renderer_, 0.05, faults);
}

PlaybackGraph::~PlaybackGraph() { output_.reset(); }

void PlaybackGraph::start() { output_->start(); }

void PlaybackGraph::stop() { output_->stop(); }

}  // namespace parlova
