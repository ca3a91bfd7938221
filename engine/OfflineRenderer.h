#pragma once
// Renders a whole audio file through a voice into another file, faster than
// real time: 256-frame blocks, vibrato and tremolo following the rendered time,
// and a 0.8 s tail so the reverb rings out. The voice chain runs at
// kChainSampleRate; a file at another rate is converted to it on the way in and
// back to the file's rate on the way out (no added delay either way).
#include "voices/Voice.h"

#include <functional>
#include <memory>
#include <string>

namespace parlova {

struct CleanMicControl;

inline constexpr int kRenderBlockFrames = 256;
inline constexpr double kRenderTailSeconds = 0.8;
inline constexpr const char* kRendererErrorMessage = "The audio renderer reported an error.";

// Fraction done, 0 to 1; return false to cancel (the render then throws).
using RenderProgress = std::function<bool(double fraction)>;

// Throws VoiceEngineError with a finished sentence on any failure. The output
// has the source's rate and channel count and renderedLength() frames; its type
// follows the extension. With `cleanMic` the file first passes through the
// clean-mic stage (mixed to mono), as the microphone does in live mode.
void renderOffline(const std::string& source, const std::string& destination, const Voice& voice,
                   const RenderProgress& progress = {}, std::shared_ptr<const CleanMicControl> cleanMic = nullptr);

// Frames an offline render of `sourceFrames` at `sampleRate` produces.
long long renderedLength(long long sourceFrames, double sampleRate);

}  // namespace parlova
