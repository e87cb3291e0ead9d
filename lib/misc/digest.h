// Digests and text forms of bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

constexpr size_t SHA1_DIGEST_BYTES = 20;

// Incremental SHA-1.
class Sha1 {
  public:
    Sha1();
    void Update(const void *data, size_t size);
    void Final(uint8_t digest[SHA1_DIGEST_BYTES]);

  private:
    alignas(8) unsigned char context_[128];
};

std::string Base64_Encode(const void *data, size_t size);
// False when the text is not Base64.
bool Base64_Decode(const std::string &text, std::vector<uint8_t> *data);
