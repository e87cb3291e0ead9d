// Threads with a small integer identity and a name. Ids 0 to 35 are for callers that name one; those from 36
// up are handed out, without a limit of their own. An id stays with its thread to the end of the process.
#pragma once

using VThreadID = int;
constexpr VThreadID VTHREAD_INVALID_ID = -1;  // on input: choose for me
constexpr VThreadID VTHREAD_MAIN_ID = 3;

// Only the first call does anything. id -1 means VTHREAD_MAIN_ID.
void VThread_Init(VThreadID id, const char *name);
// Called as hook(id, 1) by a thread that starts and hook(id, 0) by one that ends; null for none. Set before
// the first thread is created.
using VThreadHook = void (*)(VThreadID id, int starting);
extern VThreadHook vthreadThreadHook;

// The new thread's id, or -1 when it could not be started (reported through the message list). name may be
// null.
VThreadID VThread_CreateThread(void (*function)(void *), void *argument, VThreadID id, const char *name);
void VThread_WaitThread(VThreadID id);  // joins a created thread; once per id
// The calling thread's id; a thread that this layer did not create is given one first.
VThreadID VThread_CurID();
const char *VThread_CurName();  // "unknown" before the thread has a slot
[[noreturn]] void VThread_ExitThread(bool clean);
