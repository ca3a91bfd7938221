#include "engine/VoiceChain.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace parlova {

namespace {
// Fixed band layout of the equaliser.
constexpr int kLowCutBand = 0, kBodyBand = 1, kPresenceBand = 2, kHighCutBand = 3;
constexpr float kBodyFrequency = 200.0f, kPresenceFrequency = 2400.0f;
}  // namespace

void ChannelConverter::prepare(AudioSource* source, int sourceChannels, int maxFrames) {
    source_ = source;
    maxFrames_ = maxFrames;
    scratch_.assign(static_cast<size_t>(std::clamp(sourceChannels, 1, kMaxChannels)),
                    std::vector<float>(static_cast<size_t>(maxFrames), 0.0f));
}

int32_t ChannelConverter::pull(BufferList& out, int frames) noexcept {
    if (source_ == nullptr || frames > maxFrames_) return status::noConnection;
    BufferList in;
    in.count = static_cast<int>(scratch_.size());
    for (int c = 0; c < in.count; ++c) {
        in.data[c] = scratch_[static_cast<size_t>(c)].data();
        in.byteSize[c] = static_cast<uint32_t>(frames) * 4u;
    }
    const int32_t pulled = source_->pull(in, frames);
    if (pulled != status::ok) return pulled;
    const size_t bytes = static_cast<size_t>(frames) * sizeof(float);
    for (int c = 0; c < out.count; ++c) {
        // Mono feeds both sides; wider sources keep their first channels.
        const int from = std::min(c, in.count - 1);
        if (out.data[c] != nullptr) std::memcpy(out.data[c], in.data[from], bytes);
    }
    return status::ok;
}

void OutputVolumeUnit::prepare(const AudioFormat&, int) { ramp_.jumpTo(volume.load(std::memory_order_relaxed)); }

void OutputVolumeUnit::process(BufferList& buffers, int frames) noexcept {
    // From the volume at the end of the last block to the latest one, across this block.
    ramp_.setTarget(volume.load(std::memory_order_relaxed), frames);
    ramp_.apply(buffers.data, buffers.count, frames);
}

VoiceChain::VoiceChain(const Voice& voice, AudioSource* source, const AudioFormat& sourceFormat, int maxFrames,
                       ShifterTiming timing)
    : shifter_(InPlaceEffectUnit::makeNode<FormantShifterUnit>(FormantShifterUnit::kSubtype,
                                                                 FormantShifterUnit::kName)),
      grain_(InPlaceEffectUnit::makeNode<GrainAudioUnit>("grai", "Grain")),
      eq_(std::make_unique<Equalizer>()),
      reverb_(std::make_unique<Reverb>()),
      limiter_(std::make_unique<PeakLimiter>()),
      output_(std::make_unique<OutputVolumeUnit>()),
      voice_(voice),
      format_{sourceFormat.sampleRate, 2},
      maxFrames_(maxFrames) {
    converter_.prepare(source, sourceFormat.channels, maxFrames);
    // A mono source reaches the shifter as two identical channels.
    shifter_->setIdenticalChannels(sourceFormat.channels == 1);
    shifter_->setTiming(timing);
    InPlaceEffectUnit* units[] = {shifter_.get(), grain_.get(), eq_.get(), reverb_.get(), limiter_.get(), output_.get()};
    AudioSource* previous = &converter_;
    for (InPlaceEffectUnit* unit : units) {
        unit->setInput(previous);
        unit->setFormat(format_);
        unit->setMaximumFramesToRender(maxFrames);
        unit->allocateRenderResources();
        previous = unit;
    }
    apply(voice);
}

VoiceChain::~VoiceChain() = default;

Voice VoiceChain::voice() const {
    std::lock_guard guard(lock_);
    return voice_;
}

void VoiceChain::apply(const Voice& voice) {
    {
        std::lock_guard guard(lock_);
        voice_ = voice;
    }
    // The low cut is clamped at 20 Hz but bypassed only at or below 25 Hz; the
    // shelf and presence bands are bypassed only at exactly 0 dB.
    eq_->setBand(kLowCutBand, std::max(voice.lowCut, 20.0f), 0.0f, voice.lowCut <= 25.0f);
    eq_->setBand(kBodyBand, kBodyFrequency, voice.body, voice.body == 0.0f);
    eq_->setBand(kPresenceBand, kPresenceFrequency, voice.presence, voice.presence == 0.0f);
    eq_->setBand(kHighCutBand, voice.highCut, 0.0f, voice.highCut >= 19000.0f);
    reverb_->setWetDryMix(voice.reverb);
    grain_->amount.store(voice.grain, std::memory_order_relaxed);
    eq_->setGlobalGain(voice.gain);
    modulateVoice(voice, modulationTime_.load(std::memory_order_relaxed));
}

float VoiceChain::momentaryPitch(const Voice& voice, double t) {
    const float base = voice.pitch;
    if (!(voice.vibratoDepth > 0)) return base;
    // A second, slower partial makes the vibrato irregular; dividing by 1.35
    // keeps the peak at the stated depth.
    const double w = 2.0 * std::numbers::pi * static_cast<double>(voice.vibratoRate);
    const float wave = static_cast<float>((std::sin(w * t) + 0.35 * std::sin(0.37 * w * t + 1.3)) / 1.35);
    return base + voice.vibratoDepth * wave;
}

float VoiceChain::tremoloVolume(const Voice& voice, double t) {
    if (!(voice.tremoloDepth > 0)) return 1.0f;
    const double phase = std::sin(2.0 * std::numbers::pi * static_cast<double>(voice.tremoloRate) * t);
    return static_cast<float>(1.0 + static_cast<double>(voice.tremoloDepth) * (-0.5 * (phase + 1.0)));
}

bool VoiceChain::modulate(double t) {
    modulationTime_.store(t, std::memory_order_relaxed);
    const Voice v = voice();
    modulateVoice(v, t);
    return movesWithTime(v);
}

void VoiceChain::modulateVoice(const Voice& v, double t) {
    const float p = momentaryPitch(v, t);
    shifter_->pitchSemitones.store(p / 100.0f, std::memory_order_relaxed);
    shifter_->vibratoSemitones.store((p - v.pitch) / 100.0f, std::memory_order_relaxed);
    shifter_->targetHz.store(v.targetPitch, std::memory_order_relaxed);
    shifter_->formantSemitones.store(v.formant, std::memory_order_relaxed);
    output_->volume.store(tremoloVolume(v, t), std::memory_order_relaxed);
}

}  // namespace parlova
