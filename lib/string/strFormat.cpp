#include "lib/string/strFormat.h"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lib/misc/owners.h"
#include "lib/string/utf8.h"

// The formats handed to the C library here are put together from checked parts of the caller's.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

constexpr int MAX_ARGUMENTS = 128;
constexpr size_t MAX_FLAGS = 8;
constexpr int NO_PRECISION = -1;
constexpr int NO_ARGUMENT = -1;

enum class ArgClass : unsigned char { Unused, Int, Long, LongLong, Double, LongDouble, Pointer };

union ArgValue {
    int integer;
    long longInteger;
    long long longLongInteger;
    double real;
    long double longReal;
    void *pointer;
};

struct Arguments {
    int count = 0;
    std::array<ArgClass, MAX_ARGUMENTS> classes{};
    std::array<ArgValue, MAX_ARGUMENTS> values{};
};

enum class Length : unsigned char { None, Char, Short, Long, LongLong, LongDouble };

// One conversion. Argument numbers count from 0; sequential ones are given out by NumberArguments.
struct Directive {
    const char *start;  // at the '%'
    const char *end;    // behind the conversion letter
    char flags[MAX_FLAGS + 1];
    int width;
    int precision;
    bool widthIsArgument;
    bool precisionIsArgument;
    int widthArgument;
    int precisionArgument;
    int argument;
    Length length;
    bool foreignLength;  // I64 or I32
    char conversion;     // NUL when the format ends inside the directive
};

int ParseNumber(const char **text) {
    int number = 0;
    while (**text >= '0' && **text <= '9') {
        const int digit = *(*text)++ - '0';
        number = number > (INT_MAX - digit) / 10 ? INT_MAX : number * 10 + digit;
    }
    return number;
}

// "<digits>$", or NO_ARGUMENT with nothing taken.
int ParsePosition(const char **text) {
    const char *ahead = *text;
    const int number = ParseNumber(&ahead);
    if (*ahead != '$' || number < 1) {
        return NO_ARGUMENT;
    }
    *text = ahead + 1;
    return number - 1;
}

void ParseFlags(const char **text, Directive *directive) {
    size_t count = 0;
    while (**text != '\0' && strchr("-+ #0'", **text) != nullptr) {
        if (count < MAX_FLAGS) {
            directive->flags[count++] = **text;
        }
        (*text)++;
    }
}

void ParseWidthAndPrecision(const char **text, Directive *directive) {
    directive->widthIsArgument = **text == '*';
    if (directive->widthIsArgument) {
        (*text)++;
        directive->widthArgument = ParsePosition(text);
    } else {
        directive->width = ParseNumber(text);
    }
    if (**text != '.') {
        return;
    }
    (*text)++;
    directive->precisionIsArgument = **text == '*';
    if (directive->precisionIsArgument) {
        (*text)++;
        directive->precisionArgument = ParsePosition(text);
    } else {
        directive->precision = ParseNumber(text);
    }
}

struct LengthPrefix {
    const char *text;
    Length length;
    bool foreign;
};

constexpr Length LENGTH_OF_INTMAX = sizeof(intmax_t) == sizeof(long) ? Length::Long : Length::LongLong;
constexpr Length LENGTH_OF_SIZE = sizeof(size_t) == sizeof(long) ? Length::Long : Length::None;

// A prefix that begins another comes behind it.
constexpr LengthPrefix LENGTH_PREFIXES[] = {
    {"hh", Length::Char, false},      {"h", Length::Short, false},     {"ll", Length::LongLong, false},
    {"l", Length::Long, false},       {"q", Length::LongLong, false},  {"j", LENGTH_OF_INTMAX, false},
    {"t", LENGTH_OF_SIZE, false},     {"z", LENGTH_OF_SIZE, false},    {"Z", LENGTH_OF_SIZE, false},
    {"L", Length::LongDouble, false}, {"I64", Length::LongLong, true}, {"I32", Length::None, true},
};

void ParseLength(const char **text, Directive *directive) {
    for (const LengthPrefix &prefix : LENGTH_PREFIXES) {
        const size_t size = strlen(prefix.text);
        if (strncmp(*text, prefix.text, size) == 0) {
            *text += size;
            directive->length = prefix.length;
            directive->foreignLength = prefix.foreign;
            return;
        }
    }
}

Directive ParseDirective(const char *start) {
    Directive directive{};
    directive.start = start;
    directive.precision = NO_PRECISION;
    directive.widthArgument = NO_ARGUMENT;
    directive.precisionArgument = NO_ARGUMENT;
    const char *text = start + 1;
    directive.argument = ParsePosition(&text);
    ParseFlags(&text, &directive);
    ParseWidthAndPrecision(&text, &directive);
    ParseLength(&text, &directive);
    directive.conversion = *text;
    if (directive.conversion == 'S' || directive.conversion == 'C') {
        directive.conversion = directive.conversion == 'S' ? 's' : 'c';
        directive.length = Length::Long;
    }
    directive.end = *text != '\0' ? text + 1 : text;
    return directive;
}

