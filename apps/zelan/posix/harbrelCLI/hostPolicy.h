// Applying and withdrawing host policy settings as far as the virtual networks are concerned.
#pragma once

// The fixed path of the host policy file, as a new text that the caller frees.
char *PolicyGetHostPolicyPath();

// Both are called with the library not loaded; true when all went well. Without a subnet (null) the NAT
// network is left alone and only the detection daemon is restarted.
bool InstallHostPolicy(const char *subnet, bool useDHCP);
bool UninstallHostPolicy();
