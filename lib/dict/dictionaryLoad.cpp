#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/config/msg.h"
#include "lib/dict/dictionary.h"
#include "lib/dict/dictionaryData.h"
#include "lib/dict/dictionaryLine.h"
#include "lib/dict/dictionaryMessages.h"
#include "lib/err/errText.h"
#include "lib/fatal/memory.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "lib/string/lineReader.h"

namespace {

enum ParseResult { PARSE_OK = 0, PARSE_FAILED_GO_ON = 1, PARSE_FAILED_STOP = 2 };

constexpr unsigned char UTF8_SIGNATURE[] = {0xEF, 0xBB, 0xBF};

constexpr const char *ENCODING_NAMES[] = {
    ".encoding", "config.encoding", "preferences.encoding", "vmlist.encoding", "snapshot.encoding",
};

bool IsEncodingDeclaration(const char *name) {
    for (const char *known : ENCODING_NAMES) {
        if (strcasecmp(name, known) == 0) {
            return true;
        }
    }
    return false;
}

bool HasText(const DictionaryEntry &entry) {
    return (entry.type == DICT_ANY || entry.type == DICT_STRING) && entry.value.text != nullptr;
}

// The values end with their first NUL byte whatever the encoding: they come from lines of single bytes.
bool IsValid(const char *value, StringEncoding encoding) {
    return Unicode_IsBufferValid(value, static_cast<ptrdiff_t>(strlen(value)), encoding);
}

char *ToUtf8(const char *value, StringEncoding encoding) {
    return Unicode_AllocWithLength(value, static_cast<ptrdiff_t>(strlen(value)), encoding);
}

bool SetEncoding(Dictionary *dict, StringEncoding encoding) {
    encoding = Unicode_ResolveEncoding(encoding);
    if (dict->encoding == encoding) {
        return true;
    }
    if (dict->encoding != STRING_ENCODING_UNSUPPORTED) {
        Dictionary_AppendHasEncoding(*dict, Unicode_EncodingEnumToName(dict->encoding));
        return false;
    }
    for (const DictionaryEntry *entry = dict->entries.head; entry != nullptr; entry = entry->next) {
        if (HasText(*entry) && !IsValid(entry->value.text, encoding)) {
            Dictionary_AppendBadEncodedInput(*dict, entry->value.text, entry->name,
                                             Unicode_EncodingEnumToName(encoding));
            return false;
        }
    }
    for (DictionaryEntry *entry = dict->entries.head; entry != nullptr; entry = entry->next) {
        if (HasText(*entry)) {
            char *converted = ToUtf8(entry->value.text, encoding);
            free(entry->value.text);
            entry->value.text = converted;
        }
    }
    dict->encoding = encoding;
    return true;
}

bool SetEncodingByName(Dictionary *dict, const char *name) {
    const StringEncoding encoding = UnicodeIANALookup(name);
    if (encoding == STRING_ENCODING_UNSUPPORTED) {
        Dictionary_AppendUnknownEncoding(*dict, name);
        return false;
    }
    return SetEncoding(dict, encoding);
}

DictionaryLine *StoreLine(Dictionary *dict, const char *text, DictionaryEntry *entry) {
    DictionaryLine *line = static_cast<DictionaryLine *>(Mem_Calloc(1, sizeof *line));
    line->text = Mem_Strdup(text);
    line->entry = entry;
    Dictionary_Link(&dict->lines, line);
    return line;
}

ParseResult ParseTextLine(Dictionary *dict, const char *line) {
    const char *text = DictionaryLine_SkipBlanks(line);
    if (*text != '\0' && *text != '#') {
        Dictionary_AppendSyntaxError(*dict);
        return PARSE_FAILED_STOP;
    }
    StoreLine(dict, line, nullptr);
    return PARSE_OK;
}

ParseResult StoreEntry(Dictionary *dict, const char *line, const char *name, const char *value,
                       int entryClass) {
    const bool decided = dict->encoding != STRING_ENCODING_UNSUPPORTED;
    if (decided && !IsValid(value, dict->encoding)) {
        Dictionary_AppendBadEncodedInput(*dict, value, name, Unicode_EncodingEnumToName(dict->encoding));
        return PARSE_FAILED_STOP;
    }
    DictionaryValue stored = {};
    stored.text = decided ? ToUtf8(value, dict->encoding) : Mem_Strdup(value);
    DictionaryEntry *entry = Dictionary_Add(dict, name, DICT_ANY, stored);
    entry->entryClass = static_cast<unsigned>(entryClass) & 0xFu;
    entry->line = StoreLine(dict, line, entry);
    return PARSE_OK;
}

ParseResult DictionaryParseReadLine(Dictionary *dict, const char *line, const char *name, const char *value,
                                    int entryClass) {
    dict->lineNumber++;
    if (name == nullptr) {
        return ParseTextLine(dict, line);
    }
    if (IsEncodingDeclaration(name)) {
        return SetEncodingByName(dict, value) ? PARSE_OK : PARSE_FAILED_GO_ON;
    }
    if (name[0] == '.') {
        Log("%s: \"%s\" line %d: unrecognized metavariable \"%s\"\n", __func__, dict->fileName,
            dict->lineNumber, name);
        return PARSE_OK;
    }
    if (Dictionary_Find(dict, name) != nullptr) {
        Dictionary_AppendAlreadyDefined(*dict, name);
        StoreLine(dict, line, nullptr);
        return PARSE_FAILED_GO_ON;
    }
    return StoreEntry(dict, line, name, value, entryClass);
}

// Reads to the end, or to the first line that stops the load. False when any line was refused.
bool ReadLines(Dictionary *dict, FILE *stream, int entryClass) {
    bool good = true;
    for (;;) {
        char *buffer = nullptr;
        const ReadLineResult read = ReadNextLine(stream, &buffer, READ_LINE_NO_LIMIT, nullptr);
        const MallocString line(buffer);
        if (read == READ_LINE_EOF) {
            return good;
        }
        if (read == READ_LINE_ERROR) {
            Dictionary_AppendReadError(*dict, Err_ErrnoText(errno));
            return false;
        }
        const DictionaryAssignment assignment = DictionaryLine_Split(line.get());
        switch (DictionaryParseReadLine(dict, line.get(), assignment.name.get(), assignment.value.get(),
                                        entryClass)) {
            case PARSE_OK:
                break;
            case PARSE_FAILED_GO_ON:
                good = false;
                break;
            case PARSE_FAILED_STOP:
                return false;
        }
    }
}

// Takes the signature if the stream begins with it, else leaves the stream at its start.
bool TakeSignature(FILE *stream) {
    unsigned char start[sizeof UTF8_SIGNATURE];
    if (fread(start, 1, sizeof start, stream) == sizeof start &&
        memcmp(start, UTF8_SIGNATURE, sizeof start) == 0) {
        return true;
    }
    rewind(stream);
    return false;
}

// Gives a dictionary whose file declares no encoding the one that fits.
bool DecideEncoding(Dictionary *dict, bool hasSignature, StringEncoding defaultEncoding) {
    if (dict->encoding != STRING_ENCODING_UNSUPPORTED) {
        return true;
    }
    if (hasSignature && Unicode_ResolveEncoding(defaultEncoding) != STRING_ENCODING_UTF8) {
        if (SetEncoding(dict, STRING_ENCODING_UTF8)) {
            return true;
        }
        Msg_Reset(false);
    }
    if (!SetEncoding(dict, defaultEncoding)) {
        Msg_AppendFormatted(MSGID("msg.dictionary.badDefaultEncoding")
                            "File \"%s\": Failed to decode file in the default character encoding.\n",
                            dict->fileName);
        return false;
    }
    return true;
}

// Anything but a regular file could hold up the load for ever, or never end.
FileStream OpenRegular(const char *path) {
    FileDescriptor file(Posix_Open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0) {
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    return StreamOf(std::move(file), "r");
}

FileStream OpenFile(const char *path) {
    struct stat status;
    if (Posix_Stat(path, &status) != 0) {
        Msg_AppendFormatted(
            MSGID("msg.dictionary.load.statFailed") "Unable to get information about file \"%s\": %s.\n",
            path, Err_ErrnoText(errno));
        return nullptr;
    }
    if (S_ISDIR(status.st_mode)) {
        Msg_AppendFormatted(MSGID("msg.dictionary.load.isDirectory") "\"%s\" is a directory.\n", path);
        return nullptr;
    }
    FileStream stream = OpenRegular(path);
    if (stream == nullptr) {
        Msg_AppendFormatted(MSGID("msg.dictionary.load.openFailed") "Cannot open file \"%s\": %s.\n", path,
                            Err_ErrnoText(errno));
    }
    return stream;
}

}  // namespace

bool Dictionary_Load(Dictionary *dict, const char *path, int entryClass, StringEncoding defaultEncoding) {
    const bool fromStdin = strcmp(path, "-") == 0;
    const FileStream file = fromStdin ? nullptr : OpenFile(path);
    if (!fromStdin && file == nullptr) {
        return false;
    }
    Dictionary_Clear(dict);
    dict->fileName = Mem_Strdup(fromStdin ? "<stdin>" : path);
    dict->lineNumber = 0;
    const bool hasSignature = !fromStdin && TakeSignature(file.get());
    const bool loaded = ReadLines(dict, fromStdin ? stdin : file.get(), entryClass) &&
                        DecideEncoding(dict, hasSignature, defaultEncoding);
    dict->lineNumber = 0;
    free(dict->fileName);
    dict->fileName = nullptr;
    return loaded;
}
