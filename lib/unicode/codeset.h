// Conversion between encodings. One of two layers does it for the whole process: ICU, when its data file is
// installed in the product's directory, or the built-in one.
#pragma once

#include <cstddef>

#include "lib/unicode/byteBuffer.h"
#include "lib/unicode/unicode.h"

// What a sequence that is not valid, or that the target lacks, leads to.
enum CodeSetMode : int {
    CODESET_STOP = 0,        // the conversion fails
    CODESET_SUBSTITUTE = 1,  // U+FFFD, or the target's own substitute
    CODESET_SKIP = 2,        // nothing
};

// Settles the layer, which the first conversion does otherwise. False when ICU is there but does not work.
bool CodeSet_Init();

// Appends the converted bytes to *out and ends them in four NUL bytes that are not counted. Encodings are
// numbers of the table or STRING_ENCODING_CURRENT. False, *out in any state, when the mode is CODESET_STOP
// and a sequence does not convert, or when an encoding has no converter.
bool CodeSet_Convert(StringEncoding from, const void *bytes, size_t size, StringEncoding to, CodeSetMode mode,
                     ByteBuffer *out);

// Whether all bytes are valid in their encoding.
bool CodeSet_IsValid(StringEncoding encoding, const void *bytes, size_t size);
