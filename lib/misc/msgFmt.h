// Message formats whose arguments are captured first and expanded later, with or without positions ("%2$s").
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

enum MsgFmtArgType : int32_t {
    MSGFMT_ARG_INVALID = 0,  // a gap
    MSGFMT_ARG_INT32 = 1,
    MSGFMT_ARG_INT64 = 2,
    MSGFMT_ARG_PTR32 = 3,
    MSGFMT_ARG_PTR64 = 4,
    MSGFMT_ARG_FLOAT64 = 5,
    MSGFMT_ARG_STRING8 = 6,
    MSGFMT_ARG_STRING16 = 7,
    MSGFMT_ARG_STRING32 = 8,
    MSGFMT_ARG_ERRNO = 9,  // an 8-bit string that is the text of an error number
};

struct MsgFmtArg {
    int32_t type;
    union {
        int32_t signed32;
        int64_t signed64;
        uint64_t ptr;
        double float64;
        char *string8;      // owned
        wchar_t *string32;  // owned
    } value;
    uint32_t errnoKind;  // 1 on MSGFMT_ARG_ERRNO
    uint32_t errnoValue;
    union {
        int64_t precision;  // while parsing
        char *text;         // while expanding: the resolved text, of the caller; null for value.string8
    } p;
};

// Captures the arguments of `format`. On success *args is a new array that MsgFmt_FreeArgs frees; on failure
// nothing is left and *error (may be null) receives a new text that the caller frees.
bool MsgFmt_GetArgs(const char *format, va_list list, MsgFmtArg **args, int *numArgs, char **error);
void MsgFmt_FreeArgs(MsgFmtArg *args, int numArgs);
// A new text, or null on a failure. `length` may be null.
char *MsgFmt_Asprintf(size_t *length, const char *format, const MsgFmtArg *args, int numArgs);
