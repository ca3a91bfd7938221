#include "engine/OfflineRenderer.h"

#include "media/AudioFile.h"
#include "media/AudioFileSupport.h"
#include "engine/CleanMic.h"
#include "engine/GuardedAudio.h"
#include "media/RateConverter.h"
#include "engine/VoiceStage.h"
#include "engine/VoiceChain.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace parlova {

namespace {

// Plays a decoded file into the chain, then silence (the tail).
class FilePlayer : public AudioSource {
public:
    explicit FilePlayer(AudioFileReader& reader) : reader_(reader) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        const int channels = reader_.format().channels;
        if (out.count < channels) return status::renderError;
        const int got = reader_.read(out.data, frames);
        for (int c = 0; c < out.count; ++c)
            std::fill(out.data[c] + got, out.data[c] + frames, 0.0f);
        return status::ok;
    }

private:
    AudioFileReader& reader_;
};

// The chain's stereo mixed into the file's channel layout.
void mixToFile(const float* const* stereo, float* const* file, int fileChannels, int frames) {
    if (fileChannels == 1) {
        for (int i = 0; i < frames; ++i) file[0][i] = 0.5f * (stereo[0][i] + stereo[1][i]);
        return;
    }
    for (int c = 0; c < fileChannels; ++c) {
        if (c < 2)
            std::memcpy(file[c], stereo[c], static_cast<size_t>(frames) * sizeof(float));
        else
            std::fill(file[c], file[c] + frames, 0.0f);
    }
}

}  // namespace

long long renderedLength(long long sourceFrames, double sampleRate) {
    return sourceFrames + static_cast<long long>(std::floor(sampleRate * kRenderTailSeconds));
}

void renderOffline(const std::string& source, const std::string& destination, const Voice& voice,
                   const RenderProgress& progress, std::shared_ptr<const CleanMicControl> cleanMic) {
    if (!audioFileTypeForPath(destination)) {
        // Refuse before anything at the destination is touched.
        const std::string suffix = QFileInfo(QString::fromStdString(destination)).suffix().toStdString();
        if (suffix.empty())
            throw VoiceEngineError("The file name \u201c" + audiofile::displayName(destination) +
                                   "\u201d has no type; end it with .m4a, .wav or .flac.");
        throw VoiceEngineError("The file type \u201c." + suffix +
                               "\u201d isn't supported; use .m4a, .wav or .flac.");
    }
    auto reader = AudioFileReader::open(source);
    const AudioFormat format = reader->format();
    const bool converting = format.sampleRate != kChainSampleRate;
    FilePlayer player(*reader);
    // File rate -> chain rate on the way in, chain rate -> file rate on the way out.
    std::unique_ptr<RateConvertingSource> toChain;
    std::unique_ptr<RateConverter> fromChain;
    std::unique_ptr<CleanMicSource> clean;
    std::unique_ptr<VoiceChain> chain = guardedAudio([&] {
        AudioSource* input = &player;
        if (converting) {
            toChain = RateConvertingSource::create(&player, format.channels, format.sampleRate, kChainSampleRate,
                                                   kRenderBlockFrames);
            fromChain = RateConverter::create(kChainSampleRate, format.sampleRate, 2, kRenderBlockFrames);
            if (!toChain || !fromChain)
                throw VoiceEngineError(unconvertibleRateMessage(format.sampleRate));
            input = toChain.get();
        }
        int channels = format.channels;
        if (cleanMic) {
            clean = std::make_unique<CleanMicSource>(*input, channels, kChainSampleRate, cleanMic, kRenderBlockFrames);
            input = clean.get();
            channels = 1;
        }
        auto made = std::make_unique<VoiceChain>(voice, input, AudioFormat{static_cast<double>(kChainSampleRate), channels});
        if (clean) clean->prepareGate(static_cast<int>(std::lround(EffectVoiceStage::latencySeconds(*made) * kChainSampleRate)));
        return made;
    });

    QFile::remove(QString::fromStdString(destination));  // a failure here shows up when writing
    auto writer = AudioFileWriter::create(destination, format);

    // The chain's stereo block, what the way back makes of it, and that in the file's layout.
    const int outFrames = fromChain ? fromChain->maxOutputFrames() : kRenderBlockFrames;
    std::vector<float> stereoStorage(2 * kRenderBlockFrames), backStorage(fromChain ? 2 * outFrames : 0),
        fileStorage(static_cast<size_t>(format.channels) * static_cast<size_t>(outFrames));
    BufferList stereo;
    stereo.count = 2;
    float* back[2] = {};
    for (int c = 0; c < 2; ++c) {
        stereo.data[c] = stereoStorage.data() + c * kRenderBlockFrames;
        if (fromChain) back[c] = backStorage.data() + static_cast<size_t>(c) * static_cast<size_t>(outFrames);
    }
    std::vector<float*> fileChannels(static_cast<size_t>(format.channels));
    for (int c = 0; c < format.channels; ++c)
        fileChannels[static_cast<size_t>(c)] = fileStorage.data() + static_cast<size_t>(c) * static_cast<size_t>(outFrames);

    // Blocks are counted at the chain's rate, the length at the file's: the
    // chain runs until the way back has delivered the whole length.
    const long long total = renderedLength(reader->frameLength(), format.sampleRate);
    long long written = 0, chainTime = 0;
    long long nextReport = 0;
    const long long reportEvery = std::max<long long>(total / 200, kRenderBlockFrames);
    while (written < total) {
        const int frames = converting ? kRenderBlockFrames
                                      : static_cast<int>(std::min<long long>(total - written, kRenderBlockFrames));
        chain->modulate(static_cast<double>(chainTime) / kChainSampleRate);
        const int32_t result = chain->render(stereo, frames);
        if (result == status::insufficientData) continue;
        if (result != status::ok) throw VoiceEngineError(kRendererErrorMessage);
        if (clean) clean->gateOutput(stereo, frames);
        chainTime += frames;
        const float* const* block = stereo.data;
        int got = frames;
        if (fromChain) {
            got = fromChain->process(stereo.data, frames, back);
            if (got < 0) throw VoiceEngineError(kRendererErrorMessage);
            block = back;
        }
        got = static_cast<int>(std::min<long long>(got, total - written));
        if (got == 0) continue;
        mixToFile(block, fileChannels.data(), format.channels, got);
        writer->write(fileChannels.data(), got);
        written += got;
        if (progress && written >= nextReport) {
            nextReport = written + reportEvery;
            if (!progress(static_cast<double>(written) / static_cast<double>(total)))
                throw VoiceEngineError("The export was cancelled.");
        }
    }
    writer->finish();
    if (progress) progress(1.0);
}

}  // namespace parlova
