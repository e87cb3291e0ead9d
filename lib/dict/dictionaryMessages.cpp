#include "lib/dict/dictionaryMessages.h"

#include "lib/config/msg.h"
#include "lib/dict/dictionaryData.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

struct PlacedMessage {
    const char *id;
    const char *text;        // behind the place
    const char *textNoFile;  // where a dictionary without a file has another wording, else null
};
constexpr PlacedMessage MESSAGES[] = {
    {"msg.dictionary.read.readError", "%s.\n", nullptr},
    {"msg.dictionary.read.syntaxError", "Syntax error.\n", nullptr},
    {"msg.dictionary.alreadyDefined", "Variable \"%s\" is already defined.\n", nullptr},
    {"msg.dictionary.unknownEncoding", "Character encoding \"%s\" is not supported.\n", nullptr},
    {"msg.dictionary.hasEncoding", "File already has an encoding \"%s\".\n",
     "Dictionary already has an encoding \"%s\".\n"},
    {"msg.dictionary.badEncodedInput", "Value \"%s\" for variable \"%s\" is not valid in encoding \"%s\".\n",
     nullptr},
};
static_assert(sizeof MESSAGES / sizeof *MESSAGES == DICTIONARY_MESSAGE_COUNT);

MallocString Compose(const char *id, const char *suffix, const char *place, const char *text) {
    return MallocString(Str_SafeAsprintf(nullptr, MSG_MAGIC "(%s%s)%s%s", id, suffix, place, text));
}

}  // namespace

void Dictionary_AppendMessage(const Dictionary &dict, DictionaryMessage message, const char *first,
                              const char *second, const char *third) {
    const auto &[id, text, textNoFile] = MESSAGES[message];
    if (dict.fileName == nullptr) {
        const char *alone = textNoFile != nullptr ? textNoFile : text;
        Msg_AppendFormatted(Compose(id, "NoFile", "", alone).get(), first, second, third);
    } else if (dict.lineNumber <= 0) {
        Msg_AppendFormatted(Compose(id, "NoLine", "File \"%s\": ", text).get(), dict.fileName, first, second,
                            third);
    } else {
        Msg_AppendFormatted(Compose(id, "", "File \"%s\" line %d: ", text).get(), dict.fileName,
                            dict.lineNumber, first, second, third);
    }
}
