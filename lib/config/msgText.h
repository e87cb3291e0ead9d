// One localizable message: its parts, and its text with the arguments resolved.
#pragma once

#include <string>

#include "lib/config/msg.h"

// Whether the text begins like a localizable one.
bool Msg_IsLocalizable(const char *text);

// The text of one message with its arguments filled in.
std::string Msg_Expand(const MsgList &message);
// The texts of all messages of the list, oldest first, with nothing between them.
std::string Msg_ExpandList(const MsgList *list);

void Msg_FreeList(MsgList *list);
