#include "daemons/zelan-natd/dnsMessage.h"

namespace {

constexpr size_t NUMBER_SIZE = 2;
constexpr size_t FLAGS_OFFSET = 2;
constexpr size_t RESULT_OFFSET = 3;
constexpr size_t QUESTIONS_OFFSET = 4;
constexpr size_t ANSWERS_OFFSET = 6;
constexpr size_t AUTHORITIES_OFFSET = 8;
constexpr size_t HEADER_SIZE = 12;

constexpr unsigned IS_ANSWER = 0x80;
constexpr unsigned KIND_MASK = 0x78;   // 0 is a query
constexpr unsigned KEPT_FLAGS = 0x79;  // in an answer: the kind, and whether recursion was asked for

constexpr unsigned MAX_LABEL = 63;
constexpr size_t MAX_NAME = 255;
constexpr unsigned TYPE_IXFR = 251;
constexpr unsigned TYPE_AXFR = 252;

unsigned Byte(std::string_view message, size_t place) {
    return static_cast<unsigned char>(message[place]);
}

unsigned Word(std::string_view message, size_t place) {
    return Byte(message, place) << 8 | Byte(message, place + 1);
}

// The place behind the question, which follows the header; 0 when it is none. Its type stands four bytes
// before its end.
size_t EndOfQuestion(std::string_view message) {
    constexpr size_t TYPE_AND_CLASS = 4;
    size_t place = HEADER_SIZE;
    while (place < message.size() && Byte(message, place) != 0) {
        unsigned length = Byte(message, place);
        place += 1 + length;
        if (length > MAX_LABEL || place - HEADER_SIZE >= MAX_NAME) {
            return 0;
        }
    }
    place += 1 + TYPE_AND_CLASS;
    return place <= message.size() ? place : 0;
}

bool HasOneQuestion(std::string_view message) {
    return Word(message, QUESTIONS_OFFSET) == 1 && Word(message, ANSWERS_OFFSET) == 0 &&
           Word(message, AUTHORITIES_OFFSET) == 0 && EndOfQuestion(message) != 0;
}

}  // namespace

DnsVerdict DnsMessage_Judge(std::string_view message) {
    if (message.size() < HEADER_SIZE || (Byte(message, FLAGS_OFFSET) & IS_ANSWER) != 0) {
        return DnsVerdict::IGNORE;
    }
    if ((Byte(message, FLAGS_OFFSET) & KIND_MASK) != 0) {
        return DnsVerdict::NOT_IMPLEMENTED;
    }
    if (!HasOneQuestion(message)) {
        return DnsVerdict::FORMAT_ERROR;
    }
    constexpr size_t TYPE_FROM_END = 4;
    unsigned type = Word(message, EndOfQuestion(message) - TYPE_FROM_END);
    return type == TYPE_IXFR || type == TYPE_AXFR ? DnsVerdict::REFUSED : DnsVerdict::PASS_ON;
}

std::string DnsMessage_Answer(std::string_view question, DnsVerdict verdict) {
    size_t end = HasOneQuestion(question) ? EndOfQuestion(question) : HEADER_SIZE;
    std::string answer(question.substr(0, end));
    answer[FLAGS_OFFSET] = static_cast<char>((Byte(question, FLAGS_OFFSET) & KEPT_FLAGS) | IS_ANSWER);
    answer[RESULT_OFFSET] = static_cast<char>(verdict);
    answer.replace(QUESTIONS_OFFSET, HEADER_SIZE - QUESTIONS_OFFSET, HEADER_SIZE - QUESTIONS_OFFSET, '\0');
    answer[QUESTIONS_OFFSET + 1] = end > HEADER_SIZE ? 1 : 0;
    return answer;
}

size_t DnsMessage_SizeOnStream(std::string_view bytes) {
    return DNS_LENGTH_SIZE + (bytes.size() < DNS_LENGTH_SIZE ? 0 : Word(bytes, 0));
}

bool DnsMessage_IsAnswerTo(std::string_view message, std::string_view question) {
    return message.size() >= HEADER_SIZE && (Byte(message, FLAGS_OFFSET) & IS_ANSWER) != 0 &&
           message.substr(0, NUMBER_SIZE) == question.substr(0, NUMBER_SIZE);
}
