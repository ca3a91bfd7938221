#include "devices/pulse/StreamLoop.h"

#include <mutex>

namespace parlova::pulse {

std::shared_ptr<PulseLoop> sharedStreamLoop(int* error) {
    static std::mutex mutex;
    static std::weak_ptr<PulseLoop> current;
    std::lock_guard guard(mutex);
    if (auto loop = current.lock(); loop && loop->isReady()) return loop;
    auto loop = std::make_shared<PulseLoop>("Parlova live audio");
    if (!loop->isReady()) {
        if (error) *error = loop->error() ? loop->error() : PA_ERR_CONNECTIONREFUSED;
        return nullptr;
    }
    current = loop;
    return loop;
}

bool waitUntilReady(const PulseLoop& loop, pa_stream* stream) {
    const bool settled = loop.waitFor([stream] {
        const auto state = pa_stream_get_state(stream);
        return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
    });
    return settled && pa_stream_get_state(stream) == PA_STREAM_READY;
}

bool corkStream(const PulseLoop& loop, pa_stream* stream, bool paused) {
    PulseLoop::Lock lock(loop);
    if (!stream || pa_stream_get_state(stream) != PA_STREAM_READY) return false;
    struct Done {
        const PulseLoop* loop;
        bool ok = false;
    } done{&loop};
    auto answered = [](pa_stream*, int success, void* userdata) {
        auto* d = static_cast<Done*>(userdata);
        d->ok = success != 0;
        d->loop->signal();
    };
    return loop.wait(pa_stream_cork(stream, paused ? 1 : 0, answered, &done)) && done.ok;
}

void releaseStream(pa_stream*& stream) {
    if (!stream) return;
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    pa_stream_set_write_callback(stream, nullptr, nullptr);
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_disconnect(stream);
    pa_stream_unref(stream);
    stream = nullptr;
}

int lastError(const PulseLoop& loop) {
    PulseLoop::Lock lock(loop);
    const int error = pa_context_errno(loop.context());
    return error ? error : PA_ERR_BADSTATE;
}

}  // namespace parlova::pulse
