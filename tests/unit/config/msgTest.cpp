#include "lib/config/msg.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "lib/err/errText.h"
#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "tests/support/generalLog.h"

namespace {

std::vector<std::string> posted;  // "<severity> <identifier> <text>"
std::vector<std::string> postedIds;

// Posts land in `posted` and `postedIds` instead of on the terminal.
class Msg : public testing::Test {
  protected:
    void SetUp() override {
        Msg_Reset(false);
        posted.clear();
        postedIds.clear();
        Msg_SetPostCallbacks(
            [](int severity, const char *id, const char *text) {
                posted.push_back(std::to_string(severity) + " " + id + " " + text);
            },
            [](int, MsgList *list) {
                for (; list != nullptr; list = list->next) {
                    postedIds.emplace_back(list->id);
                }
            });
    }
    void TearDown() override { Msg_SetPostCallbacks(nullptr, nullptr); }
};

// A position in a format is not known to the C standard.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
TEST_F(Msg, PostShowsWhatWasAppendedOldestFirstAndOnlyOnce) {
    Msg_AppendFormatted(MSGID("test.first") "Cannot open \"%s\": %s.\n", "f", Err_ErrnoText(ENOENT));
    Msg_AppendFormatted(MSGID("test.second") "%2$s before %1$d.", 1, "two");
    Msg_Post(MSG_ERROR, MSGID("test.third") "Failed (100%%).\n");
    Msg_Post(MSG_WARNING, MSGID("test.fourth") "Alone.");
    EXPECT_THAT(posted, testing::ElementsAre(
                            "3 test.third Cannot open \"f\": No such file or directory.\ntwo before 1."
                            "Failed (100%).\n",
                            "2 test.fourth Alone."));
    EXPECT_THAT(postedIds, testing::ElementsAre("test.first", "test.second", "test.third", "test.fourth"));
}
#pragma GCC diagnostic pop

TEST_F(Msg, StopsAtAMessageThatIsNoneOrDoesNotFormat) {
    const std::string longest(127, 'i');
    const auto append = [](const std::string &message, const wchar_t *argument) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        Log_SetLogHook([](const char *format, va_list args) { vfprintf(stderr, format, args); });
        const char *volatile unchecked = message.c_str();
        Msg_AppendFormatted(unchecked, argument);
        Msg_Post(MSG_ERROR, MSGID("test.end") "End.");
        _exit(0);
    };
    EXPECT_EXIT(append(MSG_MAGIC "(" + longest + ")Text.", nullptr), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(append(MSG_MAGIC "(" + longest + "i)Text.", nullptr), testing::ExitedWithCode(1),
                "NOT_IMPLEMENTED lib/config/msgText.cpp:[0-9]+\n");
    EXPECT_EXIT(append(MSGID("test.count") "%n", nullptr), testing::ExitedWithCode(1),
                "Msg_VCreateMsgList error: MsgFmtGetArg1: %n not supported, pos \"\", type \"n\"\n"
                "format <%n>(.|\n)*PANIC lib/config/msgText.cpp:[0-9]+\n");
    EXPECT_EXIT(append(MSGID("test.wide") "%ls", L"\xD800"), testing::ExitedWithCode(1),
                "PANIC lib/config/msgText.cpp:[0-9]+\n");
}

TEST_F(Msg, LogsWhatIsPostedAndOnDemandWhatIsDropped) {
    const std::string rule = std::string(40, '-') + "\n";
    GeneralLog log;
    Msg_AppendFormatted(MSGID("test.first") "First.\n");
    Msg_Post(MSG_WARNING, MSGID("test.second") "Second %d.\n", 2);
    EXPECT_EQ(log.Take(), "Msg_Post: Warning\n[test.first] First.\n[test.second] Second 2.\n" + rule +
                              "PREF early PreferenceGet(msg.autoAnswer), using default\n"
                              "PREF early PreferenceGet(msg.noOK), using default\n");
    Msg_AppendFormatted(MSGID("test.dropped") "Dropped.\n");
    Msg_Reset(true);
    EXPECT_EQ(log.Take(), "Msg_Reset:\n[test.dropped] Dropped.\n" + rule);
    Msg_AppendFormatted(MSGID("test.silent") "Dropped.\n");
    Msg_Reset(false);
    Msg_Reset(true);
    EXPECT_EQ(log.Take(), "");
}

TEST_F(Msg, LocalizableArgumentsAppearAsTheirText) {
    const std::pair<const char *, const char *> CASES[] = {
        {MSGID("test.inner") "inner %d", "inner %d"},
        {MSG_MAGIC, MSG_MAGIC},  // data that only looks localizable
        {MSG_MAGIC "(open", MSG_MAGIC "(open"},
        {nullptr, "(null)"},
    };
    for (const auto &[argument, text] : CASES) {
        Msg_Post(MSG_ERROR, MSGID("test.outer") "%s", argument);
        EXPECT_EQ(posted.back(), std::string("3 test.outer ") + text);
    }
}

// Posts to the terminal and gives back what stands there, then what the post has left of the input.
std::string PostToTerminal(int severity, std::string input) {
    const FileStream keyboard(fmemopen(input.data(), input.size(), "r"));
    FILE *const formerInput = std::exchange(stdin, keyboard.get());
    testing::internal::CaptureStderr();
    Msg_Post(severity, MSGID("test.terminal") "Text.");
    std::string shown = testing::internal::GetCapturedStderr();
    for (int byte = getchar(); byte != EOF; byte = getchar()) {
        shown.push_back(static_cast<char>(byte));
    }
    stdin = formerInput;
    return shown;
}

TEST_F(Msg, TerminalPostWaitsForTheEnterKeyUnlessToldNotTo) {
    const struct {
        bool noWait;
        int severity;
        const char *input, *shown;
    } CASES[] = {
        {false, MSG_ERROR, "ok\nnext",
         "\n\nOrvane Virtual Networks Error:\nText.\nPress \"Enter\" to continue...\nnext"},
        {false, MSG_ERROR, "closed",
         "\n\nOrvane Virtual Networks Error:\nText.\nPress \"Enter\" to continue...\n"},
        {true, MSG_WARNING, "kept\n", "\n\nOrvane Virtual Networks Warning:\nText.\n\nkept\n"},
    };
    Msg_SetPostCallbacks(nullptr, nullptr);
    for (const auto &row : CASES) {
        Msg_SetNoWait(row.noWait);
        EXPECT_EQ(PostToTerminal(row.severity, row.input), row.shown);
    }
    Msg_SetNoWait(false);
}

}  // namespace
