#include "lib/misc/digest.h"

#include <nettle/base64.h>
#include <nettle/sha1.h>

#include <new>

static_assert(SHA1_DIGEST_BYTES == SHA1_DIGEST_SIZE);

// The header keeps nettle's types to itself; the context stands in the storage that it reserves.
Sha1::Sha1() {
    static_assert(sizeof context_ >= sizeof(sha1_ctx) && alignof(sha1_ctx) <= 8);
    sha1_init(new (context_) sha1_ctx);
}

void Sha1::Update(const void *data, size_t size) {
    sha1_update(std::launder(reinterpret_cast<sha1_ctx *>(context_)), size,
                static_cast<const uint8_t *>(data));
}

void Sha1::Final(uint8_t digest[SHA1_DIGEST_BYTES]) {
    sha1_digest(std::launder(reinterpret_cast<sha1_ctx *>(context_)), SHA1_DIGEST_BYTES, digest);
}

std::string Base64_Encode(const void *data, size_t size) {
    std::string text(BASE64_ENCODE_RAW_LENGTH(size), '\0');
    base64_encode_raw(text.data(), size, static_cast<const uint8_t *>(data));
    return text;
}

bool Base64_Decode(const std::string &text, std::vector<uint8_t> *data) {
    base64_decode_ctx context;
    base64_decode_init(&context);
    std::vector<uint8_t> decoded(BASE64_DECODE_LENGTH(text.size()));
    size_t size = decoded.size();
    if (base64_decode_update(&context, &size, decoded.data(), text.size(), text.data()) == 0 ||
        base64_decode_final(&context) == 0) {
        return false;
    }
    decoded.resize(size);
    *data = std::move(decoded);
    return true;
}
