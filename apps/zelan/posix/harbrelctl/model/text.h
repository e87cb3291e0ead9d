// Texts of others, before they reach a terminal.
#pragma once

#include <string>

// Control characters, which a terminal would take for commands, become question marks.
std::string Printable(std::string text);
