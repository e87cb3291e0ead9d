// Whether a rewrite would change anything. Private to this folder.
#pragma once

// Whether the file at `path` is in every way what the one open as `file` would be in its place: a plain one
// under no other name, with the same owner, mode and bytes.
bool NetCfgIsSameFile(const char *path, int file);
