// The kernel's packet filter of the current network namespace, spoken to in the language of nft.
#pragma once

#include <memory>
#include <string>

struct nft_ctx;

struct NftCloser {
    void operator()(nft_ctx *context) const;
};

// A connection to the packet filter. Tables with the owner flag that were made through it live as long as the
// object and all copies that fork has made of it.
class Firewall {
  public:
    // False after a line in the log.
    bool Open();

    // Carries a text of commands out, all or nothing. An errno value; *refusal has the words of it.
    int Apply(const std::string &commands, std::string *refusal);

  private:
    void Forget();

    std::unique_ptr<nft_ctx, NftCloser> context_;
};
