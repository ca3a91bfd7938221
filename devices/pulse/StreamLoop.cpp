#include "devices/pulse/StreamLoop.h"

#include "devices/pulse/Realtime.h"
#include "dsp/DenormalsFlushed.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace parlova::pulse {
namespace {

std::atomic<RealtimeGrant> grant{RealtimeGrant::unknown};

// The kernel id of the loop's thread, read on that thread. The thread runs
// nothing but audio from here on, so it flushes denormals for good: every
// callback on it (the chain, the mixer, the bridges) is spared their cost.
pid_t prepareLoopThread(const PulseLoop& loop) {
    struct Ask {
        const PulseLoop* loop;
        pid_t tid = 0;
    } ask{&loop};
    PulseLoop::Lock lock(loop);
    pa_mainloop_api_once(
        pa_threaded_mainloop_get_api(loop.loop()),
        [](pa_mainloop_api*, void* userdata) {
            auto* a = static_cast<Ask*>(userdata);
            DenormalsFlushed::forThisThread();
            a->tid = static_cast<pid_t>(syscall(SYS_gettid));
            a->loop->signal();
        },
        &ask);
    loop.waitFor([&ask] { return ask.tid != 0; });
    return ask.tid;
}

}  // namespace

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
    grant = makeRealtime(prepareLoopThread(*loop));
    current = loop;
    return loop;
}

RealtimeGrant streamLoopGrant() { return grant.load(); }

}  // namespace parlova::pulse
