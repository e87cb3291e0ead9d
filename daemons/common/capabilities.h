// The capabilities of the calling process, by their numbers (CAP_).
#pragma once

#include <span>

// Makes these, of the permitted ones, the effective ones, and gives all others up. False with errno.
bool Capabilities_Keep(std::span<const int> kept);

// The same, and no exec ever brings another one back. Where the kernel refuses the latter, the former is done.
bool Capabilities_KeepForGood(std::span<const int> kept);

// Makes all permitted ones effective, as a change of the user leaves none so. False with errno.
bool Capabilities_RaiseEffective();

// Has those that are permitted, of which this is to be one, survive an exec by a user other than root. False
// with errno.
bool Capabilities_Inherit(int capability);
