#pragma once
// Breaks a listener would hear in a steady signal: runs of 2 ms windows whose
// level collapses below a tenth of the recording's typical level. The first
// and last quarter second (a recorder's own edges) are left out. Shared by the
// sound-server tests and the latency probe.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace parlova::analysis {

inline int countDropouts(const std::vector<float>& s, int rate) {
    const size_t window = static_cast<size_t>(rate / 500), edge = static_cast<size_t>(rate / 4);
    if (s.size() < 2 * edge + window) return -1;
    std::vector<double> levels;
    for (size_t at = edge; at + window <= s.size() - edge; at += window) {
        double sum = 0;
        for (size_t i = at; i < at + window; ++i) sum += double(s[i]) * s[i];
        levels.push_back(std::sqrt(sum / double(window)));
    }
    std::vector<double> sorted = levels;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<long>(sorted.size() / 2), sorted.end());
    const double floor = 0.1 * sorted[sorted.size() / 2];
    int breaks = 0;
    bool inBreak = false;
    for (double level : levels) {
        if (level < floor && !inBreak) ++breaks;
        inBreak = level < floor;
    }
    return breaks;
}

}  // namespace parlova::analysis
