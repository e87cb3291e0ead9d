// Messages that tell the place in the file where something is wrong, in the form that fits what the
// dictionary knows: with file and line, with the file alone, or without either.
#pragma once

struct Dictionary;

void Dictionary_AppendReadError(const Dictionary &dict, const char *errorText);
void Dictionary_AppendSyntaxError(const Dictionary &dict);
void Dictionary_AppendAlreadyDefined(const Dictionary &dict, const char *name);
void Dictionary_AppendUnknownEncoding(const Dictionary &dict, const char *encoding);
void Dictionary_AppendHasEncoding(const Dictionary &dict, const char *encoding);
void Dictionary_AppendBadEncodedInput(const Dictionary &dict, const char *value, const char *name,
                                      const char *encoding);
