#include "cloning/LocalRecogniser.h"

#include "common/VoiceEngineError.h"
#include "media/AudioFile.h"
#include "media/RateConverter.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <vector>

#ifdef PARLOVA_HAVE_POCKETSPHINX
#include <pocketsphinx.h>
#endif

namespace parlova {

namespace {

// The acoustic model is trained on 16 kHz speech.
constexpr double kModelRate = 16000.0;

#ifdef PARLOVA_HAVE_POCKETSPHINX
QString modelFile(const char* name) { return QDir(QStringLiteral(PARLOVA_POCKETSPHINX_MODELDIR "/en-us")).filePath(name); }

// The file as 16 kHz mono 16-bit samples, with half a second of silence
// after it so the decoder hears the last word end.
std::optional<std::vector<int16_t>> speechSamples(const QString& path) {
    std::unique_ptr<AudioFileReader> reader;
    try {
        reader = AudioFileReader::open(path.toStdString());
    } catch (const VoiceEngineError&) {
        return std::nullopt;
    }
    const AudioFormat format = reader->format();
    const auto frames = size_t(reader->frameLength());
    std::vector<float> mono(frames, 0.0f);
    for (int c = 0; c < format.channels; ++c) {
        const float* data = reader->channelData(c);
        for (size_t i = 0; i < frames; ++i) mono[i] += data[i] / float(format.channels);
    }
    reader.reset();
    mono.resize(frames + size_t(format.sampleRate / 2), 0.0f);
    auto converter = RateConverter::create(format.sampleRate, kModelRate, 1, 4096);
    if (!converter) return std::nullopt;
    std::vector<float> resampled;
    if (converter->passesThrough()) resampled = std::move(mono);
    else if (!converter->convert(mono.data(), mono.size(), resampled)) return std::nullopt;

    std::vector<int16_t> samples(resampled.size());
    std::transform(resampled.begin(), resampled.end(), samples.begin(),
                   [](float s) { return int16_t(std::lround(std::clamp(s, -1.0f, 1.0f) * 32767.0f)); });
    return samples;
}

#if PARLOVA_POCKETSPHINX_API >= 5
struct Decoder {
    ps_config_t* config = nullptr;
    ps_decoder_t* decoder = nullptr;
    Decoder() {
        err_set_loglevel(ERR_FATAL);
        config = ps_config_init(nullptr);
        ps_config_set_str(config, "hmm", modelFile("en-us").toUtf8().constData());
        ps_config_set_str(config, "lm", modelFile("en-us.lm.bin").toUtf8().constData());
        ps_config_set_str(config, "dict", modelFile("cmudict-en-us.dict").toUtf8().constData());
        decoder = ps_init(config);
    }
    ~Decoder() {
        if (decoder) ps_free(decoder);
        ps_config_free(config);
    }
};
#else
struct Decoder {
    cmd_ln_t* config = nullptr;
    ps_decoder_t* decoder = nullptr;
    Decoder() {
        const QByteArray hmm = modelFile("en-us").toUtf8(), lm = modelFile("en-us.lm.bin").toUtf8(),
                         dict = modelFile("cmudict-en-us.dict").toUtf8();
        // The decoder's own log would fill the terminal of parlova-cli.
        config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-lm", lm.constData(), "-dict",
                             dict.constData(), "-logfn", "/dev/null", nullptr);
        if (config) decoder = ps_init(config);
    }
    ~Decoder() {
        if (decoder) ps_free(decoder);
        if (config) cmd_ln_free_r(config);
    }
};
#endif
#endif

}  // namespace

bool LocalRecogniser::isAvailable() {
#ifdef PARLOVA_HAVE_POCKETSPHINX
    return QFileInfo(modelFile("en-us.lm.bin")).isFile() && QFileInfo(modelFile("en-us/mdef")).isFile();
#else
    return false;
#endif
}

std::optional<QString> LocalRecogniser::recognise(const QString& path) {
#ifdef PARLOVA_HAVE_POCKETSPHINX
    if (!isAvailable()) return std::nullopt;
    const auto samples = speechSamples(path);
    if (!samples || samples->empty()) return std::nullopt;
    Decoder decoder;
    if (!decoder.decoder || ps_start_utt(decoder.decoder) < 0) return std::nullopt;
    ps_process_raw(decoder.decoder, samples->data(), samples->size(), 0, 1);
    ps_end_utt(decoder.decoder);
    int32 score = 0;
    const char* hypothesis = ps_get_hyp(decoder.decoder, &score);
    QString text = QString::fromUtf8(hypothesis ? hypothesis : "").simplified();
    if (text.isEmpty()) return std::nullopt;
    text[0] = text[0].toUpper();
    return text + '.';
#else
    (void)path;
    return std::nullopt;
#endif
}

}  // namespace parlova
