#include "suggest.hpp"

#include <algorithm>
#include <cctype>
#include <limits>

namespace vpath_cli {
namespace {

// Optimal string alignment distance: insertions, deletions, substitutions and swaps of
// neighbours, each one edit.
std::size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

// The letters that count: an option's leading dashes are not a sign of likeness.
std::size_t Letters(const std::string& name) {
    return name.size() - std::min(name.find_first_not_of('-'), name.size());
}

bool SameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

// For a short option, one letter: every other short option is one edit away, so likeness is told by
// the letter. The short option of the other case is meant, else the long ones of that initial
// ("-V" for "--version").
std::vector<std::string> NearestToShort(const std::string& typed,
                                        const std::vector<std::string>& candidates) {
    std::vector<std::string> nearest;
    for (const auto& candidate : candidates) {
        if (candidate.size() == 2 && candidate[0] == '-' && SameLetter(candidate[1], typed[1]))
            nearest.push_back(candidate);
    }
    if (!nearest.empty())
        return nearest;
    for (const auto& candidate : candidates) {
        if (candidate.size() > 2 && candidate.compare(0, 2, "--") == 0 &&
            SameLetter(candidate[2], typed[1])) {
            nearest.push_back(candidate);
        }
    }
    return nearest;
}

}  // namespace

std::vector<std::string> NearestNames(const std::string& typed,
                                      const std::vector<std::string>& candidates) {
    if (typed.size() == 2 && typed[0] == '-' && typed[1] != '-')
        return NearestToShort(typed, candidates);
    std::vector<std::string> prefixed;
    for (const auto& candidate : candidates) {
        if (Letters(typed) >= 2 && candidate.size() > typed.size() &&
            candidate.compare(0, typed.size(), typed) == 0) {
            prefixed.push_back(candidate);
        }
    }
    if (!prefixed.empty())
        return prefixed;
    std::size_t best = std::numeric_limits<std::size_t>::max();
    std::vector<std::string> nearest;
    for (const auto& candidate : candidates) {
        // At most half of the candidate's letters may be wrong (one for the shortest, three for
        // the longest), so that a suggestion still looks like what was typed.
        const std::size_t allowed = std::clamp<std::size_t>(Letters(candidate) / 2, 1, 3);
        const std::size_t distance = EditDistance(typed, candidate);
        if (distance > allowed || distance > best)
            continue;
        if (distance < best)
            nearest.clear();
        best = distance;
        nearest.push_back(candidate);
    }
    return nearest;
}

std::string DidYouMean(const std::string& typed, const std::vector<std::string>& candidates) {
    const auto nearest = NearestNames(typed, candidates);
    if (nearest.empty())
        return {};
    std::string text = "; did you mean ";
    for (std::size_t i = 0; i < nearest.size(); ++i) {
        if (i > 0)
            text += i + 1 == nearest.size() ? " or " : ", ";
        text += "'" + nearest[i] + "'";
    }
    return text + "?";
}

}  // namespace vpath_cli
