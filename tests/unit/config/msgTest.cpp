#include "lib/config/msg.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lib/err/errText.h"

namespace {

struct Posted {
    int severity;
    std::string id;
    std::string text;
    bool operator==(const Posted &) const = default;
};
std::vector<Posted> posted;
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
                posted.push_back({severity, id, text});
            },
            [](int, MsgList *list) {
                for (; list != nullptr; list = list->next) {
                    postedIds.emplace_back(list->id);
                }
            });
    }
    void TearDown() override { Msg_SetPostCallbacks(nullptr, nullptr); }
};

TEST_F(Msg, PostShowsWhatWasAppendedOldestFirstAndOnlyOnce) {
    Msg_AppendFormatted(MSGID("test.first") "Cannot open \"%s\": %s.\n", "f", Err_ErrnoText(ENOENT));
    Msg_AppendFormatted(MSGID("test.second") "%2$s before %1$d.", 1, "two");
    Msg_Post(MSG_ERROR, MSGID("test.third") "Failed (100%%).\n");
    Msg_Post(MSG_WARNING, MSGID("test.fourth") "Alone.");
    EXPECT_THAT(posted,
                testing::ElementsAre(Posted{MSG_ERROR, "test.third",
                                            "Cannot open \"f\": No such file or directory.\ntwo before 1."
                                            "Failed (100%).\n"},
                                     Posted{MSG_WARNING, "test.fourth", "Alone."}));
    EXPECT_THAT(postedIds, testing::ElementsAre("test.first", "test.second", "test.third", "test.fourth"));
}

TEST_F(Msg, ResetDropsWhatWasAppended) {
    Msg_AppendFormatted(MSGID("test.dropped") "Dropped.");
    Msg_Reset(true);
    Msg_Post(MSG_INFO, MSGID("test.kept") "Kept.");
    EXPECT_THAT(posted, testing::ElementsAre(Posted{MSG_INFO, "test.kept", "Kept."}));
}

TEST_F(Msg, LocalizableArgumentsAppearAsTheirText) {
    const struct {
        const char *argument;
        const char *text;
    } CASES[] = {
        {MSGID("test.inner") "inner %d", "<inner %d>"},
        {MSG_MAGIC, "<" MSG_MAGIC ">"},  // data that only looks localizable
        {MSG_MAGIC "(open", "<" MSG_MAGIC "(open>"},
        {MSG_MAGIC "x)y", "<" MSG_MAGIC "x)y>"},
        {nullptr, "<(null)>"},
    };
    for (const auto &row : CASES) {
        posted.clear();
        Msg_Post(MSG_ERROR, MSGID("test.outer") "<%s>", row.argument);
        ASSERT_EQ(posted.size(), 1u);
        EXPECT_EQ(posted[0].text, row.text);
    }
}

TEST_F(Msg, LookupGivesIdentifierAndText) {
    char *id = nullptr;
    EXPECT_STREQ(MsgLookupText(MSGID("a.b") "text (c)", false, &id), "text (c)");
    EXPECT_STREQ(id, "a.b");
    free(id);
}

// Runs `statement` with `input` as standard input and gives back what it wrote to standard error. The pipe
// with the input is left in *rest.
template <typename Statement>
std::string TerminalOf(const char *input, Statement statement, std::string *rest) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], input, strlen(input)), static_cast<ssize_t>(strlen(input)));
    close(ends[1]);
    const int savedInput = dup(STDIN_FILENO);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    clearerr(stdin);
    testing::internal::CaptureStderr();
    statement();
    std::string shown = testing::internal::GetCapturedStderr();
    for (int byte = getchar(); byte != EOF; byte = getchar()) {
        rest->push_back(static_cast<char>(byte));
    }
    dup2(savedInput, STDIN_FILENO);
    close(savedInput);
    clearerr(stdin);
    return shown;
}

TEST_F(Msg, TerminalPostWaitsForTheEnterKey) {
    Msg_SetPostCallbacks(nullptr, nullptr);
    std::string rest;
    EXPECT_EQ(TerminalOf(
                  "ok\nnext", [] { Msg_Post(MSG_ERROR, MSGID("t") "Text."); }, &rest),
              "\n\nOrvane Virtual Networks Error:\nText.\nPress \"Enter\" to continue...\n");
    EXPECT_EQ(rest, "next");
}

TEST_F(Msg, TerminalPostGoesOnAtTheEndOfInputOrWhenToldNotToWait) {
    Msg_SetPostCallbacks(nullptr, nullptr);
    std::string rest;
    TerminalOf(
        "no line end", [] { Msg_Post(MSG_INFO, MSGID("t") "x"); }, &rest);
    EXPECT_EQ(rest, "");
    Msg_SetNoWait(true);
    EXPECT_EQ(TerminalOf(
                  "kept\n", [] { Msg_Post(MSG_WARNING, MSGID("t") "x"); }, &rest),
              "\n\nOrvane Virtual Networks Warning:\nx\n\n");
    Msg_SetNoWait(false);
    EXPECT_EQ(rest, "kept\n");
}

// The stop writes to standard output; the death test looks at standard error.
void OnStderr() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

TEST(MsgDeathTest, ProgrammingErrorsStopTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string longest = MSG_MAGIC "(" + std::string(127, 'i') + ")";
    Msg_AppendFormatted(longest.c_str());
    Msg_Reset(false);
    const std::string tooLong = MSG_MAGIC "(" + std::string(128, 'i') + ")";
    EXPECT_EXIT((OnStderr(), Msg_AppendFormatted(tooLong.c_str())), testing::ExitedWithCode(1),
                "NOT_IMPLEMENTED lib/config/msgText.cpp:");
    EXPECT_EXIT((OnStderr(), Msg_AppendFormatted(MSGID("t") "%1$d %d", 1, 2)), testing::ExitedWithCode(1),
                "PANIC lib/config/msgText.cpp:");
}

}  // namespace
