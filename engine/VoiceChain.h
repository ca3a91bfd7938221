#pragma once
// The fixed effect chain that turns a dry signal into a voice:
// converter -> shifter -> grain -> eq -> reverb -> limiter -> output volume.
// The chain is pulled from its end; a voice change only changes parameters,
// so it never needs rewiring or a restart.
#include "dsp/Equalizer.h"
#include "dsp/FormantShifterUnit.h"
#include "dsp/GrainAudioUnit.h"
#include "dsp/PeakLimiter.h"
#include "dsp/Reverb.h"
#include "voices/Voice.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace parlova {

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
    float applied_ = 1.0f;
};

class VoiceChain {
public:
    static constexpr int kMaxFrames = InPlaceEffectUnit::kDefaultMaxFrames;

    // Builds the chain on `source` (which delivers `sourceFormat`) and applies `voice`.
    VoiceChain(const Voice& voice, AudioSource* source, const AudioFormat& sourceFormat, int maxFrames = kMaxFrames);
    ~VoiceChain();
    VoiceChain(const VoiceChain&) = delete;
    VoiceChain& operator=(const VoiceChain&) = delete;

    // Sets every static parameter from the voice, then modulates for t = 0.
    void apply(const Voice& voice);
    // Sets vibrato and tremolo for `t` seconds after the clock's start.
    void modulate(double t);

    // Pulls `frames` (at most maxFrames) of processed stereo audio into `out`.
    int32_t render(BufferList& out, int frames) noexcept { return output_->pull(out, frames); }

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

private:
    ChannelConverter converter_;
    std::unique_ptr<FormantShifterUnit> shifter_;
    std::unique_ptr<GrainAudioUnit> grain_;
    std::unique_ptr<Equalizer> eq_;
    std::unique_ptr<Reverb> reverb_;
    std::unique_ptr<PeakLimiter> limiter_;
    std::unique_ptr<OutputVolumeUnit> output_;
    mutable std::mutex lock_;
    Voice voice_;
    AudioFormat format_;
    int maxFrames_;
};

}  // namespace parlova
