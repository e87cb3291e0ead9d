#include "lib/misc/msgFmt.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

#include "lib/err/errText.h"
#include "lib/misc/msgFmtConversion.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

constexpr int MIN_ARGS = 4;

struct ArgArray {
    ArgArray() = default;
    ArgArray(const ArgArray &) = delete;
    ArgArray &operator=(const ArgArray &) = delete;
    ~ArgArray() { MsgFmt_FreeArgs(args, count); }

    MsgFmtArg *args = nullptr;
    int count = 0;
    int capacity = 0;
};

// The outcome of one capture: a status, and a text when the failure has a message of its own.
struct Outcome {
    MsgFmtStatus status = MSGFMT_OK;
    MallocString text;
};

Outcome Refused(char *text) {
    return {MSGFMT_BAD_FORMAT, MallocString(text)};
}

// Makes room for the arguments up to `number`; new entries are zeroed.
MsgFmtStatus Grow(ArgArray *array, int number) {
    if (number > array->capacity) {
        int capacity = array->capacity != 0 ? array->capacity : MIN_ARGS;
        while (capacity < number) {
            capacity *= 2;
        }
        void *grown = realloc(array->args, static_cast<size_t>(capacity) * sizeof *array->args);
        if (grown == nullptr) {
            return MSGFMT_NO_MEMORY;
        }
        array->args = static_cast<MsgFmtArg *>(grown);
        memset(array->args + array->capacity, 0,
               static_cast<size_t>(capacity - array->capacity) * sizeof *array->args);
        array->capacity = capacity;
    }
    if (number > array->count) {
        array->count = number;
    }
    return MSGFMT_OK;
}

// A string named twice is captured as far as the longer of its two uses needs it.
int64_t WiderPrecision(int64_t one, int64_t other) {
    if (one < 0 || other < 0) {
        return -1;
    }
    return one > other ? one : other;
}

// Tells what is wrong with a conversion, and which one it is. Takes `reason` over.
Outcome RefusedConversion(const MsgFmtConversion &conversion, char *reason) {
    const MallocString owner(reason);
    const std::string position(conversion.position);
    const std::string type(conversion.body);
    return Refused(Str_Asprintf(nullptr, "MsgFmtGetArg1: %s, pos \"%s\", type \"%s\"", reason,
                                position.c_str(), type.c_str()));
}

char *TypeNotSupported(const MsgFmtConversion &conversion) {
    if (conversion.letter == 'n') {
        return Str_Asprintf(nullptr, "%%n not supported");
    }
    return Str_Asprintf(nullptr, "%%%c%c not supported", conversion.size, conversion.letter);
}

// Enters what one conversion asks of argument `number`.
Outcome NameArgument(MsgFmtConversion conversion, int number, ArgArray *array) {
    const MsgFmtStatus parsed = MsgFmt_Analyse(&conversion);
    if (parsed != MSGFMT_OK) {
        return RefusedConversion(conversion, Str_Asprintf(nullptr, "bad specifier, status %d", parsed));
    }
    const MsgFmtArgType type = MsgFmt_ArgTypeOf(conversion);
    if (type == MSGFMT_ARG_INVALID) {
        return RefusedConversion(conversion, TypeNotSupported(conversion));
    }
    const MsgFmtStatus grown = Grow(array, number);
    if (grown != MSGFMT_OK) {
        return {grown, nullptr};
    }
    MsgFmtArg *arg = &array->args[number - 1];
    if (arg->type == MSGFMT_ARG_INVALID) {
        arg->type = type;
        arg->p.precision = conversion.precision;
        return {};
    }
    if (arg->type != type) {
        return RefusedConversion(
            conversion,
            Str_Asprintf(nullptr, "incompatible specifiers for argument %d, old type %d, new type %d", number,
                         arg->type, type));
    }
    arg->p.precision = WiderPrecision(arg->p.precision, conversion.precision);
    return {};
}

