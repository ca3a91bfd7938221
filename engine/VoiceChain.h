#pragma once
// The fixed effect chain that turns a dry signal into a voice:
// converter -> shifter -> grain -> eq -> reverb -> limiter -> output volume.
// The chain is pulled from its end; a voice change only changes parameters,
// so it never needs rewiring or a restart.
//
// The chain runs at kChainSampleRate: the pitch tracker's fixed 12 kHz analysis
// is exact there (a decimation of 4), and the units are tuned for it. A source
// at another rate is wrapped in a RateConvertingSource (media/RateConverter.h)
// before it reaches the chain, and the offline render converts back to the
// file's rate. The constructor still takes the source's format: its channel
// count, and a rate that should be kChainSampleRate.
#include "dsp/DenormalsFlushed.h"
#include "dsp/Equalizer.h"
#include "dsp/FormantShifterUnit.h"
#include "dsp/GainRamp.h"
#include "dsp/GrainAudioUnit.h"
#include "dsp/PeakLimiter.h"
#include "dsp/Reverb.h"
#include "voices/Voice.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace parlova {

inline constexpr int kChainSampleRate = 48000;

// Entry node: pulls the source in its own channel layout and hands on stereo.
class ChannelConverter : public AudioSource {
public:
    void prepare(AudioSource* source, int sourceChannels, int maxFrames);
    int32_t pull(BufferList& out, int frames) noexcept override;

private:
    AudioSource* source_ = nullptr;
    int maxFrames_ = 0;
    std::vector<std::vector<float>> scratch_;
};

// Exit node: output volume (the tremolo), ramped across each block so the 5 ms
// modulation steps do not click.
class OutputVolumeUnit : public InPlaceEffectUnit {
public:
    std::atomic<float> volume{1.0f};

protected:
    void prepare(const AudioFormat& format, int maxFrames) override;
    void process(BufferList& buffers, int frames) noexcept override;

private:
    GainRamp ramp_;
};

class VoiceChain {
public:
    static constexpr int kMaxFrames = InPlaceEffectUnit::kDefaultMaxFrames;

    // Builds the chain on `source` (which delivers `sourceFormat`) and applies
    // `voice`; the shifter runs with `timing`.
    VoiceChain(const Voice& voice, AudioSource* source, const AudioFormat& sourceFormat, int maxFrames = kMaxFrames,
               ShifterTiming timing = ShifterTiming::normal());
    ~VoiceChain();
    VoiceChain(const VoiceChain&) = delete;
    VoiceChain& operator=(const VoiceChain&) = delete;

    // Sets every static parameter from the voice, then modulates for the time
    // of the last modulate() (0 before the first), so that an edit made while
    // audio runs continues the vibrato and tremolo where they are instead of
    // snapping them back to their start. Main thread.
    void apply(const Voice& voice);
    // Sets vibrato and tremolo for `t` seconds after the clock's start and
    // remembers `t`; returns whether the voice moves with time at all (a
    // voice without vibrato or tremolo needs no further ticks). The
    // modulator thread (or the offline render's thread).
    bool modulate(double t);
    // The time of the last modulate(), 0 before the first.
    double modulationTime() const { return modulationTime_.load(std::memory_order_relaxed); }

    // Pulls `frames` (at most maxFrames) of processed stereo audio into `out`,
    // with denormals flushed whatever thread renders (live, export, preview).
    int32_t render(BufferList& out, int frames) noexcept {
        const DenormalsFlushed flushed;
        return output_->pull(out, frames);
    }

    Voice voice() const;
    const AudioFormat& format() const { return format_; }
    int maxFrames() const { return maxFrames_; }

    FormantShifterUnit& shifter() { return *shifter_; }
    GrainAudioUnit& grain() { return *grain_; }
    Equalizer& eq() { return *eq_; }
    Reverb& reverb() { return *reverb_; }
    PeakLimiter& limiter() { return *limiter_; }
    OutputVolumeUnit& output() { return *output_; }

    // Momentary pitch in cents for a voice at time t (vibrato included).
    static float momentaryPitch(const Voice& voice, double t);
    // Output volume for a voice at time t (tremolo).
    static float tremoloVolume(const Voice& voice, double t);
    // Whether either of the above changes with t.
    static bool movesWithTime(const Voice& voice) { return voice.vibratoDepth > 0 || voice.tremoloDepth > 0; }

private:
    void modulateVoice(const Voice& voice, double t);

    ChannelConverter converter_;
    std::unique_ptr<FormantShifterUnit> shifter_;
    std::unique_ptr<GrainAudioUnit> grain_;
    std::unique_ptr<Equalizer> eq_;
    std::unique_ptr<Reverb> reverb_;
    std::unique_ptr<PeakLimiter> limiter_;
    std::unique_ptr<OutputVolumeUnit> output_;
    mutable std::mutex lock_;
    Voice voice_;
    // Written by modulate() on the modulator thread, read by apply() on the main
    // thread. Relaxed: it is a value on its own and publishes nothing else; a
    // read that misses the latest tick is at most one tick (5 ms) old.
    std::atomic<double> modulationTime_{0.0};
    AudioFormat format_;
    int maxFrames_;
};

static_assert(std::atomic<double>::is_always_lock_free);

}  // namespace parlova
