#include "lib/config/msgText.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "lib/config/msgState.h"
#include "lib/err/errText.h"
#include "lib/fatal/memory.h"
#include "lib/log/log.h"
#include "lib/misc/hashTable.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

constexpr std::string_view PREFIX = MSG_MAGIC "(";
constexpr size_t MAX_ID_LENGTH = 127;

// The closing parenthesis of the identifier, or null when the text is not of the localizable form.
const char *FindIdEnd(const char *text) {
    if (strncmp(text, PREFIX.data(), PREFIX.size()) != 0) {
        return nullptr;
    }
    return strchr(text + PREFIX.size(), ')');
}

// The translated format text of an identifier, or null without one.
const char *Translation(const char *id) {
    const HashTable *translations = Msg_GetState()->translations;
    void *text = nullptr;
    if (translations == nullptr || !HashTable_Lookup(translations, id, &text)) {
        return nullptr;
    }
    return static_cast<const char *>(text);
}

// The text that stands for an error number in the present locale, or null for the captured one.
char *ErrorText(const MsgFmtArg &arg) {
    const int errorNumber = static_cast<int>(arg.errnoValue);
    const char *local = Err_LocalText(errorNumber);
    if (local != nullptr) {
        return Mem_Strdup(local);
    }
    const char *locale = Msg_GetState()->locale;
    if (locale == nullptr || strcmp(locale, "en") == 0) {
        return nullptr;
    }
    return Str_SafeAsprintf(nullptr,
                            MsgLookupText(MSGID("msg.msg.systemError") "Error %d [%s]", false, nullptr),
                            errorNumber, arg.value.string8);
}

// The text that takes the place of the captured one, or null when that stays. An argument is data: one that
// only looks like a localizable text is left alone.
char *ResolvedText(const MsgFmtArg &arg) {
    if (arg.type == MSGFMT_ARG_ERRNO) {
        return ErrorText(arg);
    }
    if (arg.type == MSGFMT_ARG_STRING8 && arg.value.string8 != nullptr &&
        Msg_IsLocalizable(arg.value.string8) && FindIdEnd(arg.value.string8) != nullptr) {
        return Mem_Strdup(MsgLookupText(arg.value.string8, false, nullptr));
    }
    return nullptr;
}

}  // namespace

bool Msg_IsLocalizable(const char *text) {
    return strncmp(text, MSG_MAGIC, sizeof MSG_MAGIC - 1) == 0;
}

const char *MsgLookupText(const char *message, bool noTranslation, char **idOut) {
    const char *idEnd = FindIdEnd(message);
    if (idEnd == nullptr) {
        PanicInconsistent();
    }
    const char *idStart = message + PREFIX.size();
    MallocString id(Mem_CopyText(idStart, static_cast<size_t>(idEnd - idStart)));
    const char *translated = noTranslation ? nullptr : Translation(id.get());
    if (idOut != nullptr) {
        *idOut = id.release();
    }
    return translated != nullptr ? translated : idEnd + 1;
}

MsgList *Msg_VCreateMsgList(const char *message, va_list args) {
    char *id = nullptr;
    const char *format = MsgLookupText(message, true, &id);
    if (strlen(id) > MAX_ID_LENGTH) {
        PanicNotImplemented();
    }
    MsgList *list = static_cast<MsgList *>(Mem_Calloc(1, sizeof *list));
    list->id = id;
    list->format = Mem_Strdup(format);
    char *error = nullptr;
    if (!MsgFmt_GetArgs(list->format, args, &list->args, &list->numArgs, &error)) {
        Log("Msg_VCreateMsgList error: %s\nformat <%s>", error, list->format);
        PanicInconsistent();
    }
    return list;
}

std::string Msg_Expand(const MsgList &message) {
    std::vector<MsgFmtArg> args(message.args, message.args + message.numArgs);
    std::vector<MallocString> owned;
    for (MsgFmtArg &arg : args) {
        owned.emplace_back(ResolvedText(arg));
        arg.p.text = owned.back().get();
    }
    const char *translated = Translation(message.id);
    const char *format = translated != nullptr ? translated : message.format;
    size_t length = 0;
    errno = 0;
    const MallocString text(MsgFmt_Asprintf(&length, format, args.data(), message.numArgs));
    if (text == nullptr && errno == ENOMEM) {
        PanicMemAlloc();
    }
    if (text == nullptr) {
        PanicInconsistent();
    }
    return std::string(text.get(), length);
}

std::string Msg_ExpandList(const MsgList *list) {
    std::string text;
    for (; list != nullptr; list = list->next) {
        text += Msg_Expand(*list);
    }
    return text;
}

void Msg_FreeList(MsgList *list) {
    while (list != nullptr) {
        MsgList *next = list->next;
        MsgFmt_FreeArgs(list->args, list->numArgs);
        free(list->format);
        free(list->id);
        free(list);
        list = next;
    }
}
