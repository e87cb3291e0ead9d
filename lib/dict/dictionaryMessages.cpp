#include "lib/dict/dictionaryMessages.h"

#include "lib/config/msg.h"
#include "lib/dict/dictionaryData.h"

// The three forms of one message as literals, which the compiler checks. Without a file the wording may be
// another one.
#define APPEND(dict, id, text, textNoFile, ...)                                            \
    do {                                                                                   \
        if ((dict).fileName == nullptr) {                                                  \
            Msg_AppendFormatted(MSGID(id "NoFile") textNoFile __VA_OPT__(, ) __VA_ARGS__); \
        } else if ((dict).lineNumber <= 0) {                                               \
            Msg_AppendFormatted(MSGID(id "NoLine") "File \"%s\": " text,                   \
                                (dict).fileName __VA_OPT__(, ) __VA_ARGS__);               \
        } else {                                                                           \
            Msg_AppendFormatted(MSGID(id) "File \"%s\" line %d: " text, (dict).fileName,   \
                                (dict).lineNumber __VA_OPT__(, ) __VA_ARGS__);             \
        }                                                                                  \
    } while (false)

void Dictionary_AppendReadError(const Dictionary &dict, const char *errorText) {
    APPEND(dict, "msg.dictionary.read.readError", "%s.\n", "%s.\n", errorText);
}

void Dictionary_AppendSyntaxError(const Dictionary &dict) {
    APPEND(dict, "msg.dictionary.read.syntaxError", "Syntax error.\n", "Syntax error.\n");
}

void Dictionary_AppendAlreadyDefined(const Dictionary &dict, const char *name) {
    APPEND(dict, "msg.dictionary.alreadyDefined", "Variable \"%s\" is already defined.\n",
           "Variable \"%s\" is already defined.\n", name);
}

void Dictionary_AppendUnknownEncoding(const Dictionary &dict, const char *encoding) {
    APPEND(dict, "msg.dictionary.unknownEncoding", "Character encoding \"%s\" is not supported.\n",
           "Character encoding \"%s\" is not supported.\n", encoding);
}

void Dictionary_AppendHasEncoding(const Dictionary &dict, const char *encoding) {
    APPEND(dict, "msg.dictionary.hasEncoding", "File already has an encoding \"%s\".\n",
           "Dictionary already has an encoding \"%s\".\n", encoding);
}

void Dictionary_AppendBadEncodedInput(const Dictionary &dict, const char *value, const char *name,
                                      const char *encoding) {
    APPEND(dict, "msg.dictionary.badEncodedInput",
           "Value \"%s\" for variable \"%s\" is not valid in encoding \"%s\".\n",
           "Value \"%s\" for variable \"%s\" is not valid in encoding \"%s\".\n", value, name, encoding);
}
