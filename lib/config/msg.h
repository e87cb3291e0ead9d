// The list of localizable messages: a function low down appends the reason, and the one that decides what to
// do either posts, which shows all of them in order, or resets. Not locked: appending and posting belong to
// the thread that does the work. Memory exhaustion and refused formats stop the process.
#pragma once

#include "lib/misc/msgFmt.h"

// A localizable text is MSGID("some.identifier") "format text".
#define MSG_MAGIC "@&!*@*@"
#define MSGID(id) MSG_MAGIC "(" id ")"

enum MsgSeverity : int { MSG_INFO = 0, MSG_INFO_POPUP = 1, MSG_WARNING = 2, MSG_ERROR = 3 };

// One message. It owns what it points to, `next` apart.
struct MsgList {
    MsgList *next;  // null at the end
    char *id;
    char *format;
    MsgFmtArg *args;
    int numArgs;
};

using MsgPostCallback = void (*)(int severity, const char *id, const char *text);
using MsgListPostCallback = void (*)(int severity, MsgList *list);

// Adds one message to the pending ones. Its identifier has 127 characters at most.
void Msg_AppendFormatted(const char *message, ...) __attribute__((format(printf, 1, 2)));
// One message that is not linked; the caller frees it with Msg_FreeList (lib/config/msgText.h).
MsgList *Msg_VCreateMsgList(const char *message, va_list args) __attribute__((format(printf, 1, 0)));
// Adds the message, then logs and shows all pending ones as one text and drops them.
void Msg_Post(int severity, const char *message, ...) __attribute__((format(printf, 2, 3)));
// Drops the pending messages, with logIt after logging them.
void Msg_Reset(bool logIt);
// The format text of a localizable text: a part of it, or its translation. *idOut (idOut may be null) is a
// new text that the caller frees.
const char *MsgLookupText(const char *message, bool noTranslation, char **idOut)
    __attribute__((format_arg(1)));
// Null restores the default: the terminal post, and no list post.
void Msg_SetPostCallbacks(MsgPostCallback post, MsgListPostCallback listPost);
// Whether the terminal post goes on without the Enter key.
void Msg_SetNoWait(bool noWait);
