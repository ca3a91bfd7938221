#include "devices/pulse/PulseStreams.h"

#include "common/VoiceEngineError.h"

#include <pulse/rtclock.h>

#include <algorithm>
#include <cstring>

namespace parlova::pulse {

PulseStream::PulseStream(std::shared_ptr<PulseLoop> loop, StreamFaults faults)
    : loop_(std::move(loop)), faults_(std::move(faults)) {}

PulseStream::~PulseStream() {
    PulseLoop::Lock lock(*loop_);
    // No callback reaches this object once the stream is released.
    closing_ = true;
    running_ = false;
    if (!stream_) return;
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_set_write_callback(stream_, nullptr, nullptr);
    pa_stream_set_underflow_callback(stream_, nullptr, nullptr);
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    stream_ = nullptr;
}

void PulseStream::waitReady(const char* what, ErrorCode refusal) {
    const bool settled = loop_->waitFor([this] {
        const auto state = pa_stream_get_state(stream_);
        return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
    });
    if (!settled || pa_stream_get_state(stream_) != PA_STREAM_READY) {
        const int err = pa_context_errno(loop_->context());
        if (err == PA_ERR_ACCESS && refusal == ErrorCode::microphoneRefused) throw VoiceEngineError(refusal);
        throw statusError(what, err ? err : PA_ERR_BADSTATE);
    }
    closing_ = false;
}

void PulseStream::start() {
    running_ = true;
    cork(false);
}

void PulseStream::stop() {
    running_ = false;
    cork(true);
}

void PulseStream::cork(bool paused) {
    // Only the request: the answer is not waited for, and a stream that
    // cannot play any more reports it through its state.
    PulseLoop::Lock lock(*loop_);
    if (!stream_ || pa_stream_get_state(stream_) != PA_STREAM_READY) return;
    if (pa_operation* op = pa_stream_cork(stream_, paused ? 1 : 0, nullptr, nullptr)) pa_operation_unref(op);
}

void PulseStream::onLatencyUpdate(pa_stream* s, void* userdata) {
    // Audio thread: a fresh timing report from the server has just arrived,
    // so the latency computed from it now is exact, not extrapolated.
    static_cast<PulseStream*>(userdata)->noteLatency(s);
}

void PulseStream::askForTiming(pa_stream* s) noexcept {
    // The automatic reports thin out to one every 1.5 s; a backlog that a
    // stall left is gone long before the next one. Ask four times a second:
    // the readout takes the median of two seconds, and every request wakes
    // the server's main thread and its device thread once more.
    const pa_usec_t now = pa_rtclock_now();
    if (now - lastTimingRequest_ < kTimingRequestUsec) return;
    lastTimingRequest_ = now;
    if (pa_operation* op = pa_stream_update_timing_info(s, nullptr, nullptr)) pa_operation_unref(op);
}

void PulseStream::noteLatency(pa_stream* s) noexcept {
    pa_usec_t usec = 0;
    int negative = 0;
    if (pa_stream_get_latency(s, &usec, &negative) == 0)
        latency_.store(negative ? 0.0 : static_cast<double>(usec) / 1e6, std::memory_order_relaxed);
}

void PulseStream::onState(pa_stream* s, void* userdata) {
    // Loop thread. Runs once for a failure: nothing flows afterwards.
    auto* self = static_cast<PulseStream*>(userdata);
    self->loop_->signal();
    if (self->closing_ || pa_stream_get_state(s) != PA_STREAM_FAILED) return;
    self->closing_ = true;
    self->running_ = false;
    const int err = pa_context_errno(pa_stream_get_context(s));
    if (err == PA_ERR_KILLED || err == PA_ERR_NOENTITY) {
        if (self->faults_.deviceLost) self->faults_.deviceLost();
    } else if (self->faults_.failed) {
        // A terminated connection means the sound server itself went away.
        if (err == PA_ERR_CONNECTIONTERMINATED)
            self->faults_.failed(ErrorCode::serverUnreachable, kNoServerMessage);
        else
            self->faults_.failed(ErrorCode::failed, statusError(self->keepWhat_, err).errorDescription());
    }
}

namespace {
pa_buffer_attr defaultAttributes() {
    pa_buffer_attr attr;
    attr.maxlength = attr.tlength = attr.prebuf = attr.minreq = attr.fragsize = static_cast<uint32_t>(-1);
    return attr;
}

// DONT_MOVE: when the device goes away the stream ends instead of silently
// moving to another one. The latency is taken from each timing report as it
// arrives, never interpolated between reports: the interpolation drifts for
// seconds after the server stalls, by far more than the latency itself.
constexpr auto kStreamFlags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY |
                                                             PA_STREAM_DONT_MOVE | PA_STREAM_AUTO_TIMING_UPDATE);
}  // namespace

