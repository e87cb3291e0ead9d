// Texts that left the library by pointer. They stay good until the last unload, whatever becomes of the
// answers that they were read from; equal ones are kept once, so that only new texts take memory.
#pragma once

#include <string_view>

// The kept copy. Any thread.
const char *NetCfgKeepText(std::string_view text);
void NetCfgForgetTexts();
