// The two conversion layers behind codeset.h. Encodings are numbers of the table here.
#pragma once

#include "lib/unicode/codeset.h"

bool CodeSetIcu_Init(const char *dataPath);
bool CodeSetIcu_Convert(StringEncoding from, const char *bytes, size_t size, StringEncoding to,
                        CodeSetMode mode, ByteBuffer *out);
bool CodeSetIcu_IsValid(StringEncoding encoding, const char *bytes, size_t size);

// UTF-8 and UTF-16 by hand, iconv for the rest.
bool CodeSetBuiltin_Convert(StringEncoding from, const char *bytes, size_t size, StringEncoding to,
                            CodeSetMode mode, ByteBuffer *out);
bool CodeSetBuiltin_IsValid(StringEncoding encoding, const char *bytes, size_t size);
