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

}  // namespace parlova::pulse
