// Performance figures of the voice chain and the offline render:
//   cpu_s_per_audio_s  CPU seconds spent per second of audio (lower is better)
//   worst_block_pct    slowest single block as a share of its real-time budget
//   p999_block_pct     the 99.9th percentile block, same measure (the worst
//                      block alone mostly measures the machine's own stalls)
//   x_realtime         how many times faster than real time a render runs
#include "media/AudioFile.h"
#include "engine/CleanMic.h"
#include "engine/OfflineRenderer.h"
#include "engine/TapRelay.h"
#include "engine/VoiceChain.h"

#include <benchmark/benchmark.h>

#include <QDir>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <random>
#include <thread>
#include <type_traits>

using namespace parlova;

namespace {

constexpr double kRate = 48000;
constexpr int kBlock = 256;

// Speech-like test signal: a gliding buzz with a breathy noise floor.
class BuzzSource : public AudioSource {
public:
    int32_t pull(BufferList& out, int frames) noexcept override {
        for (int i = 0; i < frames; ++i, ++n_) {
            const double t = static_cast<double>(n_) / kRate;
            const double f0 = 140 + 30 * std::sin(2 * M_PI * 0.7 * t);
            phase_ += f0 / kRate;
            phase_ -= std::floor(phase_);
            const float s = static_cast<float>(0.3 * (2 * phase_ - 1) + 0.01 * noise_(rng_));
            for (int c = 0; c < out.count; ++c) out.data[c][i] = s;
        }
        return status::ok;
    }

private:
    long n_ = 0;
    double phase_ = 0;
    std::mt19937 rng_{7};
    std::normal_distribution<float> noise_{0.0f, 1.0f};
};

// A second of the buzz, then the digital silence of a muted microphone or a
// closed gate: where decaying filter and network states turn denormal.
class BuzzThenSilenceSource : public AudioSource {
public:
    int32_t pull(BufferList& out, int frames) noexcept override {
        buzz_.pull(out, frames);
        for (int i = 0; i < frames; ++i, ++n_)
            if (n_ >= static_cast<long>(kRate))
                for (int c = 0; c < out.count; ++c) out.data[c][i] = 0.0f;
        return status::ok;
    }

private:
    BuzzSource buzz_;
    long n_ = 0;
};

// One 256-frame stereo buffer list with its own memory.
struct StereoBlock {
    std::vector<float> left = std::vector<float>(kBlock), right = std::vector<float>(kBlock);
    BufferList list;
    StereoBlock() {
        list.count = 2;
        list.data[0] = left.data();
        list.data[1] = right.data();
    }
};

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

template <class RenderBlock>
void reportBlocks(benchmark::State& state, RenderBlock&& renderBlock) {
    const double budget = kBlock / kRate;
    double worst = 0, cpu = 0, audio = 0;
    long blocks = 0;
    std::vector<double> walls;
    walls.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const double c0 = threadCpuSeconds();
        const auto w0 = std::chrono::steady_clock::now();
        renderBlock(blocks);
        const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - w0;
        cpu += threadCpuSeconds() - c0;
        audio += budget;
        if (++blocks > 200) {  // after the first fill of the shifter
            worst = std::max(worst, wall.count());
            walls.push_back(wall.count());
        }
    }
    state.counters["cpu_s_per_audio_s"] = cpu / audio;
    state.counters["worst_block_pct"] = 100.0 * worst / budget;
    if (!walls.empty()) {
        const auto at = walls.begin() + static_cast<long>(0.999 * static_cast<double>(walls.size() - 1));
        std::nth_element(walls.begin(), at, walls.end());
        state.counters["p999_block_pct"] = 100.0 * *at / budget;
    }
}

void WholeChainStereo48k(benchmark::State& state) {
    BuzzSource source;
    Voice voice = Voice::builtIns()[0];
    VoiceChain chain(voice, &source, {kRate, 2});
    StereoBlock buffers;
    BufferList& list = buffers.list;
    reportBlocks(state, [&](long block) {
        chain.modulate(static_cast<double>(block * kBlock) / kRate);
        benchmark::DoNotOptimize(chain.render(list, kBlock));
    });
}
BENCHMARK(WholeChainStereo48k)->Iterations(20000)->Unit(benchmark::kMicrosecond);

void ShifterAloneStereo48k(benchmark::State& state) {
    BuzzSource source;
    FormantShifterUnit unit;
    unit.setInput(&source);
    unit.setFormat({kRate, 2});
    unit.allocateRenderResources();
    unit.pitchSemitones = 6.5f;
    unit.formantSemitones = 3.5f;
    StereoBlock buffers;
    BufferList& list = buffers.list;
    reportBlocks(state, [&](long) { benchmark::DoNotOptimize(unit.pull(list, kBlock)); });
}
BENCHMARK(ShifterAloneStereo48k)->Iterations(20000)->Unit(benchmark::kMicrosecond);

