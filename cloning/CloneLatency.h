#pragma once
// How far behind the speaker live speech in a cloned voice runs: shorter
// blocks answer sooner, longer ones give clearer words.
#include <QString>

#include <array>
#include <optional>

namespace parlova {

enum class CloneLatency { fastest, balanced, clearest };

inline constexpr std::array<CloneLatency, 3> kAllCloneLatencies{CloneLatency::fastest, CloneLatency::balanced,
                                                                CloneLatency::clearest};

// The value sent as "profile" and kept in the settings.
inline QString rawValue(CloneLatency latency) {
    switch (latency) {
    case CloneLatency::fastest: return QStringLiteral("fastest");
    case CloneLatency::balanced: return QStringLiteral("balanced");
    case CloneLatency::clearest: return QStringLiteral("clearest");
    }
    return {};
}

inline QString label(CloneLatency latency) {
    switch (latency) {
    case CloneLatency::fastest: return QStringLiteral("~0.3 s");
    case CloneLatency::balanced: return QStringLiteral("~0.4 s");
    case CloneLatency::clearest: return QStringLiteral("~0.6 s");
    }
    return {};
}

inline std::optional<CloneLatency> cloneLatencyFromRaw(const QString& raw) {
    for (auto latency : kAllCloneLatencies)
        if (rawValue(latency) == raw) return latency;
    return std::nullopt;
}

}  // namespace parlova
