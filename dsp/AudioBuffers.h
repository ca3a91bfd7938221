#pragma once
// Non-interleaved 32-bit float buffers as the chain passes them between nodes.
#include <cstdint>

namespace parlova {

constexpr int kMaxChannels = 8;

// A list of channel pointers plus a byte size per buffer, in the spirit of a
// platform buffer list: a null pointer means "no memory of its own yet".
struct BufferList {
    int count = 0;
    float* data[kMaxChannels] = {};
    uint32_t byteSize[kMaxChannels] = {};
};

struct AudioFormat {
    double sampleRate = 48000.0;
    int channels = 2;
    bool operator==(const AudioFormat&) const = default;
};

// Render status codes of the pull chain.
namespace status {
constexpr int32_t ok = 0;
constexpr int32_t noConnection = -10876;  // no input, no resources, or too many frames
constexpr int32_t renderError = -10879;   // a node failed for another reason
constexpr int32_t insufficientData = 1;   // source has nothing yet: try again later
}  // namespace status

// Anything that can be pulled for frames into a buffer list. Implementations
// write `frames` samples into each buffer of `out` (pointing memory-less buffers
// at their own storage is allowed only where the node documents it).
class AudioSource {
public:
    virtual ~AudioSource() = default;
    virtual int32_t pull(BufferList& out, int frames) noexcept = 0;
};

}  // namespace parlova
