#include "dsp/InPlaceEffectUnit.h"

#include <mutex>
#include <set>

namespace parlova {

uint32_t fourCharCode(const std::string& text) {
    uint32_t code = 0;
    for (unsigned char byte : text) code = code * 256u + byte;
    return code;
}

namespace {
std::mutex& registrationLock() {
    static std::mutex lock;
    return lock;
}
std::set<std::string>& registered() {
    static std::set<std::string> set;
    return set;
}
int& registrations() {
    static int count = 0;
    return count;
}
}  // namespace

void InPlaceEffectUnit::registerSubtype(const std::string& subtype, const std::string& /*name*/) {
    std::lock_guard guard(registrationLock());
    if (registered().insert(subtype).second) ++registrations();
}

bool InPlaceEffectUnit::isRegistered(const std::string& subtype) {
    std::lock_guard guard(registrationLock());
    return registered().count(subtype) > 0;
}

int InPlaceEffectUnit::registrationCount() {
    std::lock_guard guard(registrationLock());
    return registrations();
}

InPlaceEffectUnit::InPlaceEffectUnit() = default;

void InPlaceEffectUnit::allocateRenderResources() {
    pullBuffer_.assign(static_cast<size_t>(format_.channels),
                       std::vector<float>(static_cast<size_t>(maxFrames_), 0.0f));
    prepare(format_, maxFrames_);
}

void InPlaceEffectUnit::deallocateRenderResources() {
    pullBuffer_.clear();
    pullBuffer_.shrink_to_fit();
}

int32_t InPlaceEffectUnit::pull(BufferList& out, int frames) noexcept {
    if (input_ == nullptr || pullBuffer_.empty() || frames > maxFrames_ || frames < 0)
        return status::noConnection;
    for (int i = 0; i < out.count; ++i) {
        if (out.data[i] == nullptr && i < static_cast<int>(pullBuffer_.size()))
            out.data[i] = pullBuffer_[static_cast<size_t>(i)].data();
        out.byteSize[i] = static_cast<uint32_t>(frames) * 4u;
    }
    const int32_t pulled = input_->pull(out, frames);
    if (pulled != status::ok) return pulled;
    process(out, frames);
    return status::ok;
}

void InPlaceEffectUnit::prepare(const AudioFormat&, int) {}
void InPlaceEffectUnit::process(BufferList&, int) noexcept {}

}  // namespace parlova