bool IsAnyOf(char conversion, const char *set) {
    return conversion != '\0' && strchr(set, conversion) != nullptr;
}

bool IsInteger(char conversion) {
    return IsAnyOf(conversion, "diouxX");
}

bool IsReal(char conversion) {
    return IsAnyOf(conversion, "eEfFgGaA");
}

ArgClass ClassOfInteger(Length length) {
    switch (length) {
        case Length::Long:
            return ArgClass::Long;
        case Length::LongLong:
        case Length::LongDouble:
            return ArgClass::LongLong;
        default:
            return ArgClass::Int;
    }
}

ArgClass ClassOf(const Directive &directive) {
    if (IsInteger(directive.conversion)) {
        return ClassOfInteger(directive.length);
    }
    if (IsReal(directive.conversion)) {
        return directive.length == Length::LongDouble ? ArgClass::LongDouble : ArgClass::Double;
    }
    if (directive.conversion == 'c') {
        return ArgClass::Int;
    }
    return IsAnyOf(directive.conversion, "spn") ? ArgClass::Pointer : ArgClass::Unused;
}

bool NumberArgument(Arguments *arguments, int *next, int *argument, ArgClass argClass) {
    if (argClass == ArgClass::Unused) {
        return true;
    }
    if (*argument == NO_ARGUMENT) {
        *argument = (*next)++;
    }
    if (*argument >= MAX_ARGUMENTS) {
        return false;
    }
    arguments->classes[static_cast<size_t>(*argument)] = argClass;
    arguments->count = *argument >= arguments->count ? *argument + 1 : arguments->count;
    return true;
}

// Gives the next numbers to the arguments that have none, in the order in which printf takes them.
bool NumberArguments(Arguments *arguments, int *next, Directive *directive) {
    if (directive->widthIsArgument &&
        !NumberArgument(arguments, next, &directive->widthArgument, ArgClass::Int)) {
        return false;
    }
    if (directive->precisionIsArgument &&
        !NumberArgument(arguments, next, &directive->precisionArgument, ArgClass::Int)) {
        return false;
    }
    return NumberArgument(arguments, next, &directive->argument, ClassOf(*directive));
}

void FetchArguments(Arguments *arguments, va_list args) {
    for (size_t i = 0; i < static_cast<size_t>(arguments->count); i++) {
        ArgValue *value = &arguments->values[i];
        switch (arguments->classes[i]) {
            case ArgClass::Unused:  // a gap between positions: taken for an int, as nothing tells its type
            case ArgClass::Int:
                value->integer = va_arg(args, int);
                break;
            case ArgClass::Long:
                value->longInteger = va_arg(args, long);
                break;
            case ArgClass::LongLong:
                value->longLongInteger = va_arg(args, long long);
                break;
            case ArgClass::Double:
                value->real = va_arg(args, double);
                break;
            case ArgClass::LongDouble:
                value->longReal = va_arg(args, long double);
                break;
            case ArgClass::Pointer:
                value->pointer = va_arg(args, void *);
                break;
        }
    }
}

// Width and precision with their arguments put in: a negative width means left-aligned, a negative precision
// none.
void ResolveWidthAndPrecision(const Arguments &arguments, Directive *directive) {
    if (directive->widthIsArgument) {
        const int width = arguments.values[static_cast<size_t>(directive->widthArgument)].integer;
        if (width < 0) {
            const size_t count = strlen(directive->flags);
            directive->flags[count < MAX_FLAGS ? count : MAX_FLAGS - 1] = '-';
        }
        directive->width = width == INT_MIN ? INT_MAX : abs(width);
    }
    if (directive->precisionIsArgument) {
        const int precision = arguments.values[static_cast<size_t>(directive->precisionArgument)].integer;
        directive->precision = precision < 0 ? NO_PRECISION : precision;
    }
}

// "%<flags>*.*<length><conversion>" for the C library.
struct NativeFormat {
    char text[MAX_FLAGS + 8];
};

NativeFormat MakeNativeFormat(const Directive &directive, const char *length, bool keepZeroAndSign = true) {
    NativeFormat native{};
    char *out = native.text;
    *out++ = '%';
    for (const char *flag = directive.flags; *flag != '\0'; flag++) {
        if (keepZeroAndSign || *flag == '-') {
            *out++ = *flag;
        }
    }
    out = stpcpy(out, "*.*");
    out = stpcpy(out, length);
    *out = directive.conversion;
    return native;
}

