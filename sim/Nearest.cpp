#include "sim/Nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace sim {

namespace {

bool same(char left, char right) {
    return std::tolower(static_cast<unsigned char>(left)) ==
           std::tolower(static_cast<unsigned char>(right));
}

/** How many letters must be added, removed, replaced or swapped with their neighbour. */
size_t distance(std::string_view from, std::string_view to) {
    std::vector<size_t> beforeLast(to.size() + 1);
    std::vector<size_t> last(to.size() + 1);
    std::vector<size_t> row(to.size() + 1);
    std::iota(last.begin(), last.end(), 0);
    for (size_t i = 1; i <= from.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            const size_t replaced = last[j - 1] + (same(from[i - 1], to[j - 1]) ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && same(from[i - 1], to[j - 2]) && same(from[i - 2], to[j - 1])) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last.back();
}

}  // namespace

std::string_view nearest(std::string_view word, const std::vector<std::string_view>& known) {
    std::string_view best;
    constexpr size_t kMost = 3;
    size_t fewest = std::clamp<size_t>(word.size() / 3, 1, kMost) + 1;
    for (const std::string_view candidate : known) {
        if (const size_t letters = distance(word, candidate); letters < fewest) {
            fewest = letters;
            best = candidate;
        }
    }
    return best;
}

std::string didYouMean(std::string_view word, const std::vector<std::string_view>& known) {
    const std::string_view meant = nearest(word, known);
    return meant.empty() ? "" : " (did you mean '" + std::string(meant) + "'?)";
}

}  // namespace sim
