#include <strings.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "lib/config/msg.h"
#include "lib/dict/dictionaryData.h"
#include "lib/string/tokens.h"

namespace {

using Converter = void (*)(const char *text, const char *name, DictionaryValue *value);

struct Word {
    const char *word;
    int value;
};
constexpr Word BOOLEAN_WORDS[] = {
    {"", 1},      {"true", 1}, {"t", 1},  {"yes", 1}, {"y", 1},   {"on", 1}, {"1", 1},
    {"false", 0}, {"f", 0},    {"no", 0}, {"n", 0},   {"off", 0}, {"0", 0},
};
constexpr Word DONT_CARE_WORDS[] = {{"default", -1}, {"dontcare", -1}, {"auto", -1}};

template <size_t N>
bool FindWord(const Word (&words)[N], const char *text, int *value) {
    for (const Word &word : words) {
        if (strcasecmp(text, word.word) == 0) {
            *value = word.value;
            return true;
        }
    }
    return false;
}

// An empty text is no number either.
bool IsWholeNumber(const char *text, const char *end) {
    return end != text && *end == '\0';
}

void ConvertBoolean(const char *text, const char *name, DictionaryValue *value) {
    int number = 0;
    if (!FindWord(BOOLEAN_WORDS, text, &number)) {
        Msg_Post(MSG_ERROR,
                 MSGID("msg.dictionary.notBoolean")
                 "Value \"%s\" for variable \"%s\" is not a valid boolean value. Using value \"%s\".\n",
                 text, name, "false");
    }
    value->boolean = number != 0;
}

void ConvertTristate(const char *text, const char *name, DictionaryValue *value) {
    int number = 0;
    if (!FindWord(BOOLEAN_WORDS, text, &number) && !FindWord(DONT_CARE_WORDS, text, &number)) {
        Msg_Post(MSG_ERROR,
                 MSGID("msg.dictionary.notTristate")
                 "Value \"%s\" for variable \"%s\" is not a valid tristate value. Using value \"%s\".\n",
                 text, name, "false");
    }
    value->tristate = number;
}

// What fits in 32 bits, signed or unsigned, is accepted; more never wraps.
void ConvertInteger(const char *text, const char *name, DictionaryValue *value) {
    char *end = nullptr;
    errno = 0;
    const long number = strtol(text, &end, NumberBase(text));
    if (errno == ERANGE || number < INT32_MIN || number > UINT32_MAX) {
        value->integer = -1;
        Msg_Post(MSG_ERROR,
                 MSGID("msg.dictionary.integerTooBig")
                 "Value \"%s\" for variable \"%s\" is too large. Using value \"%d\".\n",
                 text, name, value->integer);
        return;
    }
    value->integer = static_cast<int32_t>(number);
    if (!IsWholeNumber(text, end)) {
        Msg_Post(MSG_ERROR,
                 MSGID("msg.dictionary.notInteger")
                 "Value \"%s\" for variable \"%s\" is not a valid integer value. Using value \"%d\".\n",
                 text, name, value->integer);
    }
}

void ConvertInteger64(const char *text, const char *name, DictionaryValue *value) {
    char *end = nullptr;
    errno = 0;
    value->integer64 = static_cast<int64_t>(strtoull(text, &end, NumberBase(text)));
    if (errno == ERANGE) {
        Msg_Post(MSG_ERROR,
                 MSGID("msg.dictionary.integer64TooBig")
                 "Value \"%s\" for variable \"%s\" is too large. Using value \"%ld\".\n",
                 text, name, value->integer64);
    } else if (!IsWholeNumber(text, end)) {
        Msg_Post(MSG_ERROR,
                 MSGID("msg.dictionary.notInteger64")
                 "Value \"%s\" for variable \"%s\" is not a valid integer value. Using value \"%ld\".\n",
                 text, name, value->integer64);
    }
}

void ConvertDouble(const char *text, const char *name, DictionaryValue *value) {
    char *end = nullptr;
    value->real = strtod(text, &end);
    if (!IsWholeNumber(text, end)) {
        Msg_Post(MSG_ERROR,
                 MSGID("msg.dictionary.notFloat")
                 "Value \"%s\" for variable \"%s\" is not a valid floating-point value. Using value \"%f\".\n",
                 text, name, value->real);
    }
}

// By type; a string stays as it is.
constexpr Converter CONVERTERS[] = {
    nullptr, nullptr, ConvertBoolean, ConvertInteger, ConvertDouble, ConvertTristate, ConvertInteger64,
};
static_assert(sizeof CONVERTERS / sizeof *CONVERTERS == DICT_INT64 + 1);

}  // namespace

void Dictionary_Convert(DictionaryEntry *entry, DictionaryType type) {
    const Converter convert = CONVERTERS[type];
    entry->type = type;
    if (convert == nullptr) {
        return;
    }
    char *text = entry->value.text;
    entry->value = {};
    convert(text != nullptr ? text : "", entry->name, &entry->value);
    free(text);
}
