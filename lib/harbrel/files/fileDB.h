// The file creation database: a record of what the library creates and removes. It keeps nothing in this
// product; each operation reports success, and the callers take its result all the same.
#pragma once

bool HBLFileDBLoad();
bool HBLFileDBUnload();
bool HBLFileDBAddDirectory(const char *path);
bool HBLFileDBAddFile(const char *path, const char *modificationTime);  // decimal seconds, or null
bool HBLFileDBRemoveDirectory(const char *path);
bool HBLFileDBRemoveFile(const char *path);
