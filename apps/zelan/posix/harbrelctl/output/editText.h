// A network as a text that people edit.
#pragma once

#include <string>

#include "apps/zelan/posix/harbrelctl/model/keys.h"

// Every key that says something, forwards and reservations, one a line; defaults stand as comments.
std::string EditText(int network, const NetworkConfig &config);

// Reads such a text; what is not in it is not set. The errors, each with its line, or an empty text.
std::string ReadEditText(const std::string &text, NetworkConfig *config);
