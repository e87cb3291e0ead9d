// A private folder with the input as a file in it, for readers that take a path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "lib/misc/owners.h"

class InputFile {
  public:
    InputFile() {
        char folder[] = "/dev/shm/fuzz.XXXXXX";  // where a sync costs nothing
        if (mkdtemp(folder) == nullptr) {
            abort();
        }
        folder_ = folder;
    }
    ~InputFile() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    std::string Path(const char *name = "input") const { return folder_ + "/" + name; }
    void Write(const uint8_t *data, size_t size) const {
        const FileStream stream(fopen(Path().c_str(), "we"));
        if (stream == nullptr || fwrite(data, 1, size, stream.get()) != size) {
            abort();
        }
    }

  private:
    std::string folder_;
};
