#include "daemons/zelan-natd/dnsMessage.h"

#include <gtest/gtest.h>

#include "daemons/zelan-natd/dnsShare.h"

namespace {

using enum DnsVerdict;

// A message number 0x1234 with these flags, counts of questions, answers, authorities and others, and what
// follows.
std::string Message(const std::string &flags, const std::string &counts, const std::string &rest) {
    std::string text = "\x12\x34" + flags;
    for (const char count : counts) {
        text += std::string({'\0', static_cast<char>(count - '0')});
    }
    return text + rest;
}

// A question for a name of labels of these lengths.
std::string Question(const std::vector<size_t> &labels, char type) {
    std::string text;
    for (const size_t length : labels) {
        text.append(1, static_cast<char>(length)).append(length, 'a');
    }
    return text + std::string({'\0', '\0', type, '\0', '\1'});
}

TEST(DnsMessage, QueriesWithOneQuestionPassAndOthersAreAnsweredWithoutRecords) {
    const struct {
        const char *what;
        char flags;  // the first byte of them
        const char *counts;
        std::vector<size_t> labels;
        char type;
        DnsVerdict verdict;
        char answerFlags;
        bool repeats;  // the question, in the answer
    } cases[] = {
        {"a query", 1, "1001", {3}, 1, PASS_ON, '\x81', true},
        {"the root", 7, "1000", {}, 1, PASS_ON, '\x81', true},
        {"the longest label", 0, "1000", {63}, 1, PASS_ON, '\x80', true},
        {"too long a label", 1, "1000", {64}, 1, FORMAT_ERROR, '\x81', false},
        {"the longest name", 1, "1000", {63, 63, 63, 61}, 1, PASS_ON, '\x81', true},
        {"too long a name", 1, "1000", {63, 63, 63, 62}, 1, FORMAT_ERROR, '\x81', false},
        {"no question", 1, "0000", {3}, 1, FORMAT_ERROR, '\x81', false},
        {"an answer", 1, "1100", {3}, 1, FORMAT_ERROR, '\x81', false},
        {"an authority", 1, "1010", {3}, 1, FORMAT_ERROR, '\x81', false},
        {"an update", '\x28', "1000", {3}, 1, NOT_IMPLEMENTED, '\xa8', true},
        {"a zone's changes", 1, "1000", {3}, '\xfb', REFUSED, '\x81', true},
        {"a zone", 1, "1000", {3}, '\xfc', REFUSED, '\x81', true},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        const std::string question = Question(row.labels, row.type);
        const std::string message = Message({row.flags, '\x20'}, row.counts, question + "more");
        const std::string answer = Message({row.answerFlags, static_cast<char>(row.verdict)},
                                           row.repeats ? "1000" : "0000", row.repeats ? question : "");
        EXPECT_EQ(row.verdict, DnsMessage_Judge(message));
        EXPECT_EQ(answer, DnsMessage_Answer(message, row.verdict));
        EXPECT_EQ(IGNORE, DnsMessage_Judge(answer));
        EXPECT_TRUE(DnsMessage_IsAnswerTo(answer, message));
        EXPECT_FALSE(DnsMessage_IsAnswerTo(message, message)) << "no answer";
        EXPECT_FALSE(DnsMessage_IsAnswerTo("\x12\x35" + answer.substr(2), message)) << "another's";
        EXPECT_FALSE(DnsMessage_IsAnswerTo(answer.substr(0, 11), message)) << "half a header";
        EXPECT_EQ(IGNORE, DnsMessage_Judge(message.substr(0, 11)));
    }
    EXPECT_EQ(FORMAT_ERROR, DnsMessage_Judge(Message("\1 ", "1000", Question({3}, 1).substr(0, 8))));
    EXPECT_EQ(2U, DnsMessage_SizeOnStream("\x01"));
    EXPECT_EQ(0x0102U + 2, DnsMessage_SizeOnStream("\x01\x02"));
}

TEST(DnsShare, TheGreediestLosesItsOldest) {
    struct Entry {
        DnsGuest sender;
        int number;
        bool operator==(const Entry &) const = default;
    };
    std::vector<Entry> entries = {{7, 1}, {5, 2}, {9, 3}, {5, 4}, {9, 5}, {5, 6}};
    EXPECT_EQ(5U, DnsShare_Greediest(DnsShare_Count(entries)));
    DnsShare_RemoveOldest(&entries, 5);
    DnsShare_RemoveOldest(&entries, 8);
    EXPECT_EQ((std::vector<Entry>{{7, 1}, {9, 3}, {5, 4}, {9, 5}, {5, 6}}), entries);
}

}  // namespace
