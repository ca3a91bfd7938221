#pragma once
// Audio file reading and writing for clips, recordings and exports.
//
// AudioFileReader decodes any common format (wav, flac, ogg/vorbis, ogg/opus,
// mp3, m4a/aac, ...) at the file's own sample rate and channel count into
// planar 32-bit float. The whole file is decoded when it is opened, so the
// frame length is exact and a damaged or truncated file is reported at once.
//
// AudioFileWriter encodes planar 32-bit float into .m4a (MPEG-4 AAC), .wav
// (32-bit float PCM) or .flac (24-bit). Every failure of either class is a
// VoiceEngineError whose text is a finished sentence naming the file.
#include "dsp/AudioBuffers.h"
#include "common/VoiceEngineError.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace parlova {

class AudioFileReader {
public:
    // Opens and decodes `path`. Throws VoiceEngineError when the file is
    // missing, unreadable, not audio, damaged or holds no audio.
    static std::unique_ptr<AudioFileReader> open(const std::string& path);

    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    // The file's own sample rate and channel count (the processing format).
    AudioFormat format() const { return format_; }
    // Exact number of frames the file holds.
    int64_t frameLength() const { return frameLength_; }
    // Frames not yet read.
    int64_t framesLeft() const { return frameLength_ - position_; }

    // Copies up to `maxFrames` frames into `channels` (one pointer per channel
    // of format()); returns the number of frames copied, 0 at the end.
    int read(float* const* channels, int maxFrames);
    // Starts reading from the first frame again.
    void rewind() { position_ = 0; }

    // Direct access to the decoded samples of one channel (frameLength() long).
    const float* channelData(int channel) const { return samples_[static_cast<size_t>(channel)].data(); }

private:
    AudioFileReader() = default;
    friend struct AudioFileDecoder;

    AudioFormat format_;
    int64_t frameLength_ = 0;
    int64_t position_ = 0;
    std::vector<std::vector<float>> samples_;
};

enum class AudioFileType { m4a, wav, flac };

// The file type for a path's extension (case-insensitive): .m4a (also .mp4 and
// .aac), .wav (also .wave) and .flac; nothing for any other extension.
std::optional<AudioFileType> audioFileTypeForPath(const std::string& path);

// The usual extension of a type, with its dot (".m4a", ".wav", ".flac").
const char* extensionForAudioFileType(AudioFileType type);

class AudioFileWriter {
public:
    // Creates `path` (replacing an existing file) for audio in `format`.
    // Throws VoiceEngineError when the destination can't be written or the
    // format can't be stored in that type.
    static std::unique_ptr<AudioFileWriter> create(const std::string& path, AudioFormat format,
                                                   AudioFileType type);
    // As above with the type taken from the path's extension; an unknown
    // extension throws a VoiceEngineError that lists the supported ones.
    static std::unique_ptr<AudioFileWriter> create(const std::string& path, AudioFormat format);

    // A writer destroyed before finish() removes its incomplete file.
    ~AudioFileWriter();
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    // Appends `frames` frames, one pointer per channel of the format. The
    // samples are copied and encoded on the writer's own thread, so a failure
    // (a full disk, say) is thrown by a later write() or by finish().
    void write(const float* const* channels, int frames);
    // Flushes the encoder and completes the file. Throws VoiceEngineError.
    void finish();

    AudioFormat format() const;
    // The rate stored in the file: the input rate, except for AAC at a rate
    // its encoder doesn't support, where the audio is resampled.
    int fileSampleRate() const;

    struct Impl;

private:
    explicit AudioFileWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace parlova
