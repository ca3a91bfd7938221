#include "engine/DeviceOutput.h"

#include "devices/pulse/DeviceTable.h"
#include "devices/pulse/StreamLoop.h"
#include "engine/VoiceEngineError.h"

#include <algorithm>
#include <cstring>

namespace parlova {

using pulse::PulseLoop;

AudioFormat DeviceOutput::formatFor(uint32_t device) {
    const DeviceTable table = readDeviceTable();
    const DeviceEntry* entry = table.find(device);
    const double rate = entry && entry->outputRate > 0 ? static_cast<double>(entry->outputRate) : 48000.0;
    return AudioFormat{rate, 2};
}

DeviceOutput::DeviceOutput(uint32_t device, AudioFormat format, AudioSource* render, double latencySeconds,
                           QObject* parent)
    : QObject(parent), device_(device), format_(format), source_(render) {
    const DeviceTable table = readDeviceTable();
    if (table.entries.empty() && !pulse::PulseControl::shared().connect()) throw VoiceEngineError(pulse::kNoServerMessage);
    const DeviceEntry* entry = table.find(device);
    if (!entry || entry->sinkName.empty()) throw VoiceEngineError("That audio device isn't available.");

    pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, static_cast<uint32_t>(format.sampleRate),
                        static_cast<uint8_t>(std::clamp(format.channels, 0, 255))};
    if (!source_ || format.channels < 1 || format.channels > kMaxChannels || !pa_sample_spec_valid(&spec))
        throw statusError("set the output format", PA_ERR_INVALID);
    scratch_.reset(new float[static_cast<size_t>(kMaxSliceFrames) * static_cast<size_t>(format.channels)]());

    int error = 0;
    loop_ = pulse::sharedStreamLoop(&error);
    if (!loop_) throw VoiceEngineError(pulse::kNoServerMessage);

    PulseLoop::Lock lock(*loop_);
    stream_ = pa_stream_new(loop_->context(), "Parlova voice", &spec, nullptr);
    if (!stream_) throw statusError("open the output", pa_context_errno(loop_->context()));
    pa_stream_set_state_callback(stream_, &DeviceOutput::onState, this);
    pa_stream_set_write_callback(stream_, &DeviceOutput::onWrite, this);

    pa_buffer_attr attr;
    attr.maxlength = static_cast<uint32_t>(-1);
    attr.tlength = static_cast<uint32_t>(pa_usec_to_bytes(static_cast<pa_usec_t>(latencySeconds * 1e6), &spec));
    attr.prebuf = static_cast<uint32_t>(-1);
    attr.minreq = static_cast<uint32_t>(-1);
    attr.fragsize = static_cast<uint32_t>(-1);
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY |
                                                      PA_STREAM_DONT_MOVE | PA_STREAM_AUTO_TIMING_UPDATE);
    if (pa_stream_connect_playback(stream_, entry->sinkName.c_str(), &attr, flags, nullptr, nullptr) < 0) {
        const int err = pa_context_errno(loop_->context());
        close();
        throw statusError("select the output device", err);
    }
    if (!pulse::waitUntilReady(*loop_, stream_)) {
        const int err = pa_context_errno(loop_->context());
        close();
        throw statusError("connect the output", err);
    }
    closing_ = false;
}

DeviceOutput::~DeviceOutput() {
    if (!loop_) return;
    PulseLoop::Lock lock(*loop_);
    close();
}

void DeviceOutput::close() {
    closing_ = true;
    running_ = false;
    pulse::releaseStream(stream_);
}

bool DeviceOutput::cork(bool paused) {
    return pulse::corkStream(*loop_, stream_, paused);
}

void DeviceOutput::start() {
    running_ = true;
    if (!cork(false)) {
        running_ = false;
        const int err = pulse::lastError(*loop_);
        throw statusError("start the output", err);
    }
}

void DeviceOutput::stop() {
    if (!running_) return;
    running_ = false;
    cork(true);
}

void DeviceOutput::render(float* out, int frames) noexcept {
    const int channels = format_.channels;
    if (!running_.load(std::memory_order_relaxed)) {
        std::memset(out, 0, sizeof(float) * static_cast<size_t>(frames) * static_cast<size_t>(channels));
        return;
    }
    while (frames > 0) {
        const int n = std::min(frames, kMaxSliceFrames);
        BufferList list;
        list.count = channels;
        for (int c = 0; c < channels; ++c) {
            list.data[c] = scratch_.get() + static_cast<size_t>(c) * kMaxSliceFrames;
            list.byteSize[c] = static_cast<uint32_t>(sizeof(float) * static_cast<size_t>(n));
        }
        if (source_->pull(list, n) != status::ok) {
            renderFailures_.fetch_add(1, std::memory_order_relaxed);
            std::memset(out, 0, sizeof(float) * static_cast<size_t>(n) * static_cast<size_t>(channels));
        } else {
            for (int c = 0; c < channels; ++c) {
                const float* src = list.data[c];
                if (!src) {
                    for (int i = 0; i < n; ++i) out[i * channels + c] = 0.0f;
                    continue;
                }
                for (int i = 0; i < n; ++i) out[i * channels + c] = src[i];
            }
        }
        framesRendered_.fetch_add(static_cast<uint64_t>(n), std::memory_order_relaxed);
        out += static_cast<size_t>(n) * static_cast<size_t>(channels);
        frames -= n;
    }
}

void DeviceOutput::onWrite(pa_stream* s, size_t nbytes, void* userdata) {
    // Output I/O thread: fill what the server asks for, in its own buffers.
    auto* self = static_cast<DeviceOutput*>(userdata);
    const size_t frameBytes = sizeof(float) * static_cast<size_t>(self->format_.channels);
    while (nbytes >= frameBytes) {
        void* data = nullptr;
        size_t size = nbytes;
        if (pa_stream_begin_write(s, &data, &size) < 0 || !data || size < frameBytes) return;
        const size_t frames = std::min(size, nbytes) / frameBytes;
        self->render(static_cast<float*>(data), static_cast<int>(frames));
        if (pa_stream_write(s, data, frames * frameBytes, nullptr, 0, PA_SEEK_RELATIVE) < 0) return;
        nbytes -= frames * frameBytes;
    }
}

void DeviceOutput::onState(pa_stream* s, void* userdata) {
    auto* self = static_cast<DeviceOutput*>(userdata);
    self->loop_->signal();
    if (self->closing_ || pa_stream_get_state(s) != PA_STREAM_FAILED) return;
    self->running_ = false;
    // Runs once, when the stream has ended: nothing is rendered any more.
    const int err = pa_context_errno(pa_stream_get_context(s));
    if (err == PA_ERR_KILLED || err == PA_ERR_NOENTITY) {
        QMetaObject::invokeMethod(self, [self] { emit self->deviceLost(); }, Qt::QueuedConnection);
    } else {
        // A terminated connection means the sound server itself went away.
        const QString message = QString::fromStdString(err == PA_ERR_CONNECTIONTERMINATED
                                                           ? pulse::kNoServerMessage
                                                           : statusError("keep playing", err).errorDescription());
        QMetaObject::invokeMethod(self, [self, message] { emit self->failed(message); }, Qt::QueuedConnection);
    }
}

}  // namespace parlova
