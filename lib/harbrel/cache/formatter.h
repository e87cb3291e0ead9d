// Record lines in the grammar of the database.
#pragma once

#include <string_view>

#include "lib/harbrel/cache/families.h"

// The record's line with its line feed: a new text from malloc that the caller frees. Null when memory ran
// out or the number is outside the grammar.
char *NetCfgFormatRecord(uint32_t recordType, const RecordFields &record);
// BINDIR comes from the host configuration at each load and never goes to a file, however it got here.
bool NetCfgStaysInMemory(uint32_t recordType, const RecordFields &record);
// Why a load would not read the record of `addType` back as it is, its line being `line`; null when it would.
const char *NetCfgWhyUnreadable(uint32_t addType, const RecordFields &record, std::string_view line);
// The same for a line alone, with its line feed.
const char *NetCfgWhyUnreadableLine(std::string_view line);
