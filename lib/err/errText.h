// Texts of error numbers with stable addresses, so that a text passed on as a message argument can be
// recognised. Safe from any thread.
#pragma once

// The text stays valid to the end of the process; the caller must not free it. errno is left as it was.
const char *Err_ErrnoText(int errorNumber);
const char *Err_LastErrnoText();
// The number whose cached text has this very address, or -1.
int Err_TextToErrno(const char *text);
// A translated text; there are none here, so always null.
const char *Err_LocalText(int errorNumber);
