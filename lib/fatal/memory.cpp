#include "lib/fatal/memory.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

struct NewHandlerState {
    unsigned installed = 0;
    std::new_handler former = nullptr;
};

NewHandlerState newHandler;

void StopWithoutMemory() {
    PanicNoMemory();
}

void *Checked(void *memory, SourcePlace place) {
    if (memory == nullptr) {
        PanicNoMemory(place);
    }
    return memory;
}

}  // namespace

void *Mem_Alloc(size_t size, SourcePlace place) {
    return Checked(malloc(size != 0 ? size : 1), place);
}

void *Mem_Calloc(size_t count, size_t size, SourcePlace place) {
    return Checked(calloc(count != 0 ? count : 1, size != 0 ? size : 1), place);
}

void *Mem_Realloc(void *old, size_t size, SourcePlace place) {
    return Checked(realloc(old, size != 0 ? size : 1), place);
}

char *Mem_Strdup(const char *text, SourcePlace place) {
    return text != nullptr ? Mem_CopyText(text, strlen(text), place) : nullptr;
}

char *Mem_CopyText(const char *text, size_t length, SourcePlace place) {
    char *copy = static_cast<char *>(Mem_Alloc(length + 1, place));
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

void Mem_InstallNewHandler() {
    if (newHandler.installed++ == 0) {
        newHandler.former = std::set_new_handler(StopWithoutMemory);
    }
}

void Mem_RemoveNewHandler() {
    if (--newHandler.installed == 0 && std::get_new_handler() == StopWithoutMemory) {
        std::set_new_handler(newHandler.former);
    }
}
