// The capabilities of the calling process, by their numbers (CAP_).
#pragma once

#include <span>

// Makes these, of the permitted ones, the effective ones, and gives all others up. False with errno.
bool Capabilities_Keep(std::span<const int> kept);

// The same, and no exec ever brings another one back.
bool Capabilities_KeepForGood(std::span<const int> kept);
