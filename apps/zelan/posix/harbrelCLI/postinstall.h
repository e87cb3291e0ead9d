// What an installer runs: start afresh or carry the networks over after an installation or upgrade, and
// replace the configuration with one from a settings file. Neither starts a service.
#pragma once

// Both are called with the library not loaded and return 0 or 1. The old version "0", exactly, is a fresh
// install.
int PostInstall(const char *oldVersion);
int MigrateNetworkSettings(const char *path);

// Stops all services and removes all networks and the database; the library may be loaded or not.
int CleanupExistingConfig();
// Imports the file and regenerates the files of each network; the library is not loaded. `migrating` picks
// the words, and whether a failure to propagate clears the configuration.
int RestoreNetworkSettings(const char *path, bool migrating);
// Creates a new database with the three default networks.
int ConfigureDefaultNetworks();
