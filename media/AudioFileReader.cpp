// Decodes a whole audio file into planar float with FFmpeg.
#include "media/AudioFile.h"
#include "media/AudioFileSupport.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <system_error>

namespace fs = std::filesystem;

namespace parlova {

namespace audiofile {

void quietFFmpegLogging() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (!std::getenv("PARLOVA_FFMPEG_LOG")) av_log_set_level(AV_LOG_FATAL);
    });
}

std::string errnoText(int err) {
    std::string text = std::strerror(err);
    if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z' && !(text.size() > 1 && text[1] >= 'A' && text[1] <= 'Z'))
        text[0] = static_cast<char>(text[0] - 'A' + 'a');
    return text;
}

}  // namespace audiofile

using audiofile::displayName;
using audiofile::inQuotes;

namespace {

// Owners of the FFmpeg objects, so every early exit frees them.
struct FormatInput {
    AVIOContext* io = nullptr;  // our own, so probing and opening share it
    AVFormatContext* ctx = nullptr;
    ~FormatInput() {
        avformat_close_input(&ctx);
        avio_closep(&io);
    }
};
struct CodecContext {
    AVCodecContext* ctx = nullptr;
    ~CodecContext() { avcodec_free_context(&ctx); }
};
struct Packet {
    AVPacket* pkt = av_packet_alloc();
    ~Packet() { av_packet_free(&pkt); }
};
struct Frame {
    AVFrame* frame = av_frame_alloc();
    ~Frame() { av_frame_free(&frame); }
};

template <typename T>
inline float toFloat(T v);
template <>
inline float toFloat(uint8_t v) { return (static_cast<float>(v) - 128.0f) * (1.0f / 128.0f); }
template <>
inline float toFloat(int16_t v) { return static_cast<float>(v) * (1.0f / 32768.0f); }
template <>
inline float toFloat(int32_t v) { return static_cast<float>(static_cast<double>(v) * (1.0 / 2147483648.0)); }
template <>
inline float toFloat(int64_t v) { return static_cast<float>(static_cast<double>(v) * (1.0 / 9223372036854775808.0)); }
template <>
inline float toFloat(float v) { return v; }
template <>
inline float toFloat(double v) { return static_cast<float>(v); }

// Converts `frames` samples of one channel (interleaved with `stride` or planar
// when stride is 1) into float.
template <typename T>
void convert(const uint8_t* data, int offset, int stride, int frames, float* out) {
    const T* in = reinterpret_cast<const T*>(data) + offset;
    if (stride == 1) {
        for (int i = 0; i < frames; ++i) out[i] = toFloat<T>(in[i]);
    } else {
        for (int i = 0; i < frames; ++i) out[i] = toFloat<T>(in[static_cast<ptrdiff_t>(i) * stride]);
    }
}

// A RIFF WAVE file whose data chunk claims more bytes than the file holds was
// cut short; FFmpeg quietly reads what is there, so look at the header
// ourselves. Streamed headers (size 0 or all ones) and RF64 are left alone.
bool wavDataCutShort(const std::string& path, uintmax_t fileSize) {
    std::ifstream f(path, std::ios::binary);
    char id[4];
    uint8_t size[4];
    auto readChunk = [&]() {
        return static_cast<bool>(f.read(id, 4)) && static_cast<bool>(f.read(reinterpret_cast<char*>(size), 4));
    };
    auto sizeValue = [&]() {
        return uint32_t{size[0]} | uint32_t{size[1]} << 8 | uint32_t{size[2]} << 16 | uint32_t{size[3]} << 24;
    };
    char wave[4];
    if (!readChunk() || std::memcmp(id, "RIFF", 4) != 0 || !f.read(wave, 4) || std::memcmp(wave, "WAVE", 4) != 0)
        return false;
    uintmax_t offset = 12;
    for (int chunks = 0; chunks < 64 && readChunk(); ++chunks) {
        const uint32_t n = sizeValue();
        offset += 8;
        if (std::memcmp(id, "data", 4) == 0) return n != 0 && n != 0xFFFFFFFFu && offset + n > fileSize;
        offset += n + (n & 1u);  // chunks are padded to even sizes
        if (offset >= fileSize) return false;
        f.seekg(static_cast<std::streamoff>(offset));
    }
    return false;
}

}  // namespace

// Does the decoding for AudioFileReader::open; a friend so it can fill the reader.
struct AudioFileDecoder {
    std::string name;

    [[noreturn]] void fail(const std::string& sentence) const { throw VoiceEngineError(sentence); }
    [[noreturn]] void notAudio() const { fail("The file " + inQuotes(name) + " isn't an audio file Parlova can read."); }
    [[noreturn]] void damaged() const { fail("The file " + inQuotes(name) + " is damaged or incomplete."); }
    [[noreturn]] void noAudio() const { fail("The file " + inQuotes(name) + " holds no audio."); }
    [[noreturn]] void ioError(int err) const {
        if (err == EACCES || err == EPERM) fail("Parlova isn't allowed to read the file " + inQuotes(name) + ".");
        fail("Parlova couldn't read the file " + inQuotes(name) + ": " + audiofile::errnoText(err) + ".");
    }

