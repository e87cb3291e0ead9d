// Taking a text apart. The parts are views into it.
#pragma once

#include <string_view>

// Takes the next line, without its end, from the front of the text. False when nothing is left.
bool Text_TakeLine(std::string_view *text, std::string_view *line);

// Takes the next word between blanks from the front of the text. False when none is left.
bool Text_TakeWord(std::string_view *text, std::string_view *word);

// The text without the blanks at both ends.
std::string_view Text_Trim(std::string_view text);
