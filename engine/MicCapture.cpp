#include "engine/MicCapture.h"

#include "devices/pulse/DeviceTable.h"
#include "devices/pulse/StreamLoop.h"
#include "engine/VoiceEngineError.h"

#include <algorithm>

namespace parlova {

using pulse::PulseLoop;

MicCapture::MicCapture(uint32_t device, double sampleRate, double latencySeconds, QObject* parent)
    : QObject(parent), device_(device) {
    const DeviceTable table = readDeviceTable();
    if (table.entries.empty() && !pulse::PulseControl::shared().connect()) throw VoiceEngineError(pulse::kNoServerMessage);
    const DeviceEntry* entry = table.find(device);
    if (!entry || entry->sourceName.empty()) throw VoiceEngineError("That audio device isn't available.");
    const double rate = sampleRate > 0 ? sampleRate : static_cast<double>(entry->inputRate);
    if (!(rate > 0) || entry->inputChannels <= 0) throw VoiceEngineError("No microphone input is available.");

    int error = 0;
    loop_ = pulse::sharedStreamLoop(&error);
    if (!loop_) throw VoiceEngineError(pulse::kNoServerMessage);

    pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, static_cast<uint32_t>(rate), 1};
    if (!pa_sample_spec_valid(&spec)) throw VoiceEngineError("Couldn't set the microphone format (error " + std::to_string(PA_ERR_INVALID) + ").");
    sampleRate_ = spec.rate;
    bridge_ = std::make_shared<MicBridge>(sampleRate_, kCushionSeconds);

    PulseLoop::Lock lock(*loop_);
    stream_ = pa_stream_new(loop_->context(), "Parlova microphone", &spec, nullptr);
    if (!stream_) throw statusError("open the microphone", pa_context_errno(loop_->context()));
    pa_stream_set_state_callback(stream_, &MicCapture::onState, this);
    pa_stream_set_read_callback(stream_, &MicCapture::onRead, this);

    pa_buffer_attr attr;
    attr.maxlength = static_cast<uint32_t>(-1);
    attr.tlength = attr.prebuf = attr.minreq = static_cast<uint32_t>(-1);
    attr.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(static_cast<pa_usec_t>(latencySeconds * 1e6), &spec));
    // DONT_MOVE: when the microphone goes away the stream ends instead of
    // silently moving to another source.
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY |
                                                      PA_STREAM_DONT_MOVE | PA_STREAM_AUTO_TIMING_UPDATE);
    if (pa_stream_connect_record(stream_, entry->sourceName.c_str(), &attr, flags) < 0) {
        const int err = pa_context_errno(loop_->context());
        close();
        throw statusError("select the microphone", err);
    }
    if (!pulse::waitUntilReady(*loop_, stream_)) {
        const int err = pa_context_errno(loop_->context());
        close();
        throw statusError("listen to the microphone", err);
    }
    closing_ = false;
}

MicCapture::~MicCapture() {
    if (!loop_) return;
    PulseLoop::Lock lock(*loop_);
    close();
}

void MicCapture::close() {
    // Lock held. No callback may reach this object once it returns.
    closing_ = true;
    pulse::releaseStream(stream_);
}

bool MicCapture::cork(bool paused) {
    return pulse::corkStream(*loop_, stream_, paused);
}

void MicCapture::start() {
    bridge_->reset();
    if (!cork(false)) {
        const int err = pulse::lastError(*loop_);
        throw statusError("start the microphone", err);
    }
    running_ = true;
}

void MicCapture::stop() {
    if (!running_) return;
    cork(true);
    running_ = false;
}

void MicCapture::onRead(pa_stream* s, size_t, void* userdata) {
    // Capture thread: hand every fragment to the listener and the bridge.
    auto* self = static_cast<MicCapture*>(userdata);
    CaptureListener* listener = self->listener_.load(std::memory_order_acquire);
    for (;;) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(s, &data, &bytes) < 0 || bytes == 0) return;
        if (data) {
            const auto* samples = static_cast<const float*>(data);
            int frames = static_cast<int>(bytes / sizeof(float));
            while (frames > 0) {
                const int n = std::min(frames, kMaxBlockFrames);
                if (listener) listener->capturedAudio(samples, n);
                self->bridge_->write(samples, 1, n);
                samples += n;
                frames -= n;
            }
        }
        // A hole (data null) is audio the server dropped: nothing to deliver.
        pa_stream_drop(s);
    }
}

void MicCapture::onState(pa_stream* s, void* userdata) {
    auto* self = static_cast<MicCapture*>(userdata);
    self->loop_->signal();
    if (self->closing_ || pa_stream_get_state(s) != PA_STREAM_FAILED) return;
    // Runs once, when the stream has ended; the queued call is the only way
    // back to the main thread and nothing is being rendered any more.
    const int err = pa_context_errno(pa_stream_get_context(s));
    if (err == PA_ERR_KILLED || err == PA_ERR_NOENTITY) {
        QMetaObject::invokeMethod(self, [self] { emit self->deviceLost(); }, Qt::QueuedConnection);
    } else {
        // A terminated connection means the sound server itself went away.
        const QString message = QString::fromStdString(err == PA_ERR_CONNECTIONTERMINATED
                                                           ? pulse::kNoServerMessage
                                                           : statusError("keep listening to the microphone", err).errorDescription());
        QMetaObject::invokeMethod(self, [self, message] { emit self->failed(message); }, Qt::QueuedConnection);
    }
}

}  // namespace parlova
