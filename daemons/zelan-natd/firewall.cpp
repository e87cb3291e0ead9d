#include "daemons/zelan-natd/firewall.h"

#include <malloc.h>
#include <nftables/libnftables.h>

#include <algorithm>
#include <cerrno>

#include "daemons/common/complain.h"

void NftCloser::operator()(nft_ctx *context) const {
    nft_ctx_free(context);
}

bool Firewall::Open() {
    context_.reset(nft_ctx_new(NFT_CTX_DEFAULT));
    if (!context_ || nft_ctx_buffer_error(context_.get()) != 0) {
        Complain("cannot speak to nftables");
        return false;
    }
    return true;
}

int Firewall::Apply(const std::string &commands, std::string *refusal) {
    errno = 0;
    int result = nft_run_cmd_from_buffer(context_.get(), commands.c_str());
    int error = errno != 0 ? errno : EINVAL;
    if (result == 0) {
        Forget();
        return 0;
    }
    // The first line; what follows points into the commands.
    *refusal = nft_ctx_get_error_buffer(context_.get());
    refusal->erase(std::min(refusal->find('\n'), refusal->size()));
    return error;
}

// Before a command the library reads all tables of the host, half a megabyte for each, and keeps them until
// the context ends, which would give up the table, or until a command fails. A daemon must not carry that
// along for its life.
void Firewall::Forget() {
    constexpr const char *NO_COMMAND = "?";
    nft_run_cmd_from_buffer(context_.get(), NO_COMMAND);
    malloc_trim(0);
}
