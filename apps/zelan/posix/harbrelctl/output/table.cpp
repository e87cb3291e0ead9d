#include "apps/zelan/posix/harbrelctl/output/table.h"

#include <algorithm>

#include "apps/zelan/posix/harbrelctl/model/text.h"

namespace {

std::string Coloured(const Cell &cell, bool colour) {
    static constexpr const char *STARTS[] = {"", "\033[32m", "\033[31m"};
    const std::string text = Printable(cell.text);
    return colour && cell.tone != TONE_PLAIN ? STARTS[cell.tone] + text + "\033[0m" : text;
}

// Characters, not bytes, of UTF-8.
size_t Width(const std::string &text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xc0) != 0x80; }));
}

std::string Line(const std::vector<Cell> &cells, const std::vector<size_t> &widths, bool colour) {
    std::string line;
    for (size_t column = 0; column < cells.size(); column++) {
        line += Coloured(cells[column], colour);
        if (column + 1 < cells.size()) {
            line.append(widths[column] - Width(cells[column].text) + 2, ' ');
        }
    }
    return line + "\n";
}

}  // namespace

std::string RenderTable(const Table &table, bool withLegend, bool colour) {
    std::vector<std::vector<Cell>> lines;
    if (withLegend) {
        lines.emplace_back(table.legend.begin(), table.legend.end());
    }
    lines.insert(lines.end(), table.rows.begin(), table.rows.end());
    std::vector<size_t> widths(table.legend.size(), 0);
    for (const std::vector<Cell> &line : lines) {
        for (size_t column = 0; column < line.size(); column++) {
            widths[column] = std::max(widths[column], Width(line[column].text));
        }
    }
    std::string text;
    for (const std::vector<Cell> &line : lines) {
        text += Line(line, widths, colour);
    }
    return text;
}
