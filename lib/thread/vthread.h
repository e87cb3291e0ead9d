// Threads with a small integer identity and a name.
#pragma once

using VThreadID = int;
constexpr VThreadID VTHREAD_INVALID_ID = -1;  // on input: choose for me
constexpr VThreadID VTHREAD_MAIN_ID = 3;

// Only the first call does anything. id -1 means VTHREAD_MAIN_ID.
void VThread_Init(VThreadID id, const char *name);
// The new thread's id, or -1 when it could not be started (reported through the message list). name may be
// null.
VThreadID VThread_CreateThread(void (*function)(void *), void *argument, VThreadID id, const char *name);
void VThread_WaitThread(VThreadID id);  // joins
// The calling thread's id; a thread that this layer did not create is given one first.
VThreadID VThread_CurID();
const char *VThread_CurName();  // "unknown" before the thread has a slot
[[noreturn]] void VThread_ExitThread(bool clean);
