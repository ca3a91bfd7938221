#pragma once
// "Did you mean": the closest of a few known words to a mistyped one.
#include <optional>
#include <string>
#include <vector>

namespace parlova::cli {

// Edit distance (insertions, deletions, substitutions, adjacent swaps),
// ignoring ASCII letter case.
int editDistance(const std::string& a, const std::string& b);

// The candidate nearest to `word` when it is near enough to be a slip of the
// keyboard (at most a third of its letters, at least one, at most three).
std::optional<std::string> nearest(const std::string& word, const std::vector<std::string>& candidates);

// The near miss, else the names that begin with `word` (at most three).
std::vector<std::string> suggestions(const std::string& word, const std::vector<std::string>& candidates);

// " Did you mean X?" (or "X or Y?") for a near miss, else empty: to append to a sentence.
std::string didYouMean(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace parlova::cli
