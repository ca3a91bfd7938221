// Encodes planar float into .m4a (AAC), .wav (32-bit float) or .flac (24-bit)
// with FFmpeg. Input of any block size goes through a FIFO that hands the
// encoder exactly the frame size it asks for.
#include "media/AudioFile.h"
#include "media/AudioFileSupport.h"
#include "media/RateConverter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace parlova {

using audiofile::displayName;
using audiofile::inQuotes;

std::optional<AudioFileType> audioFileTypeForPath(const std::string& path) {
    std::string ext = fs::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ext == ".m4a" || ext == ".mp4" || ext == ".aac") return AudioFileType::m4a;
    if (ext == ".wav" || ext == ".wave") return AudioFileType::wav;
    if (ext == ".flac") return AudioFileType::flac;
    return std::nullopt;
}

const char* extensionForAudioFileType(AudioFileType type) {
    switch (type) {
    case AudioFileType::m4a: return ".m4a";
    case AudioFileType::wav: return ".wav";
    case AudioFileType::flac: return ".flac";
    }
    return "";
}

namespace {

constexpr int kAacBitRatePerChannel = 96000;
constexpr int kVariableFrameSize = 4096;  // block size for encoders that take any size
constexpr int kResampleBlock = 8192;      // input frames per resampler call

// Interleaves `frames` samples of `channels` planar buffers into 24-bit
// values left-justified in 32 bits, as the FLAC encoder takes them.
void interleaveInt24(const std::vector<std::vector<float>>& in, int frames, int32_t* out) {
    const size_t channels = in.size();
    for (size_t c = 0; c < channels; ++c) {
        const float* src = in[c].data();
        int32_t* dst = out + c;
        for (int i = 0; i < frames; ++i) {
            float v = src[i] * 8388608.0f;
            v = std::clamp(v, -8388608.0f, 8388607.0f);
            dst[static_cast<size_t>(i) * channels] = static_cast<int32_t>(std::lrintf(v)) * 256;
        }
    }
}

void interleaveFloat(const std::vector<std::vector<float>>& in, int frames, float* out) {
    const size_t channels = in.size();
    for (size_t c = 0; c < channels; ++c) {
        const float* src = in[c].data();
        float* dst = out + c;
        for (int i = 0; i < frames; ++i) dst[static_cast<size_t>(i) * channels] = src[i];
    }
}

// FFmpeg stores 32-bit float WAV as WAVE_FORMAT_EXTENSIBLE, whose float
// subtype some readers (sox among them) take for a plain float header with its
// extension missing, and warn. For mono and stereo, where the extensible
// form's channel mask says nothing the plain form doesn't, the 40-byte fmt
// chunk becomes the plain 18-byte IEEE float one (extension size 0) followed
// by a 14-byte JUNK chunk, in place: nothing else in the file moves.
void rewriteAsPlainFloatWav(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "r+b");
    if (!f) return;
    unsigned char header[12];
    long offset = 12;
    if (std::fread(header, 1, 12, f) == 12 && std::memcmp(header + 8, "WAVE", 4) == 0) {
        unsigned char chunk[8 + 40];
        while (std::fseek(f, offset, SEEK_SET) == 0 && std::fread(chunk, 1, 8, f) == 8) {
            const uint32_t size = chunk[4] | chunk[5] << 8 | chunk[6] << 16 | static_cast<uint32_t>(chunk[7]) << 24;
            if (std::memcmp(chunk, "data", 4) == 0) break;
            if (std::memcmp(chunk, "fmt ", 4) == 0) {
                const bool extensibleFloat = size == 40 && std::fread(chunk + 8, 1, 40, f) == 40 && chunk[8] == 0xFE &&
                                             chunk[9] == 0xFF && chunk[10] <= 2 && chunk[32] == 3 && chunk[33] == 0;
                if (!extensibleFloat) break;
                chunk[4] = 18;           // fmt size
                chunk[8] = 3;            // WAVE_FORMAT_IEEE_FLOAT
                chunk[9] = 0;
                chunk[24] = chunk[25] = 0;  // no extension
                std::memcpy(chunk + 26, "JUNK", 4);
                chunk[30] = 14;
                chunk[31] = chunk[32] = chunk[33] = 0;
                std::memset(chunk + 34, 0, 14);
                if (std::fseek(f, offset, SEEK_SET) == 0) std::fwrite(chunk, 1, sizeof chunk, f);
                break;
            }
            offset += 8 + static_cast<long>(size) + (size & 1);
        }
    }
    std::fclose(f);
}

}  // namespace

