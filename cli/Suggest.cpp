#include "cli/Suggest.h"

#include <algorithm>
#include <cctype>

namespace parlova::cli {

int editDistance(const std::string& a, const std::string& b) {
    auto lower = [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); };
    const size_t n = a.size(), m = b.size();
    // Three rows are enough for the adjacent-swap rule.
    std::vector<int> before(m + 1), previous(m + 1), current(m + 1);
    for (size_t j = 0; j <= m; ++j) previous[j] = static_cast<int>(j);
    for (size_t i = 1; i <= n; ++i) {
        current[0] = static_cast<int>(i);
        for (size_t j = 1; j <= m; ++j) {
            const int cost = lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1;
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + cost});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1]))
                current[j] = std::min(current[j], before[j - 2] + 1);
        }
        before.swap(previous);
        previous.swap(current);
    }
    return previous[m];
}

std::optional<std::string> nearest(const std::string& word, const std::vector<std::string>& candidates) {
    const int allowed = std::clamp(static_cast<int>(word.size()) / 3, 1, 3);
    std::optional<std::string> best;
    int bestDistance = allowed + 1;
    for (const auto& candidate : candidates) {
        const int d = editDistance(word, candidate);
        if (d < bestDistance) {
            bestDistance = d;
            best = candidate;
        }
    }
    return best;
}

std::vector<std::string> suggestions(const std::string& word, const std::vector<std::string>& candidates) {
    if (auto best = nearest(word, candidates)) return {*best};
    // A word cut short ("tremolo") suggests every name it begins.
    std::vector<std::string> begun;
    if (word.size() >= 3)
        for (const auto& c : candidates)
            if (c.size() > word.size() && editDistance(c.substr(0, word.size()), word) == 0) begun.push_back(c);
    if (begun.size() > 3) begun.clear();
    return begun;
}

std::string didYouMean(const std::string& word, const std::vector<std::string>& candidates) {
    const auto found = suggestions(word, candidates);
    if (found.empty()) return {};
    std::string text = " Did you mean ";
    for (size_t i = 0; i < found.size(); ++i)
        text += (i == 0 ? "" : i + 1 == found.size() ? " or " : ", ") + ("\"" + found[i] + "\"");
    return text + "?";
}

}  // namespace parlova::cli