    // Checks what the path names before FFmpeg sees it.
    void checkPath(const std::string& path) const {
        std::error_code ec;
        const fs::file_status st = fs::status(path, ec);
        if (ec || !fs::exists(st)) {
            if (ec && ec != std::errc::no_such_file_or_directory && ec != std::errc::not_a_directory)
                ioError(ec.value());
            fail("The file " + inQuotes(name) + " doesn't exist.");
        }
        if (fs::is_directory(st)) fail(inQuotes(name) + " is a folder, not an audio file.");
        if (!fs::is_regular_file(st)) notAudio();
        const auto size = fs::file_size(path, ec);
        if (!ec && size == 0) noAudio();
    }

    void decode(const std::string& path, AudioFileReader& reader) {
        audiofile::quietFFmpegLogging();
        checkPath(path);

        // Recognise the format from the content first, so that a file that
        // isn't audio and a file that is audio but broken get different words.
        FormatInput input;
        int err = avio_open(&input.io, path.c_str(), AVIO_FLAG_READ);
        if (err < 0) {
            if (err == AVERROR(ENOENT)) fail("The file " + inQuotes(name) + " doesn't exist.");
            if (err == AVERROR(ENOMEM)) fail("There isn't enough memory to open " + inQuotes(name) + ".");
            ioError(err > -4096 ? AVUNERROR(err) : EIO);
        }
        const AVInputFormat* container = nullptr;
        const int score = av_probe_input_buffer2(input.io, &container, path.c_str(), nullptr, 0, 0);
        // A format recognised only with a weak guess is most likely not audio
        // at all (random bytes can look like a few frames of MPEG audio).
        if (score < AVPROBE_SCORE_RETRY || !container) notAudio();
        input.ctx = avformat_alloc_context();
        if (!input.ctx) fail("There isn't enough memory to open " + inQuotes(name) + ".");
        input.ctx->pb = input.io;
        input.ctx->flags |= AVFMT_FLAG_CUSTOM_IO;
        err = avformat_open_input(&input.ctx, path.c_str(), container, nullptr);  // frees ctx on failure
        if (err < 0) {
            if (err == AVERROR(ENOMEM)) fail("There isn't enough memory to open " + inQuotes(name) + ".");
            damaged();
        }
        if (avformat_find_stream_info(input.ctx, nullptr) < 0) damaged();
        if (std::strcmp(container->name, "wav") == 0) {
            std::error_code ec;
            const uintmax_t fileSize = fs::file_size(path, ec);
            if (!ec && wavDataCutShort(path, fileSize)) damaged();
        }

        const AVCodec* codec = nullptr;
        const int streamIndex = av_find_best_stream(input.ctx, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
        if (streamIndex == AVERROR_DECODER_NOT_FOUND)
            fail("The file " + inQuotes(name) + " uses an audio format Parlova can't decode.");
        if (streamIndex < 0) notAudio();
        AVStream* stream = input.ctx->streams[streamIndex];
        for (unsigned i = 0; i < input.ctx->nb_streams; ++i)
            if (static_cast<int>(i) != streamIndex) input.ctx->streams[i]->discard = AVDISCARD_ALL;

        CodecContext decoder;
        decoder.ctx = avcodec_alloc_context3(codec);
        if (!decoder.ctx) fail("There isn't enough memory to open " + inQuotes(name) + ".");
        if (avcodec_parameters_to_context(decoder.ctx, stream->codecpar) < 0) damaged();
        decoder.ctx->pkt_timebase = stream->time_base;
        if (avcodec_open2(decoder.ctx, codec, nullptr) < 0)
            fail("The file " + inQuotes(name) + " uses an audio format Parlova can't decode.");

        // The declared length, when the container states it rather than
        // guessing it from the bit rate; used to size the buffers, to notice
        // a truncated file and to drop the encoder's padding at the end.
        int64_t declared = -1;
        const int declaredRate = stream->codecpar->sample_rate;
        if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0 && declaredRate > 0 &&
            input.ctx->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE)
            declared = av_rescale_q(stream->duration, stream->time_base, AVRational{1, declaredRate});

        Packet packet;
        Frame frame;
        if (!packet.pkt || !frame.frame) fail("There isn't enough memory to open " + inQuotes(name) + ".");

        int channels = 0;
        int rate = 0;
        int64_t length = 0;
        int64_t packets = 0;
        int64_t badPackets = 0;
        auto& samples = reader.samples_;

        auto receiveFrames = [&]() {
            for (;;) {
                const int r = avcodec_receive_frame(decoder.ctx, frame.frame);
                if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return;
                if (r < 0) {
                    ++badPackets;
                    return;
                }
                const AVFrame* f = frame.frame;
                if (channels == 0) {
                    channels = f->ch_layout.nb_channels;
                    rate = f->sample_rate;
                    if (channels <= 0 || rate <= 0) damaged();
                    if (channels > kMaxChannels)
                        fail("The file " + inQuotes(name) + " has " + std::to_string(channels) +
                             " channels; Parlova can read at most " + std::to_string(kMaxChannels) + ".");
                    samples.assign(static_cast<size_t>(channels), {});
                    if (declared > 0 && declared < (int64_t{1} << 31))
                        for (auto& ch : samples) ch.reserve(static_cast<size_t>(declared) + 8192);
                } else if (f->ch_layout.nb_channels != channels || f->sample_rate != rate) {
                    // A stream that changes shape midway can't be one clip.
                    damaged();
                }
                appendFrame(f, samples, length);
                av_frame_unref(frame.frame);
            }
        };

        for (;;) {
            err = av_read_frame(input.ctx, packet.pkt);
            if (err == AVERROR_EOF) break;
            if (err < 0) {
                if (err == AVERROR(EIO) || err == AVERROR(EACCES)) ioError(AVUNERROR(err));
                damaged();
            }
            if (packet.pkt->stream_index == streamIndex) {
                ++packets;
                const int s = avcodec_send_packet(decoder.ctx, packet.pkt);
                if (s < 0 && s != AVERROR(EAGAIN)) ++badPackets;
                receiveFrames();
            }
            av_packet_unref(packet.pkt);
        }
        avcodec_send_packet(decoder.ctx, nullptr);
        receiveFrames();

        // A few undecodable packets (a stray tag, a broken first frame) are
        // tolerated as every player does; many mean the file is broken.
        if (badPackets > 2 && badPackets * 20 > packets) damaged();
        if (length == 0) {
            if (badPackets > 0 || declared > 0) damaged();
            noAudio();
        }
        if (declared > 0 && rate == declaredRate) {
            const int64_t tolerance = std::max<int64_t>(4096, declared / 50);
            if (length + tolerance < declared) damaged();
            // Containers that state the exact length (MPEG-4 edit lists) leave
            // the encoder's padding after it; drop it.
            if (length > declared) length = declared;
        }
        for (auto& ch : samples) {
            ch.resize(static_cast<size_t>(length));
            ch.shrink_to_fit();
        }
        reader.format_ = AudioFormat{static_cast<double>(rate), channels};
        reader.frameLength_ = length;
        reader.position_ = 0;
    }

