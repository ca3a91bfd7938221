#include "engine/OfflineRenderer.h"

#include "engine/AudioFile.h"
#include "engine/GuardedAudio.h"
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
                   const RenderProgress& progress) {
    if (!audioFileTypeForPath(destination)) {
        // Refuse before anything at the destination is touched.
        const std::string suffix = QFileInfo(QString::fromStdString(destination)).suffix().toStdString();
        throw VoiceEngineError("The file type \u201c." + suffix +
                               "\u201d isn't supported; use .m4a, .wav or .flac.");
    }
    auto reader = AudioFileReader::open(source);
    const AudioFormat format = reader->format();
    FilePlayer player(*reader);
    auto chain = guardedAudio([&] { return std::make_unique<VoiceChain>(voice, &player, format); });

    QFile::remove(QString::fromStdString(destination));  // a failure here shows up when writing
    auto writer = AudioFileWriter::create(destination, format);

    std::vector<float> stereoStorage(2 * kRenderBlockFrames), fileStorage(
        static_cast<size_t>(format.channels) * kRenderBlockFrames);
    BufferList stereo;
    stereo.count = 2;
    for (int c = 0; c < 2; ++c) stereo.data[c] = stereoStorage.data() + c * kRenderBlockFrames;
    std::vector<float*> fileChannels(static_cast<size_t>(format.channels));
    for (int c = 0; c < format.channels; ++c)
        fileChannels[static_cast<size_t>(c)] = fileStorage.data() + static_cast<size_t>(c) * kRenderBlockFrames;

    const long long total = renderedLength(reader->frameLength(), format.sampleRate);
    long long sampleTime = 0;
    long long nextReport = 0;
    const long long reportEvery = std::max<long long>(total / 200, kRenderBlockFrames);
    while (sampleTime < total) {
        const int frames = static_cast<int>(std::min<long long>(total - sampleTime, kRenderBlockFrames));
        chain->modulate(static_cast<double>(sampleTime) / format.sampleRate);
        const int32_t result = chain->render(stereo, frames);
        if (result == status::insufficientData) continue;
        if (result != status::ok) throw VoiceEngineError(kRendererErrorMessage);
        mixToFile(stereo.data, fileChannels.data(), format.channels, frames);
        writer->write(fileChannels.data(), frames);
        sampleTime += frames;
        if (progress && sampleTime >= nextReport) {
            nextReport = sampleTime + reportEvery;
            if (!progress(static_cast<double>(sampleTime) / static_cast<double>(total)))
                throw VoiceEngineError("The export was cancelled.");
        }
    }
    writer->finish();
    if (progress) progress(1.0);
}

}  // namespace parlova
