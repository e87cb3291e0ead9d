#include <cstdio>

#include "lib/config/msgState.h"

namespace {

constexpr char PRODUCT_NAME[] = "Orvane Virtual Networks";

}  // namespace

void Msg_PostTerminal(int severity, const char * /* id */, const char *text) {
    const MsgState *state = Msg_GetState();
    const char *prompt = state->noWait ? "" : "Press \"Enter\" to continue...";
    fprintf(stderr, "\n\n%s %s:\n%s\n%s\n", PRODUCT_NAME, state->severityTexts[severity], text, prompt);
    if (state->noWait) {
        return;
    }
    int byte = 0;
    do {
        byte = getchar();
    } while (byte != '\n' && byte != EOF);
}
