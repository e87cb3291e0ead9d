// The process-wide state of the message layer. Made on first use, lives to the end of the process, not
// locked.
#pragma once

#include "lib/config/msg.h"

struct HashTable;

constexpr int MSG_SEVERITY_COUNT = 4;

struct MsgState {
    MsgPostCallback post;          // never null; the terminal post by default
    MsgListPostCallback listPost;  // may be null
    MsgList *head;                 // pending messages, oldest first
    MsgList *tail;
    const char *locale;       // null here: no locale is ever set
    HashTable *translations;  // identifier to format text; null here: none are ever loaded
    bool noWait;              // the terminal post does not wait for the Enter key
    // The plain words of the severities, filled by the first post.
    const char *severityTexts[MSG_SEVERITY_COUNT];
};

MsgState *Msg_GetState();

// The default post callback: writes the text to standard error and waits for the Enter key.
void Msg_PostTerminal(int severity, const char *id, const char *text);