// Walks the format and enters the type of every argument.
Outcome NameArguments(const char *format, ArgArray *array) {
    bool anyPosition = false;
    int conversions = 0;
    for (;;) {
        const MsgFmtPiece piece = MsgFmt_NextPiece(&format);
        if (piece.kind == MSGFMT_PIECE_END) {
            return {};
        }
        if (piece.kind == MSGFMT_PIECE_TEXT) {
            continue;
        }
        const bool positioned = piece.conversion.number != 0;
        if (piece.kind == MSGFMT_PIECE_BAD || (conversions != 0 && positioned != anyPosition)) {
            return {MSGFMT_BAD_FORMAT, nullptr};
        }
        anyPosition = positioned;
        ++conversions;
        Outcome named =
            NameArgument(piece.conversion, positioned ? piece.conversion.number : conversions, array);
        if (named.status != MSGFMT_OK) {
            return named;
        }
    }
}

// A copy of at most `precision` units, or all of the string when that is negative. Null gives null.
template <typename Unit, typename LengthFn, typename BoundedFn>
MsgFmtStatus CopyString(const Unit *source, int64_t precision, LengthFn length, BoundedFn bounded,
                        Unit **copy) {
    if (source == nullptr) {
        return MSGFMT_OK;
    }
    const size_t units = precision < 0 ? length(source) : bounded(source, static_cast<size_t>(precision));
    *copy = static_cast<Unit *>(malloc((units + 1) * sizeof(Unit)));
    if (*copy == nullptr) {
        return MSGFMT_NO_MEMORY;
    }
    memcpy(*copy, source, units * sizeof(Unit));
    (*copy)[units] = 0;
    return MSGFMT_OK;
}

MsgFmtStatus CaptureString8(const char *source, MsgFmtArg *arg) {
    const int errorNumber = source != nullptr ? Err_TextToErrno(source) : -1;
    if (errorNumber != -1) {
        arg->type = MSGFMT_ARG_ERRNO;
        arg->errnoKind = 1;
        arg->errnoValue = static_cast<uint32_t>(errorNumber);
    }
    return CopyString(source, arg->p.precision, strlen, strnlen, &arg->value.string8);
}

// Fetches the values in the order of the positions.
Outcome FetchValues(ArgArray *array, va_list list) {
    for (int i = 0; i < array->count; ++i) {
        MsgFmtArg *arg = &array->args[i];
        MsgFmtStatus status = MSGFMT_OK;
        switch (arg->type) {
            case MSGFMT_ARG_INT32:
                arg->value.signed32 = va_arg(list, int);
                break;
            case MSGFMT_ARG_INT64:
                arg->value.signed64 = va_arg(list, int64_t);
                break;
            case MSGFMT_ARG_PTR64:
                arg->value.ptr = reinterpret_cast<uintptr_t>(va_arg(list, void *));
                break;
            case MSGFMT_ARG_FLOAT64:
                arg->value.float64 = va_arg(list, double);
                break;
            case MSGFMT_ARG_STRING8:
                status = CaptureString8(va_arg(list, const char *), arg);
                break;
            case MSGFMT_ARG_STRING32:
                status = CopyString(va_arg(list, const wchar_t *), arg->p.precision, wcslen, wcsnlen,
                                    &arg->value.string32);
                break;
            default:
                return Refused(
                    Str_Asprintf(nullptr, "MsgFmt_GetArgs: gap in arguments at position %d", i + 1));
        }
        if (status != MSGFMT_OK) {
            return {status, nullptr};
        }
        arg->p.text = nullptr;
    }
    return {};
}

char *StatusText(MsgFmtStatus status) {
    switch (status) {
        case MSGFMT_BAD_FORMAT:
            return Str_Asprintf(nullptr, "MsgFmt_GetArgs: error in format string");
        case MSGFMT_NO_MEMORY:
            return Str_Asprintf(nullptr, "MsgFmt_GetArgs: out of memory");
        default:
            return Str_Asprintf(nullptr, "MsgFmt_GetArgs: error %d", status);
    }
}

// The size prefix with which the formatted output takes the captured value.
const char *EngineSize(const MsgFmtConversion &conversion, MsgFmtArgType type) {
    switch (type) {
        case MSGFMT_ARG_INT64:
            return "l";
        case MSGFMT_ARG_STRING32:
            return conversion.letter == 's' ? "l" : "";
        case MSGFMT_ARG_INT32:
            if (conversion.letter == 'c') {
                return conversion.size == 'l' ? "l" : "";
            }
            return conversion.size == 'h' ? "h" : conversion.size == 'H' ? "hh" : "";
        default:
            return "";
    }
}

