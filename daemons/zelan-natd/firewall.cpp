#include "daemons/zelan-natd/firewall.h"

#include <nftables/libnftables.h>

#include <algorithm>
#include <cerrno>

#include "daemons/common/complain.h"

void NftCloser::operator()(nft_ctx *context) const {
    nft_ctx_free(context);
}

bool Firewall::Open() {
    context_.reset(nft_ctx_new(NFT_CTX_DEFAULT));
    if (!context_ || nft_ctx_buffer_error(context_.get()) != 0 ||
        nft_ctx_buffer_output(context_.get()) != 0) {
        Complain("cannot speak to nftables");
        return false;
    }
    return true;
}

int Firewall::Apply(const std::string &commands, std::string *refusal) {
    errno = 0;
    if (nft_run_cmd_from_buffer(context_.get(), commands.c_str()) == 0) {
        return 0;
    }
    int error = errno != 0 ? errno : EINVAL;
    // The first line; what follows points into the commands.
    *refusal = nft_ctx_get_error_buffer(context_.get());
    refusal->erase(std::min(refusal->find('\n'), refusal->size()));
    return error;
}

std::string Firewall::Ask(const std::string &command) {
    bool answered = nft_run_cmd_from_buffer(context_.get(), command.c_str()) == 0;
    return answered ? nft_ctx_get_output_buffer(context_.get()) : "";
}