    static void appendFrame(const AVFrame* f, std::vector<std::vector<float>>& samples, int64_t& length) {
        const int n = f->nb_samples;
        if (n <= 0) return;
        const int channels = static_cast<int>(samples.size());
        const auto fmt = static_cast<AVSampleFormat>(f->format);
        const bool planar = av_sample_fmt_is_planar(fmt);
        for (int c = 0; c < channels; ++c) {
            auto& out = samples[static_cast<size_t>(c)];
            const size_t start = out.size();
            out.resize(start + static_cast<size_t>(n));
            float* dst = out.data() + start;
            const uint8_t* data = planar ? f->extended_data[c] : f->extended_data[0];
            const int offset = planar ? 0 : c;
            const int stride = planar ? 1 : channels;
            switch (av_get_packed_sample_fmt(fmt)) {
            case AV_SAMPLE_FMT_U8: convert<uint8_t>(data, offset, stride, n, dst); break;
            case AV_SAMPLE_FMT_S16: convert<int16_t>(data, offset, stride, n, dst); break;
            case AV_SAMPLE_FMT_S32: convert<int32_t>(data, offset, stride, n, dst); break;
            case AV_SAMPLE_FMT_S64: convert<int64_t>(data, offset, stride, n, dst); break;
            case AV_SAMPLE_FMT_FLT: convert<float>(data, offset, stride, n, dst); break;
            case AV_SAMPLE_FMT_DBL: convert<double>(data, offset, stride, n, dst); break;
            default: std::fill(dst, dst + n, 0.0f); break;
            }
        }
        length += n;
    }
};

std::unique_ptr<AudioFileReader> AudioFileReader::open(const std::string& path) {
    std::unique_ptr<AudioFileReader> reader(new AudioFileReader());
    AudioFileDecoder decoder{displayName(path)};
    try {
        decoder.decode(path, *reader);
    } catch (const std::bad_alloc&) {
        throw VoiceEngineError("There isn't enough memory to open " + inQuotes(decoder.name) + ".");
    }
    return reader;
}

AudioFileReader::~AudioFileReader() = default;

int AudioFileReader::read(float* const* channels, int maxFrames) {
    if (maxFrames <= 0) return 0;
    const int frames = static_cast<int>(std::min<int64_t>(maxFrames, frameLength_ - position_));
    if (frames <= 0) return 0;
    for (int c = 0; c < format_.channels; ++c)
        std::memcpy(channels[c], samples_[static_cast<size_t>(c)].data() + position_,
                    static_cast<size_t>(frames) * sizeof(float));
    position_ += frames;
    return frames;
}

}  // namespace parlova
