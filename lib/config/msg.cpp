#include "lib/config/msg.h"

#include <string>
#include <utility>

#include "lib/config/msgState.h"
#include "lib/config/msgText.h"
#include "lib/fatal/memory.h"
#include "lib/fatal/panic.h"
#include "lib/log/log.h"
#include "lib/user/preference.h"

namespace {

constexpr const char *Msg_Severities[MSG_SEVERITY_COUNT] = {
    MSGID("msg.msg.info") "Information",
    MSGID("msg.msg.info") "Information",
    MSGID("msg.msg.warning") "Warning",
    MSGID("msg.msg.error") "Error",
};

constexpr char LOG_RULE[] = "----------------------------------------\n";
static_assert(sizeof LOG_RULE == 40 + sizeof "\n");

// The list is free again when this goes out of scope.
struct DetachedList {
    explicit DetachedList(MsgState *state)
        : head(std::exchange(state->head, nullptr)), last(std::exchange(state->tail, nullptr)) {}
    DetachedList(const DetachedList &) = delete;
    DetachedList &operator=(const DetachedList &) = delete;
    ~DetachedList() { Msg_FreeList(head); }

    MsgList *head;
    const MsgList *last;
};

void Append(MsgState *state, MsgList *message) {
    if (state->tail != nullptr) {
        state->tail->next = message;
    } else {
        state->head = message;
    }
    state->tail = message;
}

void LogList(const char *functionName, const char *severityText, const MsgList *list) {
    Log("%s:%s%s\n", functionName, *severityText != '\0' ? " " : "", severityText);
    for (; list != nullptr; list = list->next) {
        Log("[%s] %s", list->id, Msg_Expand(*list).c_str());
    }
    Log("%s", LOG_RULE);
}

void ResolveSeverities(MsgState *state) {
    if (state->severityTexts[0] == nullptr) {
        for (int i = 0; i < MSG_SEVERITY_COUNT; ++i) {
            state->severityTexts[i] = MsgLookupText(Msg_Severities[i], false, nullptr);
        }
    }
}

// Shows a detached list, as far as the host configuration wants to be asked.
void Show(const MsgState &state, int severity, const DetachedList &list) {
    if (Config_GetBool(false, "msg.autoAnswer")) {
        return;
    }
    if (severity != MSG_ERROR && Config_GetBool(false, "msg.noOK")) {
        if (!Config_GetBool(false, "msg.noOKnoWarning")) {
            Warning("MSG: %s\n", Msg_ExpandList(list.head).c_str());
        }
        return;
    }
    if (state.listPost != nullptr) {
        state.listPost(severity, list.head);
    }
    state.post(severity, list.last->id, Msg_ExpandList(list.head).c_str());
}

}  // namespace

MsgState *Msg_GetState() {
    static MsgState *state = [] {
        auto *fresh = static_cast<MsgState *>(Mem_Calloc(1, sizeof(MsgState)));
        fresh->post = Msg_PostTerminal;
        return fresh;
    }();
    return state;
}

void Msg_SetPostCallbacks(MsgPostCallback post, MsgListPostCallback listPost) {
    MsgState *state = Msg_GetState();
    state->post = post != nullptr ? post : Msg_PostTerminal;
    state->listPost = listPost;
}

void Msg_SetNoWait(bool noWait) {
    Msg_GetState()->noWait = noWait;
}

void Msg_AppendFormatted(const char *message, ...) {
    va_list args;
    va_start(args, message);
    Append(Msg_GetState(), Msg_VCreateMsgList(message, args));
    va_end(args);
}

void Msg_Post(int severity, const char *message, ...) {
    if (severity < 0 || severity >= MSG_SEVERITY_COUNT) {
        PanicNotReached();
    }
    MsgState *state = Msg_GetState();
    va_list args;
    va_start(args, message);
    Append(state, Msg_VCreateMsgList(message, args));
    va_end(args);
    ResolveSeverities(state);
    const DetachedList list(state);
    LogList("Msg_Post", state->severityTexts[severity], list.head);
    Show(*state, severity, list);
}

void Msg_Reset(bool logIt) {
    MsgState *state = Msg_GetState();
    if (state->head == nullptr) {
        return;
    }
    const DetachedList list(state);
    if (logIt) {
        LogList("Msg_Reset", "", list.head);
    }
}
