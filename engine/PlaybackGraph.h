#pragma once
// Plays a clip through a voice chain on an output device. The file is decoded
// up front; the output device's I/O thread pulls the chain. `finished()` turns
// true once the whole clip (and the chain's delay) has been played out.
#include "engine/AudioFile.h"
#include "engine/DeviceOutput.h"
#include "engine/TapRelay.h"
#include "engine/VoiceChain.h"

#include <QObject>

#include <atomic>
#include <functional>
#include <memory>

namespace parlova {

class PlaybackGraph : public QObject {
    Q_OBJECT
public:
    using BlockHandler = std::function<void(const float* mono, int frames)>;

    // Throws VoiceEngineError.
    PlaybackGraph(std::unique_ptr<AudioFileReader> file, uint32_t output, const Voice& voice, BlockHandler meterTap);
    ~PlaybackGraph() override;

    void start();
    void stop();
    bool finished() const { return finished_.load(std::memory_order_acquire); }
    std::shared_ptr<VoiceChain> chain() const { return chain_; }

signals:
    void deviceLost();
    void failed(const QString& message);

private:
    class Player;
    std::unique_ptr<AudioFileReader> file_;
    std::atomic<bool> finished_{false};
    std::unique_ptr<TapRelay> meterRelay_;
    std::unique_ptr<Player> player_;
    std::shared_ptr<VoiceChain> chain_;
    std::unique_ptr<AudioSource> renderer_;
    std::unique_ptr<DeviceOutput> output_;
};

}  // namespace parlova