// The format is one conversion that has been found to suit the value.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
char *FormatValue(size_t *length, const char *format, MsgFmtArgType type, const MsgFmtArg &arg) {
    switch (type) {
        case MSGFMT_ARG_INT32:
            return Str_Asprintf(length, format, arg.value.signed32);
        case MSGFMT_ARG_INT64:
            return Str_Asprintf(length, format, arg.value.signed64);
        case MSGFMT_ARG_PTR64:
            return Str_Asprintf(length, format, reinterpret_cast<void *>(arg.value.ptr));
        case MSGFMT_ARG_FLOAT64:
            return Str_Asprintf(length, format, arg.value.float64);
        case MSGFMT_ARG_STRING8:
            return Str_Asprintf(length, format, arg.p.text != nullptr ? arg.p.text : arg.value.string8);
        case MSGFMT_ARG_STRING32:
            return Str_Asprintf(length, format, arg.value.string32);
        default:
            return nullptr;
    }
}
#pragma GCC diagnostic pop

// Expands one conversion behind what `out` holds already. A conversion that does not suit the captured
// argument fails, so that a translated format can do no harm.
bool AppendConversion(MsgFmtConversion conversion, const MsgFmtArg &arg, std::string *out) {
    if (MsgFmt_Analyse(&conversion) != MSGFMT_OK) {
        return false;
    }
    const MsgFmtArgType type = MsgFmt_ArgTypeOf(conversion);
    if (type != (arg.type == MSGFMT_ARG_ERRNO ? MSGFMT_ARG_STRING8 : arg.type)) {
        return false;
    }
    std::string format = "%";
    format.append(conversion.layout).append(EngineSize(conversion, type)).push_back(conversion.letter);
    size_t length = 0;
    const MallocString text(FormatValue(&length, format.c_str(), type, arg));
    if (text == nullptr) {
        return false;
    }
    out->append(text.get(), length);
    return true;
}

}  // namespace

bool MsgFmt_GetArgs(const char *format, va_list list, MsgFmtArg **args, int *numArgs, char **error) {
    ArgArray array;
    Outcome outcome = NameArguments(format, &array);
    if (outcome.status == MSGFMT_OK) {
        outcome = FetchValues(&array, list);
    }
    if (outcome.status != MSGFMT_OK) {
        if (error != nullptr) {
            *error = outcome.text != nullptr ? outcome.text.release() : StatusText(outcome.status);
        }
        return false;
    }
    *args = array.args;
    *numArgs = array.count;
    array.args = nullptr;
    array.count = 0;
    return true;
}

void MsgFmt_FreeArgs(MsgFmtArg *args, int numArgs) {
    for (int i = 0; i < numArgs; ++i) {
        switch (args[i].type) {
            case MSGFMT_ARG_STRING8:
            case MSGFMT_ARG_ERRNO:
                free(args[i].value.string8);
                break;
            case MSGFMT_ARG_STRING32:
                free(args[i].value.string32);
                break;
            default:
                break;
        }
    }
    free(args);
}

char *MsgFmt_Asprintf(size_t *length, const char *format, const MsgFmtArg *args, int numArgs) {
    std::string out;
    int conversions = 0;
    for (;;) {
        const MsgFmtPiece piece = MsgFmt_NextPiece(&format);
        if (piece.kind == MSGFMT_PIECE_END) {
            break;
        }
        if (piece.kind == MSGFMT_PIECE_TEXT) {
            out.append(piece.text);
            continue;
        }
        if (piece.kind == MSGFMT_PIECE_BAD) {
            return nullptr;
        }
        ++conversions;
        const int number = piece.conversion.number != 0 ? piece.conversion.number : conversions;
        if (number > numArgs || !AppendConversion(piece.conversion, args[number - 1], &out)) {
            return nullptr;
        }
    }
    char *text = static_cast<char *>(malloc(out.size() + 1));
    if (text == nullptr) {
        return nullptr;
    }
    memcpy(text, out.c_str(), out.size() + 1);
    if (length != nullptr) {
        *length = out.size();
    }
    return text;
}
