// What a loss of power leaves: a file is on the disk before it takes another's place, the new name after it.
#pragma once

// False, with errno, when the file's contents could not be brought to the disk.
bool HBLSyncFile(const char *path);
// The entries of the folder that holds `path`.
bool HBLSyncFolderOf(const char *path);
