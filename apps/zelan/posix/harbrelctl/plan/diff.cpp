#include <algorithm>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/plan/plan.h"

namespace {

constexpr size_t AROUND = 3;

std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

struct DiffLine {
    char mark;  // ' ', '-' or '+'
    std::string text;
};

// By the longest common subsequence; the files have some hundred lines at most.
std::vector<DiffLine> Compare(const std::vector<std::string> &a, const std::vector<std::string> &b) {
    std::vector<std::vector<size_t>> common(a.size() + 1, std::vector<size_t>(b.size() + 1, 0));
    for (size_t i = a.size(); i-- > 0;) {
        for (size_t j = b.size(); j-- > 0;) {
            common[i][j] =
                a[i] == b[j] ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    std::vector<DiffLine> lines;
    size_t i = 0, j = 0;
    while (i < a.size() || j < b.size()) {
        if (i < a.size() && j < b.size() && a[i] == b[j]) {
            lines.push_back({' ', a[i++]});
            j++;
        } else if (j == b.size() || (i < a.size() && common[i + 1][j] >= common[i][j + 1])) {
            lines.push_back({'-', a[i++]});
        } else {
            lines.push_back({'+', b[j++]});
        }
    }
    return lines;
}

bool NearChange(const std::vector<DiffLine> &lines, size_t index) {
    const size_t first = index < AROUND ? 0 : index - AROUND;
    const size_t last = std::min(lines.size(), index + AROUND + 1);
    return std::any_of(lines.begin() + static_cast<ptrdiff_t>(first),
                       lines.begin() + static_cast<ptrdiff_t>(last),
                       [](const DiffLine &line) { return line.mark != ' '; });
}

// One run of lines from `start` on; its line numbers count from 1.
std::string Hunk(const std::vector<DiffLine> &lines, size_t *index, size_t *oldLine, size_t *newLine) {
    std::string body;
    size_t oldCount = 0, newCount = 0;
    for (; *index < lines.size() && NearChange(lines, *index); ++*index) {
        const DiffLine &line = lines[*index];
        body += line.mark + line.text + "\n";
        oldCount += line.mark != '+';
        newCount += line.mark != '-';
    }
    const auto place = [](size_t line, size_t count) {
        return std::to_string(count == 0 ? line - 1 : line) + "," + std::to_string(count);
    };
    const std::string head = "@@ -" + place(*oldLine, oldCount) + " +" + place(*newLine, newCount) + " @@\n";
    *oldLine += oldCount;
    *newLine += newCount;
    return head + body;
}

}  // namespace

std::string UnifiedDiff(const FileChange &change) {
    if (change.before == change.after) {
        return "";
    }
    const std::vector<DiffLine> lines = Compare(Lines(change.before), Lines(change.after));
    std::string text = "--- " + (change.before.empty() ? "/dev/null" : change.path) + "\n+++ " +
                       (change.after.empty() ? "/dev/null" : change.path) + "\n";
    size_t oldLine = 1, newLine = 1;
    for (size_t index = 0; index < lines.size();) {
        if (NearChange(lines, index)) {
            text += Hunk(lines, &index, &oldLine, &newLine);
        } else {
            index++;
            oldLine++;
            newLine++;
        }
    }
    return text;
}