PulseCapture::PulseCapture(std::shared_ptr<PulseLoop> loop, const DeviceEntry& device, double sampleRate,
                           double blockSeconds, CaptureSink& sink, StreamFaults faults)
    : PulseStream(std::move(loop), std::move(faults)), sink_(sink) {
    keepWhat_ = "keep listening to the microphone";
    if (device.sourceName.empty()) throw VoiceEngineError("That audio device isn't available.");
    const double rate = sampleRate > 0 ? sampleRate : static_cast<double>(device.inputRate);
    if (!(rate > 0) || device.inputChannels <= 0) throw VoiceEngineError("No microphone input is available.");
    pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, static_cast<uint32_t>(rate), 1};
    if (!pa_sample_spec_valid(&spec)) throw statusError("set the microphone format", PA_ERR_INVALID);

    PulseLoop::Lock lock(*loop_);
    stream_ = pa_stream_new(loop_->context(), "Parlova microphone", &spec, nullptr);
    if (!stream_) throw statusError("open the microphone", pa_context_errno(loop_->context()));
    pa_stream_set_state_callback(stream_, &PulseStream::onState, static_cast<PulseStream*>(this));
    pa_stream_set_read_callback(stream_, &PulseCapture::onRead, this);
    pa_stream_set_latency_update_callback(stream_, &PulseStream::onLatencyUpdate, static_cast<PulseStream*>(this));
    pa_buffer_attr attr = defaultAttributes();
    attr.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(static_cast<pa_usec_t>(blockSeconds * 1e6), &spec));
    if (pa_stream_connect_record(stream_, device.sourceName.c_str(), &attr, kStreamFlags) < 0)
    {
        const int err = pa_context_errno(loop_->context());
        if (err == PA_ERR_ACCESS) throw VoiceEngineError(ErrorCode::microphoneRefused);
        throw statusError("select the microphone", err);
    }
    waitReady("listen to the microphone", ErrorCode::microphoneRefused);
}

void PulseCapture::onRead(pa_stream* s, size_t, void* userdata) {
    // Audio thread: hand every fragment to the sink, in blocks it can take.
    auto* self = static_cast<PulseCapture*>(userdata);
    for (;;) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(s, &data, &bytes) < 0 || bytes == 0) break;
        // A hole (data null) is audio the server dropped: nothing to deliver.
        if (data && self->running_.load(std::memory_order_relaxed)) {
            const auto* samples = static_cast<const float*>(data);
            int frames = static_cast<int>(bytes / sizeof(float));
            while (frames > 0) {
                const int n = std::min(frames, kMaxBlockFrames);
                self->sink_.capturedAudio(samples, n);
                samples += n;
                frames -= n;
            }
        }
        pa_stream_drop(s);
    }
    self->askForTiming(s);
}