// A 60 s stereo 48 kHz clip rendered to .m4a, as "parlova-cli render" does.
void Render60sToM4a(benchmark::State& state) {
    const std::string dir = QDir::tempPath().toStdString();
    const std::string input = dir + "/parlova-bench-60s.wav", output = dir + "/parlova-bench-60s.m4a";
    {
        BuzzSource source;
        auto writer = AudioFileWriter::create(input, {kRate, 2}, AudioFileType::wav);
        std::vector<float> l(4096), r(4096);
        BufferList list;
        list.count = 2;
        list.data[0] = l.data();
        list.data[1] = r.data();
        float* channels[2] = {l.data(), r.data()};
        for (long done = 0; done < 60 * static_cast<long>(kRate); done += 4096) {
            source.pull(list, 4096);
            writer->write(channels, 4096);
        }
        writer->finish();
    }
    double seconds = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        renderOffline(input, output, Voice::builtIns()[0]);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    state.counters["x_realtime"] = 60.0 / seconds;
    QDir().remove(QString::fromStdString(input));
    QDir().remove(QString::fromStdString(output));
}
BENCHMARK(Render60sToM4a)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace


namespace {

// Each unit after the shifter on its own, to see where the chain's time goes.
template <class Unit>
void UnitAloneStereo48k(benchmark::State& state) {
    BuzzSource source;
    Unit unit;
    unit.setInput(&source);
    unit.setFormat({kRate, 2});
    unit.allocateRenderResources();
    if constexpr (std::is_same_v<Unit, GrainAudioUnit>) unit.amount = 0.15f;
    if constexpr (std::is_same_v<Unit, Reverb>) unit.setWetDryMix(5);
    if constexpr (std::is_same_v<Unit, Equalizer>) {
        unit.setBand(0, 100, 0, false);
        unit.setBand(1, 200, -1, false);
        unit.setBand(2, 2400, 2, false);
        unit.setBand(3, 9000, 0, false);
        unit.setGlobalGain(6);
    }
    StereoBlock buffers;
    BufferList& list = buffers.list;
    reportBlocks(state, [&](long) { benchmark::DoNotOptimize(unit.pull(list, kBlock)); });
}
BENCHMARK(UnitAloneStereo48k<GrainAudioUnit>)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(UnitAloneStereo48k<Equalizer>)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(UnitAloneStereo48k<Reverb>)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(UnitAloneStereo48k<PeakLimiter>)->Iterations(20000)->Unit(benchmark::kMicrosecond);

// The live case: a mono microphone feeding the chain, talking or silent.
template <class Source>
void WholeChainMonoSource48k(benchmark::State& state) {
    Source source;
    VoiceChain chain(Voice::builtIns()[0], &source, {kRate, 1});
    StereoBlock buffers;
    BufferList& list = buffers.list;
    reportBlocks(state, [&](long block) {
        chain.modulate(static_cast<double>(block * kBlock) / kRate);
        benchmark::DoNotOptimize(chain.render(list, kBlock));
    });
}
BENCHMARK(WholeChainMonoSource48k<BuzzSource>)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(WholeChainMonoSource48k<BuzzThenSilenceSource>)->Iterations(20000)->Unit(benchmark::kMicrosecond);

// The same with the low-delay setting's shorter shifter block.
void WholeChainMonoSourceLowDelay48k(benchmark::State& state) {
    BuzzSource source;
    VoiceChain chain(Voice::builtIns()[0], &source, {kRate, 1}, VoiceChain::kMaxFrames, ShifterTiming::low());
    StereoBlock buffers;
    BufferList& list = buffers.list;
    reportBlocks(state, [&](long block) {
        chain.modulate(static_cast<double>(block * kBlock) / kRate);
        benchmark::DoNotOptimize(chain.render(list, kBlock));
    });
}
BENCHMARK(WholeChainMonoSourceLowDelay48k)->Iterations(20000)->Unit(benchmark::kMicrosecond);

// The clean-mic stage alone (denoiser and gate analysis) on a mono microphone.
template <class Source>
void CleanMicMono48k(benchmark::State& state) {
    Source source;
    CleanMicSource clean(source, 1, kRate, std::make_shared<CleanMicControl>());
    StereoBlock buffers;
    BufferList& list = buffers.list;
    reportBlocks(state, [&](long) { benchmark::DoNotOptimize(clean.pull(list, kBlock)); });
}
BENCHMARK(CleanMicMono48k<BuzzSource>)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(CleanMicMono48k<BuzzThenSilenceSource>)->Iterations(20000)->Unit(benchmark::kMicrosecond);

// The real-time side of the tap relay while its handler is far too slow: each
// push must stay a copy into the ring (or a drop), never a wait.
void TapRelayPushWithSlowHandler(benchmark::State& state) {
    TapRelay relay(kBlock, [](const float*, int) { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }, 4);
    StereoBlock buffers;
    reportBlocks(state, [&](long) { relay.push(buffers.left.data(), kBlock); });
    state.counters["dropped"] = static_cast<double>(relay.dropped());
}
BENCHMARK(TapRelayPushWithSlowHandler)->Iterations(2000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
