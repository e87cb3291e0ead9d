// What an installer runs: start afresh or carry the networks over after an installation or upgrade, and
// replace the configuration with one from a settings file. Neither starts a service.
#pragma once

// Both are called with the library not loaded; true when all went well. The old version "0", exactly, is a
// fresh install.
bool PostInstall(const char *oldVersion);
bool MigrateNetworkSettings(const char *path);