intmax_t SignedValue(const ArgValue &value, Length length) {
    switch (length) {
        case Length::Char:
            return static_cast<signed char>(value.integer);
        case Length::Short:
            return static_cast<short>(value.integer);
        case Length::None:
            return value.integer;
        case Length::Long:
            return value.longInteger;
        default:
            return value.longLongInteger;
    }
}

uintmax_t UnsignedValue(const ArgValue &value, Length length) {
    switch (length) {
        case Length::Char:
            return static_cast<unsigned char>(value.integer);
        case Length::Short:
            return static_cast<unsigned short>(value.integer);
        case Length::None:
            return static_cast<unsigned>(value.integer);
        case Length::Long:
            return static_cast<unsigned long>(value.longInteger);
        default:
            return static_cast<unsigned long long>(value.longLongInteger);
    }
}

bool WriteInteger(FILE *out, const Directive &directive, const ArgValue &value) {
    const NativeFormat native = MakeNativeFormat(directive, "j");
    if (IsAnyOf(directive.conversion, "di")) {
        return fprintf(out, native.text, directive.width, directive.precision,
                       SignedValue(value, directive.length)) >= 0;
    }
    return fprintf(out, native.text, directive.width, directive.precision,
                   UnsignedValue(value, directive.length)) >= 0;
}

bool WriteReal(FILE *out, const Directive &directive, const ArgValue &value) {
    const bool isLong = directive.length == Length::LongDouble;
    if (isLong ? std::isnan(value.longReal) : std::isnan(value.real)) {
        const bool upper = IsAnyOf(directive.conversion, "EFGA");
        Directive text = directive;
        text.conversion = 's';
        return fprintf(out, MakeNativeFormat(text, "", false).text, directive.width, NO_PRECISION,
                       upper ? "NAN" : "nan") >= 0;
    }
    if (isLong) {
        return fprintf(out, MakeNativeFormat(directive, "L").text, directive.width, directive.precision,
                       value.longReal) >= 0;
    }
    return fprintf(out, MakeNativeFormat(directive, "").text, directive.width, directive.precision,
                   value.real) >= 0;
}

bool WriteBlanks(FILE *out, size_t count) {
    for (; count > 0; count--) {
        if (putc_unlocked(' ', out) == EOF) {
            return false;
        }
    }
    return true;
}

bool WriteText(FILE *out, const Directive &directive, const char *text, size_t length) {
    const size_t width = static_cast<size_t>(directive.width);
    const size_t padding = width > length ? width - length : 0;
    const bool left = strchr(directive.flags, '-') != nullptr;
    return WriteBlanks(out, left ? 0 : padding) && fwrite(text, 1, length, out) == length &&
           WriteBlanks(out, left ? padding : 0);
}

bool WriteNarrow(FILE *out, const Directive &directive, const char *text) {
    const char *shown = text != nullptr ? text : "(null)";
    const size_t length = directive.precision == NO_PRECISION
                              ? strlen(shown)
                              : strnlen(shown, static_cast<size_t>(directive.precision));
    return WriteText(out, directive, shown, length);
}

// The length in UTF-8 of what the precision lets through, whole characters only; false when there is what is
// no character.
bool MeasureWide(const wchar_t *text, size_t maxBytes, size_t *characters, size_t *bytes) {
    *characters = 0;
    *bytes = 0;
    char encoded[UTF8_MAX_BYTES];
    while (*bytes < maxBytes && text[*characters] != L'\0') {
        const size_t count = Utf8_Encode(static_cast<uint32_t>(text[*characters]), encoded);
        if (count == 0) {
            return false;
        }
        if (count > maxBytes - *bytes) {
            return true;
        }
        *bytes += count;
        (*characters)++;
    }
    return true;
}

bool WriteWide(FILE *out, const Directive &directive, const wchar_t *text) {
    if (text == nullptr) {
        return WriteNarrow(out, directive, nullptr);
    }
    const size_t maxBytes =
        directive.precision == NO_PRECISION ? SIZE_MAX : static_cast<size_t>(directive.precision);
    size_t characters = 0;
    size_t bytes = 0;
    if (!MeasureWide(text, maxBytes, &characters, &bytes)) {
        errno = EILSEQ;
        return false;
    }
    const MallocString encoded(static_cast<char *>(malloc(bytes + 1)));
    if (encoded == nullptr) {
        return false;
    }
    char *end = encoded.get();
    for (size_t i = 0; i < characters; i++) {
        end += Utf8_Encode(static_cast<uint32_t>(text[i]), end);
    }
    return WriteText(out, directive, encoded.get(), bytes);
}

