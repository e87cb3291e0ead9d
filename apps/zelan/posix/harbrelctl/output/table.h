// Columns of text.
#pragma once

#include <string>
#include <vector>

enum Tone { TONE_PLAIN, TONE_GOOD, TONE_BAD };

struct Cell {
    Cell(std::string words = "-", Tone cellTone = TONE_PLAIN)  // NOLINT(google-explicit-constructor)
        : text(words.empty() ? "-" : std::move(words)), tone(cellTone) {}
    Cell(const char *words) : Cell(std::string(words)) {}  // NOLINT(google-explicit-constructor)
    std::string text;
    Tone tone;
};

struct Table {
    std::vector<std::string> legend;
    std::vector<std::vector<Cell>> rows;  // each as long as the legend
};

// Two blanks between columns, none at the end of a line. Pure.
std::string RenderTable(const Table &table, bool withLegend, bool colour);
