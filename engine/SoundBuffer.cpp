#include "engine/SoundBuffer.h"

#include "common/VoiceEngineError.h"
#include "media/AudioFile.h"
#include "media/RateConverter.h"

namespace parlova {

namespace {

std::vector<float> atChainRate(const float* samples, size_t count, double rate, const std::string& path) {
    if (rate == kChainSampleRate) return {samples, samples + count};
    auto converter = RateConverter::create(rate, kChainSampleRate, 1, 4096);
    std::vector<float> converted;
    if (!converter || !converter->convert(samples, count, converted))
        throw VoiceEngineError("Couldn't convert " + path + " to the playing rate.");
    std::vector<float> tail(static_cast<size_t>(converter->maxOutputFrames()));
    float* out = tail.data();
    for (int got; (got = converter->flush(&out)) > 0;) converted.insert(converted.end(), out, out + got);
    return converted;
}

}  // namespace

std::shared_ptr<const SoundBuffer> decodeSound(const std::string& path) {
    auto reader = AudioFileReader::open(path);
    const AudioFormat format = reader->format();
    const auto count = static_cast<size_t>(reader->frameLength());
    auto sound = std::make_shared<SoundBuffer>();
    sound->left = atChainRate(reader->channelData(0), count, format.sampleRate, path);
    sound->right = format.channels > 1 ? atChainRate(reader->channelData(1), count, format.sampleRate, path)
                                       : sound->left;
    sound->right.resize(sound->left.size());
    return sound;
}

}  // namespace parlova
