#include "daemons/common/traces.h"

#include <algorithm>
#include <charconv>
#include <climits>

#include "daemons/common/file.h"
#include "daemons/common/options.h"
#include "daemons/common/text.h"

namespace {

constexpr std::string_view RECORD_PREFIX = "daemon-";

constexpr std::string_view PROCESS = "process";
constexpr std::string_view START_TIME = "start-time";
constexpr std::string_view LINK = "link";
constexpr std::string_view HOST_INTERFACE = "host-interface";
constexpr std::string_view FILTERS = "filters";
constexpr std::string_view PID_FILE = "pid-file";

std::string Line(std::string_view key, const std::string &value) {
    return std::string(key) + " " + value + "\n";
}

bool ReadNumber(std::string_view text, uint64_t *number) {
    auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && stop == text.data() + text.size();
}

bool TakeValue(std::string_view key, std::string_view value, Traces *traces) {
    int number = 0;
    if (key == START_TIME) {
        return ReadNumber(value, &traces->startTime);
    }
    if (!Options_Number(value, INT_MAX, &number)) {
        return false;
    }
    if (key == PROCESS) {
        traces->process = number;
    } else if (key == LINK) {
        traces->cleanUp.links.push_back(number);
    } else if (key == HOST_INTERFACE) {
        traces->cleanUp.hostInterface = number;
    } else if (key == FILTERS) {
        traces->cleanUp.filters = number;
    } else {
        return false;
    }
    return true;
}

}  // namespace

uint64_t Process_StartTime(pid_t process) {
    // The fields follow the command's name, which is in parentheses and may hold anything.
    constexpr int FIELD = 20;
    std::string text;
    if (!File_Read(("/proc/" + std::to_string(process) + "/stat").c_str(), &text)) {
        return 0;
    }
    std::string_view rest = text;
    rest.remove_prefix(rest.rfind(')') + 1);
    std::string_view word;
    for (int i = 0; i < FIELD; i++) {
        if (!Text_TakeWord(&rest, &word)) {
            return 0;
        }
    }
    uint64_t time = 0;
    return ReadNumber(word, &time) ? time : 0;
}

std::string Traces_Text(const Traces &traces) {
    std::string text = Line(PROCESS, std::to_string(traces.process)) +
                       Line(START_TIME, std::to_string(traces.startTime)) +
                       Line(HOST_INTERFACE, std::to_string(traces.cleanUp.hostInterface));
    for (int link : traces.cleanUp.links) {
        text += Line(LINK, std::to_string(link));
    }
    if (traces.cleanUp.filters >= 0) {
        text += Line(FILTERS, std::to_string(traces.cleanUp.filters));
    }
    // Last, since a path may hold line ends.
    return text + Line(PID_FILE, traces.pidFile);
}

bool Traces_Parse(std::string_view text, Traces *traces) {
    *traces = Traces();
    std::string_view line;
    std::string_view key;
    for (std::string_view rest = text; Text_TakeLine(&rest, &line);) {
        if (!Text_TakeWord(&line, &key)) {
            return false;
        }
        line.remove_prefix(std::min<size_t>(line.size(), 1));
        if (key == PID_FILE) {
            traces->pidFile = text.substr(static_cast<size_t>(line.data() - text.data()));
            traces->pidFile.pop_back();
            return true;
        }
        if (!TakeValue(key, line, traces)) {
            return false;
        }
    }
    return false;
}

std::string Traces_Path(const Duty &duty) {
    return std::string(WATCH_FOLDER) + "/" + std::string(RECORD_PREFIX) + Duty_Text(duty);
}

bool Traces_IsRecord(std::string_view fileName, Duty *duty) {
    return fileName.starts_with(RECORD_PREFIX) && Duty_Parse(fileName.substr(RECORD_PREFIX.size()), duty);
}