struct AudioFileWriter::Impl {
    std::string path;
    std::string name;
    AudioFormat format;
    AudioFileType type = AudioFileType::wav;
    int fileRate = 0;

    AVFormatContext* muxer = nullptr;
    AVCodecContext* encoder = nullptr;
    AVStream* stream = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    std::unique_ptr<RateConverter> resampler;  // input rate -> file rate, where they differ
    AVChannelLayout layout{};

    int frameSize = 0;
    int fifoFill = 0;
    std::vector<std::vector<float>> fifo;       // one frame of input per channel
    std::vector<std::vector<float>> resampled;  // one resampler result per channel
    std::vector<float*> resampledPtrs;
    int64_t nextPts = 0;
    bool fileOpen = false;
    bool finished = false;

    ~Impl() {
        stopThread();
        if (muxer && muxer->pb) avio_closep(&muxer->pb);
        if (fileOpen && !finished) {
            // An incomplete file is of no use to anyone; devices stay.
            std::error_code ec;
            if (fs::is_regular_file(path, ec)) fs::remove(path, ec);
        }
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&encoder);
        avformat_free_context(muxer);
        av_channel_layout_uninit(&layout);
    }

    [[noreturn]] void fail(const std::string& sentence) const { throw VoiceEngineError(sentence); }

    std::string folderName() const {
        fs::path parent = fs::path(path).parent_path();
        if (parent.empty()) parent = fs::current_path();
        return displayName(parent);
    }

    // Turns a failed write or open into a sentence about the destination.
    [[noreturn]] void writeFailed(int averr, bool existed) const {
        const int err = averr < 0 && averr > -4096 ? AVUNERROR(averr) : 0;
        switch (err) {
        case EACCES:
        case EPERM:
            if (existed) fail("Parlova can't write to " + inQuotes(name) + ": permission denied.");
            fail("Parlova can't write to the folder " + inQuotes(folderName()) + ": permission denied.");
        case ENOSPC:
#ifdef EDQUOT
        case EDQUOT:
#endif
            fail("There isn't enough disk space to write " + inQuotes(name) + ".");
        case EROFS: fail("Parlova can't write " + inQuotes(name) + " because its disk is read-only.");
        case ENOENT:
        case ENOTDIR: {
            // A folder that exists but refuses new files (/proc, /sys) is not a missing one.
            std::error_code ec;
            const fs::path parent = fs::path(path).parent_path();
            if (fs::is_directory(parent.empty() ? fs::current_path(ec) : parent, ec))
                fail("Parlova couldn't create " + inQuotes(name) + ": the folder " + inQuotes(folderName()) +
                     " doesn't take new files.");
            fail("The folder " + inQuotes(folderName()) + " doesn't exist.");
        }
        case EISDIR: fail(inQuotes(name) + " is a folder; choose a file name to export to.");
        case 0: throw statusError("write " + inQuotes(name), averr);
        default: fail("Parlova couldn't write " + inQuotes(name) + ": " + audiofile::errnoText(err) + ".");
        }
    }

    [[noreturn]] void encodeFailed(int averr) const {
        throw statusError("encode the audio for " + inQuotes(name), averr);
    }

    void checkDestination() const {
        std::error_code ec;
        if (fs::is_directory(path, ec)) fail(inQuotes(name) + " is a folder; choose a file name to export to.");
        fs::path parent = fs::path(path).parent_path();
        if (!parent.empty()) {
            const auto st = fs::status(parent, ec);
            if (!fs::exists(st)) fail("The folder " + inQuotes(folderName()) + " doesn't exist.");
            if (!fs::is_directory(st)) fail(inQuotes(folderName()) + " isn't a folder.");
        }
    }

    const AVCodec* findEncoder() const {
        switch (type) {
        case AudioFileType::m4a: return avcodec_find_encoder_by_name("aac");
        case AudioFileType::wav: return avcodec_find_encoder(AV_CODEC_ID_PCM_F32LE);
        case AudioFileType::flac: return avcodec_find_encoder(AV_CODEC_ID_FLAC);
        }
        return nullptr;
    }

    static const char* muxerName(AudioFileType t) {
        switch (t) {
        case AudioFileType::m4a: return "ipod";
        case AudioFileType::wav: return "wav";
        case AudioFileType::flac: return "flac";
        }
        return "";
    }

    // AAC takes only some rates: keep the input rate when allowed, else the
    // nearest higher one (or the highest), reached by resampling.
    static int aacRate(const AVCodec* codec, int rate) {
        const int* rates = codec->supported_samplerates;
        if (!rates) return rate;
        int higher = 0, highest = 0;
        for (const int* r = rates; *r; ++r) {
            if (*r == rate) return rate;
            if (*r > rate && (higher == 0 || *r < higher)) higher = *r;
            highest = std::max(highest, *r);
        }
        return higher ? higher : highest;
    }

    // The encoder's layout for our channel count: the default layout when the
    // encoder takes it, else the first it lists with that many channels.
    bool chooseLayout(const AVCodec* codec) {
        av_channel_layout_default(&layout, format.channels);
        if (type == AudioFileType::m4a && av_channel_layout_index_from_channel(&layout, AV_CHAN_LOW_FREQUENCY) >= 0) {
            // AAC band-limits a low-frequency-effects channel; our channels are
            // all full range, so use the layouts of that size without one.
            static const uint64_t fullRange[] = {AV_CH_LAYOUT_SURROUND, AV_CH_LAYOUT_4POINT0, AV_CH_LAYOUT_5POINT0_BACK,
                                                 AV_CH_LAYOUT_6POINT0, AV_CH_LAYOUT_7POINT0, AV_CH_LAYOUT_OCTAGONAL};
            for (const uint64_t mask : fullRange)
                if (av_popcount64(mask) == format.channels) {
                    av_channel_layout_uninit(&layout);
                    if (av_channel_layout_from_mask(&layout, mask) < 0) return false;
                    break;
                }
        }
        const AVChannelLayout* layouts = codec->ch_layouts;
        if (!layouts) return true;
        const AVChannelLayout* sameCount = nullptr;
        for (const AVChannelLayout* l = layouts; l->nb_channels; ++l) {
            if (av_channel_layout_compare(l, &layout) == 0) return true;
            if (!sameCount && l->nb_channels == format.channels) sameCount = l;
        }
        if (!sameCount) return false;
        av_channel_layout_uninit(&layout);
        return av_channel_layout_copy(&layout, sameCount) == 0;
    }

    void open() {
        audiofile::quietFFmpegLogging();
        const double rateValue = format.sampleRate;
        if (!(rateValue >= 1000.0 && rateValue <= 768000.0) || std::abs(rateValue - std::round(rateValue)) > 1e-6)
            fail("Parlova can't write audio at a sample rate of " + std::to_string(static_cast<long long>(rateValue)) +
                 " Hz.");
        if (format.channels < 1 || format.channels > kMaxChannels)
            fail("Parlova can't write audio with " + std::to_string(format.channels) + " channels.");
        const int rate = static_cast<int>(std::lround(rateValue));
        checkDestination();

        const AVCodec* codec = findEncoder();
        if (!codec)
            fail("Parlova can't write " + std::string(extensionForAudioFileType(type)) +
                 " files because this system's FFmpeg lacks the encoder.");
        if (!chooseLayout(codec))
            fail("A " + std::string(extensionForAudioFileType(type)) + " file can't hold " +
                 std::to_string(format.channels) + " channels; use .wav or .flac.");

        int err = avformat_alloc_output_context2(&muxer, nullptr, muxerName(type), path.c_str());
        if (err < 0 || !muxer) throw statusError("prepare " + inQuotes(name), err);
        stream = avformat_new_stream(muxer, nullptr);
        encoder = avcodec_alloc_context3(codec);
        frame = av_frame_alloc();
        packet = av_packet_alloc();
        if (!stream || !encoder || !frame || !packet) fail("There isn't enough memory to write " + inQuotes(name) + ".");

        fileRate = type == AudioFileType::m4a ? aacRate(codec, rate) : rate;
        encoder->sample_rate = fileRate;
        encoder->time_base = AVRational{1, fileRate};
        if ((err = av_channel_layout_copy(&encoder->ch_layout, &layout)) < 0) encodeFailed(err);
        switch (type) {
        case AudioFileType::m4a:
            encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
            encoder->bit_rate = static_cast<int64_t>(kAacBitRatePerChannel) * format.channels;
            encoder->profile = FF_PROFILE_AAC_LOW;
            break;
        case AudioFileType::wav: encoder->sample_fmt = AV_SAMPLE_FMT_FLT; break;
        case AudioFileType::flac:
            encoder->sample_fmt = AV_SAMPLE_FMT_S32;
            encoder->bits_per_raw_sample = 24;
            break;
        }
        if (muxer->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        AVDictionary* codecOptions = nullptr;
        if (type == AudioFileType::m4a) {
            // The "fast" coder spends a third less time than the default
            // two-loop search and, at 96 kbps per channel, keeps the waveform
            // closer to the input (it substitutes no noise for detail).
            av_dict_set(&codecOptions, "aac_coder", "fast", 0);
        }
        err = avcodec_open2(encoder, codec, &codecOptions);
        av_dict_free(&codecOptions);
        if (err < 0) encodeFailed(err);
        if ((err = avcodec_parameters_from_context(stream->codecpar, encoder)) < 0) encodeFailed(err);
        stream->time_base = encoder->time_base;

        frameSize = (encoder->frame_size > 0 && !(codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE))
                        ? encoder->frame_size
                        : kVariableFrameSize;
        fifo.assign(static_cast<size_t>(format.channels), std::vector<float>(static_cast<size_t>(frameSize)));
        frame->format = encoder->sample_fmt;
        frame->sample_rate = fileRate;
        frame->nb_samples = frameSize;
        if ((err = av_channel_layout_copy(&frame->ch_layout, &layout)) < 0) encodeFailed(err);
        if ((err = av_frame_get_buffer(frame, 0)) < 0) encodeFailed(err);

        if (fileRate != rate) {
            resampler = RateConverter::create(rate, fileRate, format.channels, kResampleBlock);
            if (!resampler)
                fail("Parlova can't convert audio at " + std::to_string(rate) + " Hz to the " +
                     std::to_string(fileRate) + " Hz of " + inQuotes(name) + ".");
            resampled.assign(static_cast<size_t>(format.channels),
                             std::vector<float>(static_cast<size_t>(resampler->maxOutputFrames())));
            for (auto& channel : resampled) resampledPtrs.push_back(channel.data());
        }

        std::error_code ec;
        const bool existed = fs::exists(path, ec);
        if ((err = avio_open(&muxer->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) writeFailed(err, existed);
        fileOpen = true;
        AVDictionary* options = nullptr;
        if (type == AudioFileType::wav) av_dict_set(&options, "rf64", "auto", 0);
        err = avformat_write_header(muxer, &options);
        av_dict_free(&options);
        if (err < 0) writeFailed(err, true);
    }

    // Sends `frames` frames from the FIFO (or a flush when 0) and writes
    // every packet the encoder has ready.
    void encode(int frames) {
        int err;
        if (frames > 0) {
            frame->nb_samples = frameSize;  // make_writable allocates by this size
            if ((err = av_frame_make_writable(frame)) < 0) encodeFailed(err);
            frame->nb_samples = frames;
            switch (encoder->sample_fmt) {
            case AV_SAMPLE_FMT_FLTP:
                for (size_t c = 0; c < fifo.size(); ++c)
                    std::memcpy(frame->extended_data[c], fifo[c].data(), static_cast<size_t>(frames) * sizeof(float));
                break;
            case AV_SAMPLE_FMT_FLT: interleaveFloat(fifo, frames, reinterpret_cast<float*>(frame->data[0])); break;
            case AV_SAMPLE_FMT_S32: interleaveInt24(fifo, frames, reinterpret_cast<int32_t*>(frame->data[0])); break;
            default: encodeFailed(AVERROR(EINVAL));
            }
            frame->pts = nextPts;
            nextPts += frames;
            err = avcodec_send_frame(encoder, frame);
        } else {
            err = avcodec_send_frame(encoder, nullptr);
        }
        if (err < 0) encodeFailed(err);
        for (;;) {
            err = avcodec_receive_packet(encoder, packet);
            if (err == AVERROR(EAGAIN) || err == AVERROR_EOF) break;
            if (err < 0) encodeFailed(err);
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            err = av_interleaved_write_frame(muxer, packet);
            if (err < 0) writeFailed(err, true);
        }
    }

    // Appends planar frames to the FIFO, encoding each full frame.
    void push(const float* const* channels, int frames) {
        int done = 0;
        while (done < frames) {
            const int n = std::min(frames - done, frameSize - fifoFill);
            for (size_t c = 0; c < fifo.size(); ++c)
                std::memcpy(fifo[c].data() + fifoFill, channels[c] + done, static_cast<size_t>(n) * sizeof(float));
            fifoFill += n;
            done += n;
            if (fifoFill == frameSize) {
                encode(frameSize);
                fifoFill = 0;
            }
        }
    }

    // Encodes planar input on the encoder thread, through the resampler
    // where the file has another rate.
    void encodeInput(const float* const* channels, int frames) {
        if (frames <= 0) return;
        if (!resampler) {
            push(channels, frames);
            return;
        }
        const float* ptrs[kMaxChannels];
        for (int done = 0; done < frames; done += kResampleBlock) {
            for (int c = 0; c < format.channels; ++c) ptrs[c] = channels[c] + done;
            const int got = resampler->process(ptrs, std::min(kResampleBlock, frames - done), resampledPtrs.data());
            if (got < 0) resampleFailed();
            push(resampledPtrs.data(), got);
        }
    }

    // The resampler's tail: the file ends with the last frame whose time lies
    // inside the input, ceil(input frames * fileRate / rate) frames in all.
    void flushResampler() {
        for (int got; (got = resampler->flush(resampledPtrs.data())) != 0;) {
            if (got < 0) resampleFailed();
            push(resampledPtrs.data(), got);
        }
    }

    [[noreturn]] void resampleFailed() const {
        fail("Parlova couldn't convert the audio for " + inQuotes(name) + " to " + std::to_string(fileRate) + " Hz.");
    }

    // --- Encoder thread -------------------------------------------------
    // Encoding AAC costs about as much as rendering a voice, so it runs on
    // its own thread: write() copies into a small pool of blocks and returns,
    // and the thread encodes and writes them in order. A failure there is
    // kept and thrown by the next write() or by finish().

    static constexpr int kBlockFrames = 8192;
    static constexpr int kBlockCount = 8;
    struct Block {
        std::vector<std::vector<float>> channels;
        std::vector<const float*> pointers;
        int frames = 0;
    };
    std::vector<Block> blockStore;
    std::deque<Block*> freeBlocks;
    std::deque<Block*> readyBlocks;
    Block* filling = nullptr;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;
    bool aborting = false;
    std::exception_ptr failure;

    void startThread() {
        blockStore.resize(kBlockCount);
        for (Block& b : blockStore) {
            b.channels.assign(static_cast<size_t>(format.channels), std::vector<float>(kBlockFrames));
            for (auto& ch : b.channels) b.pointers.push_back(ch.data());
            freeBlocks.push_back(&b);
        }
        filling = freeBlocks.front();
        freeBlocks.pop_front();
        thread = std::thread([this] { run(); });
    }

    void stopThread() {
        if (!thread.joinable()) return;
        {
            std::lock_guard<std::mutex> lock(mutex);
            aborting = true;
        }
        changed.notify_all();
        thread.join();
    }

    void run() {
        for (;;) {
            Block* block;
            bool skip;
            {
                std::unique_lock<std::mutex> lock(mutex);
                changed.wait(lock, [&] { return aborting || ending || !readyBlocks.empty(); });
                if (aborting || readyBlocks.empty()) return;
                block = readyBlocks.front();
                readyBlocks.pop_front();
                skip = failure != nullptr;  // after a failure, only hand blocks back
            }
            if (!skip) {
                try {
                    encodeInput(block->pointers.data(), block->frames);
                } catch (...) {
                    std::lock_guard<std::mutex> lock(mutex);
                    failure = std::current_exception();
                }
            }
            {
                std::lock_guard<std::mutex> lock(mutex);
                block->frames = 0;
                freeBlocks.push_back(block);
            }
            changed.notify_all();
        }
    }

    // Hands the filled block to the thread and, unless `last`, waits for a
    // free one to fill next.
    void submit(bool last) {
        std::unique_lock<std::mutex> lock(mutex);
        readyBlocks.push_back(filling);
        filling = nullptr;
        if (last) {
            ending = true;
        } else {
            changed.notify_all();
            changed.wait(lock, [&] { return !freeBlocks.empty(); });
            filling = freeBlocks.front();
            freeBlocks.pop_front();
        }
        lock.unlock();
        changed.notify_all();
    }

    void rethrowFailure() {
        std::lock_guard<std::mutex> lock(mutex);
        if (failure) std::rethrow_exception(failure);
    }

    void write(const float* const* channels, int frames) {
        if (finished || !filling) throw std::logic_error("AudioFileWriter::write after finish");
        rethrowFailure();
        int done = 0;
        while (done < frames) {
            const int n = std::min(frames - done, kBlockFrames - filling->frames);
            for (int c = 0; c < format.channels; ++c)
                std::memcpy(filling->channels[static_cast<size_t>(c)].data() + filling->frames, channels[c] + done,
                            static_cast<size_t>(n) * sizeof(float));
            filling->frames += n;
            done += n;
            if (filling->frames == kBlockFrames) submit(false);
        }
    }

    void finish() {
        if (finished) return;
        if (!thread.joinable()) throw std::logic_error("AudioFileWriter::finish after a failed finish");
        submit(true);
        thread.join();
        rethrowFailure();
        if (resampler) flushResampler();
        if (fifoFill > 0) {
            encode(fifoFill);
            fifoFill = 0;
        }
        encode(0);
        int err = av_write_trailer(muxer);
        if (err < 0) writeFailed(err, true);
        if (muxer->pb->error < 0) writeFailed(muxer->pb->error, true);
        err = avio_closep(&muxer->pb);
        if (err < 0) writeFailed(err, true);
        if (type == AudioFileType::wav) rewriteAsPlainFloatWav(path);
        finished = true;
    }
};

AudioFileWriter::AudioFileWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
AudioFileWriter::~AudioFileWriter() = default;

std::unique_ptr<AudioFileWriter> AudioFileWriter::create(const std::string& path, AudioFormat format,
                                                         AudioFileType type) {
    auto impl = std::make_unique<Impl>();
    impl->path = path;
    impl->name = displayName(path);
    impl->format = format;
    impl->type = type;
    try {
        impl->open();
        impl->startThread();
    } catch (const std::bad_alloc&) {
        throw VoiceEngineError("There isn't enough memory to write " + inQuotes(impl->name) + ".");
    }
    return std::unique_ptr<AudioFileWriter>(new AudioFileWriter(std::move(impl)));
}

std::unique_ptr<AudioFileWriter> AudioFileWriter::create(const std::string& path, AudioFormat format) {
    const auto type = audioFileTypeForPath(path);
    if (!type) {
        const std::string ext = fs::path(path).extension().string();
        if (ext.empty() || ext == ".")
            throw VoiceEngineError("The file name " + inQuotes(displayName(path)) +
                                   " has no type; end it with .m4a, .wav or .flac.");
        throw VoiceEngineError("The file type " + inQuotes(ext) + " isn't supported; use .m4a, .wav or .flac.");
    }
    return create(path, format, *type);
}

void AudioFileWriter::write(const float* const* channels, int frames) { impl_->write(channels, frames); }
void AudioFileWriter::finish() { impl_->finish(); }
AudioFormat AudioFileWriter::format() const { return impl_->format; }
int AudioFileWriter::fileSampleRate() const { return impl_->fileRate; }

}  // namespace parlova
