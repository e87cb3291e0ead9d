#include <dlfcn.h>
#include <unwind.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "lib/fatal/panic.h"
#include "lib/log/log.h"

namespace {

constexpr size_t BACKTRACE_LINE_SIZE = 255;

// The registers that a callee preserves, by their DWARF numbers on x86-64. No other register may be asked
// for: the unwinder knows a value only for those that some frame has saved.
enum SavedRegister : int { RBX = 3, RBP = 6, R12 = 12, R13 = 13, R14 = 14, R15 = 15 };

struct StackWalk {
    uintptr_t base;  // frames up to this address belong to the backtrace itself
    unsigned counter;
};

unsigned long RegisterValue([[maybe_unused]] _Unwind_Context *context,
                            [[maybe_unused]] SavedRegister number) {
#ifdef __x86_64__
    return _Unwind_GetGR(context, number);
#else
    return 0;
#endif
}

// The unwinder tells a frame by the end of the one that it calls, so the backtrace's own frame may be told by
// the very address of its lowest variable.
bool IsOwnFrame(_Unwind_Context *context, const StackWalk &walk) {
    return _Unwind_GetCFA(context) <= walk.base;
}

_Unwind_Reason_Code LogFrame(_Unwind_Context *context, void *data) {
    StackWalk &walk = *static_cast<StackWalk *>(data);
    if (IsOwnFrame(context, walk)) {
        return _URC_NO_REASON;
    }
    const unsigned long frame = _Unwind_GetCFA(context);
    const unsigned long instruction = _Unwind_GetIP(context);
    Util_LogWrapper(nullptr,
                    "Backtrace[%u] %016lx rip=%016lx rbx=%016lx rbp=%016lx r12=%016lx r13=%016lx "
                    "r14=%016lx r15=%016lx\n",
                    walk.counter++, frame, instruction, RegisterValue(context, RBX),
                    RegisterValue(context, RBP), RegisterValue(context, R12), RegisterValue(context, R13),
                    RegisterValue(context, R14), RegisterValue(context, R15));
    return _URC_NO_REASON;
}

_Unwind_Reason_Code LogFrameSymbol(_Unwind_Context *context, void *data) {
    StackWalk &walk = *static_cast<StackWalk *>(data);
    if (IsOwnFrame(context, walk)) {
        return _URC_NO_REASON;
    }
    const unsigned long frame = _Unwind_GetCFA(context);
    const unsigned long instruction = _Unwind_GetIP(context);
    void *address = reinterpret_cast<void *>(instruction);
    Dl_info info;
    if (dladdr(_Unwind_FindEnclosingFunction(address), &info) != 0 || dladdr(address, &info) != 0) {
        Util_LogWrapper(
            nullptr, "SymBacktrace[%u] %016lx rip=%016lx in function %s in object %s loaded at %016lx\n",
            walk.counter++, frame, instruction, info.dli_sname != nullptr ? info.dli_sname : "(null)",
            info.dli_fname, reinterpret_cast<unsigned long>(info.dli_fbase));
    } else {
        Util_LogWrapper(nullptr, "SymBacktrace[%u] %016lx rip=%016lx \n", walk.counter++, frame, instruction);
    }
    return _URC_NO_REASON;
}

}  // namespace

void Util_LogWrapper([[maybe_unused]] void *unused, const char *format, ...) {
    char line[BACKTRACE_LINE_SIZE];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    Log("%s", line);
}

// Not inlined: the address of its local variable must lie between its own frame and the caller's.
__attribute__((noinline)) void Util_Backtrace(int bugNumber) {
    if (bugNumber == 0) {
        Util_LogWrapper(nullptr, "Backtrace:\n");
    } else {
        Util_LogWrapper(nullptr, "Backtrace for bugNr=%d\n", bugNumber);
    }
    StackWalk walk{};
    walk.base = reinterpret_cast<uintptr_t>(&walk);
    _Unwind_Backtrace(LogFrame, &walk);
    walk.counter = 0;
    _Unwind_Backtrace(LogFrameSymbol, &walk);
}