PulseOutput::PulseOutput(std::shared_ptr<PulseLoop> loop, const DeviceEntry& device, AudioFormat format,
                         AudioSource& render, double bufferSeconds, StreamFaults faults)
    : PulseStream(std::move(loop), std::move(faults)), format_(format), source_(render) {
    if (device.sinkName.empty()) throw VoiceEngineError("That audio device isn't available.");
    pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, static_cast<uint32_t>(format.sampleRate),
                        static_cast<uint8_t>(std::clamp(format.channels, 0, 255))};
    if (format.channels < 1 || format.channels > kMaxChannels || !pa_sample_spec_valid(&spec))
        throw statusError("set the output format", PA_ERR_INVALID);
    scratch_.reset(new float[static_cast<size_t>(AudioBackend::kMaxSliceFrames) * static_cast<size_t>(format.channels)]());

    PulseLoop::Lock lock(*loop_);
    stream_ = pa_stream_new(loop_->context(), "Parlova voice", &spec, nullptr);
    if (!stream_) throw statusError("open the output", pa_context_errno(loop_->context()));
    pa_stream_set_state_callback(stream_, &PulseStream::onState, static_cast<PulseStream*>(this));
    pa_stream_set_write_callback(stream_, &PulseOutput::onWrite, this);
    pa_stream_set_latency_update_callback(stream_, &PulseStream::onLatencyUpdate, static_cast<PulseStream*>(this));
    pa_stream_set_underflow_callback(
        stream_, [](pa_stream*, void* self) { static_cast<PulseOutput*>(self)->underflows_.fetch_add(1); }, this);
    pa_buffer_attr attr = defaultAttributes();
    attr.tlength = static_cast<uint32_t>(pa_usec_to_bytes(static_cast<pa_usec_t>(bufferSeconds * 1e6), &spec));
    if (pa_stream_connect_playback(stream_, device.sinkName.c_str(), &attr, kStreamFlags, nullptr, nullptr) < 0)
        throw statusError("select the output device", pa_context_errno(loop_->context()));
    waitReady("connect the output", ErrorCode::failed);
}

void PulseOutput::render(float* out, int frames) noexcept {
    const int channels = format_.channels;
    if (!running_.load(std::memory_order_relaxed)) {
        std::memset(out, 0, sizeof(float) * static_cast<size_t>(frames) * static_cast<size_t>(channels));
        return;
    }
    while (frames > 0) {
        const int n = std::min(frames, AudioBackend::kMaxSliceFrames);
        BufferList list;
        list.count = channels;
        for (int c = 0; c < channels; ++c) {
            list.data[c] = scratch_.get() + static_cast<size_t>(c) * AudioBackend::kMaxSliceFrames;
            list.byteSize[c] = static_cast<uint32_t>(sizeof(float) * static_cast<size_t>(n));
        }
        if (source_.pull(list, n) != status::ok) {
            std::memset(out, 0, sizeof(float) * static_cast<size_t>(n) * static_cast<size_t>(channels));
        } else {
            for (int c = 0; c < channels; ++c) {
                const float* src = list.data[c];
                for (int i = 0; i < n; ++i) out[i * channels + c] = src ? src[i] : 0.0f;
            }
        }
        out += static_cast<size_t>(n) * static_cast<size_t>(channels);
        frames -= n;
    }
}

void PulseOutput::onWrite(pa_stream* s, size_t nbytes, void* userdata) {
    // Audio thread: fill what the server asks for, in its own buffers.
    auto* self = static_cast<PulseOutput*>(userdata);
    const size_t frameBytes = sizeof(float) * static_cast<size_t>(self->format_.channels);
    while (nbytes >= frameBytes) {
        void* data = nullptr;
        size_t size = nbytes;
        if (pa_stream_begin_write(s, &data, &size) < 0 || !data || size < frameBytes) break;
        const size_t frames = std::min(size, nbytes) / frameBytes;
        self->render(static_cast<float*>(data), static_cast<int>(frames));
        if (pa_stream_write(s, data, frames * frameBytes, nullptr, 0, PA_SEEK_RELATIVE) < 0) break;
        nbytes -= frames * frameBytes;
    }
    self->askForTiming(s);
}

}  // namespace parlova::pulse
