#pragma once
// Common frame of our own in-place effects: one input, one output. A render call
// pulls the input straight into the output buffers and lets the subclass
// transform them in place. Everything the render path needs is made in
// allocateRenderResources(); render() itself never allocates, locks or throws.
#include "dsp/AudioBuffers.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace parlova {

// Big-endian packing of a 4-character code ("frmt" -> 0x66726D74).
uint32_t fourCharCode(const std::string& text);

class InPlaceEffectUnit : public AudioSource {
public:
    static constexpr int kDefaultMaxFrames = 4096;

    InPlaceEffectUnit();
    ~InPlaceEffectUnit() override = default;
    InPlaceEffectUnit(const InPlaceEffectUnit&) = delete;
    InPlaceEffectUnit& operator=(const InPlaceEffectUnit&) = delete;

    // Creates a unit of type T registered under `subtype` (registration happens
    // once per subtype and run, guarded by a lock).
    template <class T>
    static std::unique_ptr<T> makeNode(const std::string& subtype, const std::string& name) {
        registerSubtype(subtype, name);
        return std::make_unique<T>();
    }
    static bool isRegistered(const std::string& subtype);
    static int registrationCount();

    void setInput(AudioSource* input) { input_ = input; }
    AudioSource* input() const { return input_; }

    const AudioFormat& format() const { return format_; }
    void setFormat(const AudioFormat& format) { format_ = format; }
    int maximumFramesToRender() const { return maxFrames_; }
    void setMaximumFramesToRender(int frames) { maxFrames_ = frames; }

    // Makes the pull buffer at maximumFramesToRender and calls prepare().
    void allocateRenderResources();
    virtual void deallocateRenderResources();
    bool renderResourcesAllocated() const { return !pullBuffer_.empty(); }

    // Render callback: status::noConnection without input or resources or for
    // more frames than prepared; otherwise the input's status, and on success the
    // processed output.
    int32_t pull(BufferList& out, int frames) noexcept override;

protected:
    virtual void prepare(const AudioFormat& format, int maxFrames);
    virtual void process(BufferList& buffers, int frames) noexcept;

private:
    static void registerSubtype(const std::string& subtype, const std::string& name);

    AudioSource* input_ = nullptr;
    AudioFormat format_{48000.0, 2};
    int maxFrames_ = kDefaultMaxFrames;
    std::vector<std::vector<float>> pullBuffer_;
};

}  // namespace parlova
