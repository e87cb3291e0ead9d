// Small files, as configuration files and the kernel's settings below /proc/sys.
#pragma once

#include <string>

// Reads the whole file; false, with errno, when that fails or it is larger than 4 MiB.
bool File_Read(const char *path, std::string *text);

// Writes a text to an existing file in one piece. False with errno.
bool File_Write(const char *path, const char *text);

// Replaces a file, so that a reader sees the old content or the new one and nothing between. False with
// errno. There is one writer at a time: a kill leaves what the next one writes over.
bool File_Replace(const char *path, const std::string &text);

// Where a replacement stands until it is whole.
std::string File_Unfinished(const std::string &path);

// The path as it is from every folder.
std::string File_Absolute(const char *path);
