#include "lib/unicode/caseFold.h"

#include <array>
#include <cstddef>

namespace {

struct FoldRange {
    uint16_t first;
    uint16_t last;
    uint16_t step;
    uint16_t delta;
};

constexpr FoldRange FOLD_RANGES[] = {
#include "lib/unicode/caseFoldRanges.inc"
};

constexpr size_t PAGE_UNITS = 256;

constexpr size_t CountPages() {
    std::array<bool, PAGE_UNITS> used{};
    for (const FoldRange &range : FOLD_RANGES) {
        for (unsigned unit = range.first; unit <= range.last; unit += range.step) {
            used[unit / PAGE_UNITS] = true;
        }
    }
    size_t count = 0;
    for (const bool isUsed : used) {
        count += isUsed ? 1 : 0;
    }
    return count;
}

// The high byte of a unit chooses a page, the low byte what to add. All units without case share page 0.
struct FoldTable {
    std::array<uint8_t, PAGE_UNITS> pageOf{};
    std::array<std::array<uint16_t, PAGE_UNITS>, CountPages() + 1> deltas{};
};

constexpr FoldTable BuildTable() {
    FoldTable table;
    uint8_t pages = 0;
    for (const FoldRange &range : FOLD_RANGES) {
        for (unsigned unit = range.first; unit <= range.last; unit += range.step) {
            uint8_t &page = table.pageOf[unit / PAGE_UNITS];
            page = page != 0 ? page : ++pages;
            table.deltas[page][unit % PAGE_UNITS] = range.delta;
        }
    }
    return table;
}

constexpr FoldTable FOLD_TABLE = BuildTable();

}  // namespace

uint16_t CaseFold_Unit(uint16_t unit) {
    const size_t page = FOLD_TABLE.pageOf[unit / PAGE_UNITS];
    return static_cast<uint16_t>(unit + FOLD_TABLE.deltas[page][unit % PAGE_UNITS]);
}