bool WriteCharacter(FILE *out, const Directive &directive, int character) {
    char encoded[UTF8_MAX_BYTES] = {static_cast<char>(character)};
    size_t count = 1;
    if (directive.length == Length::Long) {
        count = Utf8_Encode(static_cast<uint32_t>(character), encoded);
    }
    if (count == 0) {
        errno = EILSEQ;
        return false;
    }
    return WriteText(out, directive, encoded, count);
}

void StoreCount(FILE *out, Length length, void *target) {
    const long count = ftell(out);
    switch (length) {
        case Length::Char:
            *static_cast<signed char *>(target) = static_cast<signed char>(count);
            break;
        case Length::Short:
            *static_cast<short *>(target) = static_cast<short>(count);
            break;
        case Length::None:
            *static_cast<int *>(target) = static_cast<int>(count);
            break;
        case Length::Long:
            *static_cast<long *>(target) = count;
            break;
        default:
            *static_cast<long long *>(target) = count;
            break;
    }
}

bool WriteDirective(FILE *out, const Directive &directive, const Arguments &arguments) {
    if (ClassOf(directive) == ArgClass::Unused) {
        if (directive.conversion == '%') {
            return putc_unlocked('%', out) != EOF;
        }
        const size_t size = static_cast<size_t>(directive.end - directive.start);
        return fwrite(directive.start, 1, size, out) == size;
    }
    const ArgValue &value = arguments.values[static_cast<size_t>(directive.argument)];
    if (IsInteger(directive.conversion)) {
        return WriteInteger(out, directive, value);
    }
    if (IsReal(directive.conversion)) {
        return WriteReal(out, directive, value);
    }
    switch (directive.conversion) {
        case 'c':
            return WriteCharacter(out, directive, value.integer);
        case 's':
            return directive.length == Length::Long
                       ? WriteWide(out, directive, static_cast<const wchar_t *>(value.pointer))
                       : WriteNarrow(out, directive, static_cast<const char *>(value.pointer));
        case 'p':
            return fprintf(out, MakeNativeFormat(directive, "").text, directive.width, directive.precision,
                           value.pointer) >= 0;
        default:
            StoreCount(out, directive.length, value.pointer);
            return true;
    }
}

// All conversions of the format, and the classes of their arguments. False with more than MAX_ARGUMENTS.
bool ParseFormat(const char *format, std::vector<Directive> *directives, Arguments *arguments) {
    int next = 0;
    for (const char *text = strchr(format, '%'); text != nullptr; text = strchr(text, '%')) {
        Directive &directive = directives->emplace_back(ParseDirective(text));
        if (!NumberArguments(arguments, &next, &directive)) {
            return false;
        }
        text = directive.end;
    }
    return true;
}

bool WriteLiteral(FILE *out, const char *text, const char *end) {
    const size_t length = static_cast<size_t>(end - text);
    return fwrite(text, 1, length, out) == length;
}

bool WriteFormat(FILE *out, const char *format, std::vector<Directive> *directives,
                 const Arguments &arguments) {
    const char *text = format;
    for (Directive &directive : *directives) {
        ResolveWidthAndPrecision(arguments, &directive);
        if (!WriteLiteral(out, text, directive.start) || !WriteDirective(out, directive, arguments)) {
            return false;
        }
        text = directive.end;
    }
    return WriteLiteral(out, text, strchr(text, '\0'));
}

}  // namespace

// All reals do, for the sign that the C library gives to a NaN.
bool StrFormat_NeedsTranslation(const char *format) {
    for (const char *text = strchr(format, '%'); text != nullptr; text = strchr(text, '%')) {
        const Directive directive = ParseDirective(text);
        const bool wide = IsAnyOf(directive.conversion, "cs") && directive.length == Length::Long;
        const bool bounded = directive.precision != NO_PRECISION || directive.precisionIsArgument;
        if (directive.foreignLength || wide || IsReal(directive.conversion) ||
            (directive.conversion == 's' && bounded)) {
            return true;
        }
        text = directive.end;
    }
    return false;
}

char *StrFormat_Translate(size_t *length, const char *format, va_list args) {
    std::vector<Directive> directives;
    Arguments arguments;
    if (!ParseFormat(format, &directives, &arguments)) {
        errno = E2BIG;
        return nullptr;
    }
    FetchArguments(&arguments, args);
    char *text = nullptr;
    FILE *out = open_memstream(&text, length);
    if (out == nullptr) {
        return nullptr;
    }
    const bool written = WriteFormat(out, format, &directives, arguments);
    if (fclose(out) != 0 || !written) {
        free(text);
        return nullptr;
    }
    return text;
}
