// Changes to one table of nf_tables that the kernel carries out together or not at all.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

#include "daemons/common/rtnetlink.h"
#include "daemons/firewall/statements.h"

struct NftTable {
    uint8_t family;  // NFPROTO_
    const char *name;
};

// A chain; without a type it is one that rules and verdicts jump to.
struct NftChain {
    const char *name;
    const char *type = nullptr;  // "filter" or "nat"
    uint32_t hook = 0;           // NF_INET_
    int priority = 0;
};

// Types of keys and values by which nft(8) shows them; a concatenation has several, each in words of four
// bytes. All take one word but a MAC address, which takes two, and a name, which takes four.
inline constexpr uint32_t NFT_TYPE_IPV4 = 7;
inline constexpr uint32_t NFT_TYPE_MAC = 9;
inline constexpr uint32_t NFT_TYPE_PROTOCOL = 12;
inline constexpr uint32_t NFT_TYPE_PORT = 13;
inline constexpr uint32_t NFT_TYPE_INDEX = 20;
inline constexpr uint32_t NFT_TYPE_NAME = 41;

// A set, or with values a map.
struct NftSet {
    const char *name;
    std::initializer_list<uint32_t> keyTypes;
    std::initializer_list<uint32_t> valueTypes = {};
    bool verdicts = false;     // values are verdicts
    uint32_t dynamicSize = 0;  // filled by rules, up to so many,
    uint64_t timeout = 0;      // which go after so many milliseconds without a renewal; 0 for never
};

// Makes four bytes of what stands in a packet, as every part of a concatenation must have.
std::string Nft_Padded(std::string bytes);

// An element: its key as it lies in a packet.
struct NftElement {
    std::string key;
    std::string value = {};
    std::string jump = {};  // the chain, where values are verdicts
};

class NftTransaction {
  public:
    explicit NftTransaction(const NftTable &table);

    void AddTable();
    void DeleteTable();
    void AddChain(const NftChain &chain);
    void AddSet(const NftSet &set);
    void AddRule(const std::string &chain, std::initializer_list<Statement> statements);
    // `content` is the encoded content of an object of that type (NFT_OBJECT_).
    void AddObject(uint32_t type, const std::string &name, const std::string &content);
    // An element that is there already with the same value is no fault when added; one that is missing is,
    // when deleted.
    void AddElements(const char *set, std::span<const NftElement> elements);
    void DeleteElements(const char *set, std::span<const NftElement> elements);

    // 0 or the errno value of the first refusal.
    int Commit(RtSocket *socket);

  private:
    void Add(uint16_t type, uint16_t flags, const std::string &attributes);
    void AddElementList(uint16_t type, uint16_t flags, const char *set, std::span<const NftElement> elements);

    NftTable table_;
    std::string messages_;
    size_t last_ = 0;  // where the last message begins
    uint32_t sets_ = 0;
};

// Whether the table, or a chain of it, exists: 0, or ENOENT, or another errno value.
int Nft_Find(RtSocket *socket, const NftTable &table, const char *chain = nullptr);

// Whether an errno value tells of a kernel that does not know what it was asked for. All others may be gone
// another time.
bool Nft_IsLack(int error);
