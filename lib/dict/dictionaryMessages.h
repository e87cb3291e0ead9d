// Messages that tell the place in the file where something is wrong.
#pragma once

struct Dictionary;

enum DictionaryMessage {
    DICTIONARY_READ_ERROR,         // error text
    DICTIONARY_SYNTAX_ERROR,       // no arguments
    DICTIONARY_ALREADY_DEFINED,    // name
    DICTIONARY_UNKNOWN_ENCODING,   // encoding name
    DICTIONARY_HAS_ENCODING,       // encoding name
    DICTIONARY_BAD_ENCODED_INPUT,  // value, name, encoding name
    DICTIONARY_MESSAGE_COUNT,
};

// Appends the message in the form that fits what the dictionary knows: with file and line, with the file
// alone, or without either. It takes as many of the texts as it has arguments.
void Dictionary_AppendMessage(const Dictionary &dict, DictionaryMessage message, const char *first = "",
                              const char *second = "", const char *third = "");
