// Applying and withdrawing host policy settings as far as the virtual networks are concerned.
#pragma once

// The fixed path of the host policy file, as a new text that the caller frees.
char *PolicyGetHostPolicyPath();

// Both are called with the library not loaded and return 0 or 1. Without a subnet (null) the NAT network is
// left alone and only the detection daemon is restarted.
int InstallHostPolicy(const char *subnet, bool useDHCP);
int UninstallHostPolicy();
