// What a loss of power leaves: a file is on the disk before it takes another's place, the new name after it.
// Private to this folder.
#pragma once

// False, with errno, when the file's contents could not be brought to the disk.
bool NetCfgSyncFile(const char *path);
// The entries of the folder that holds `path`.
bool NetCfgSyncFolderOf(const char *path);
