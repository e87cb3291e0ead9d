#include "daemons/firewall/transaction.h"

#include <arpa/inet.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "daemons/firewall/attributes.h"

namespace {

// Of each part of a concatenation.
constexpr uint32_t PART_SIZE = 4;

constexpr uint16_t NftType(uint16_t message) {
    return static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | message);
}

std::string Message(uint16_t type, uint16_t flags, uint8_t family, uint16_t resource,
                    const std::string &attributes) {
    nfgenmsg common = {family, NFNETLINK_V0, htons(resource)};
    nlmsghdr header = {};
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(sizeof common) + attributes.size());
    header.nlmsg_type = type;
    header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    return BytesOf(header) + BytesOf(common) + attributes;
}

// nft(8) writes the types of a concatenation as one number, six bits for each.
uint32_t JoinTypes(std::initializer_list<uint32_t> types) {
    constexpr uint32_t TYPE_BITS = 6;
    uint32_t joined = 0;
    for (uint32_t type : types) {
        joined = joined << TYPE_BITS | type;
    }
    return joined;
}

// A note for nft(8), which would show such a key turned round: type, size and value.
std::string KeysInOwnByteOrder() {
    constexpr uint8_t NOTE_OF_KEY_ORDER = 0;
    constexpr uint32_t OWN_ORDER = 1;
    const uint8_t head[2] = {NOTE_OF_KEY_ORDER, sizeof OWN_ORDER};
    return BytesOf(head) + BytesOf(OWN_ORDER);
}

uint32_t SizeOf(std::initializer_list<uint32_t> types) {
    uint32_t words = 0;
    for (uint32_t type : types) {
        words += type == NFT_TYPE_NAME ? 4 : type == NFT_TYPE_MAC ? 2 : 1;
    }
    return PART_SIZE * words;
}

std::string ElementAttributes(const NftElement &element) {
    std::string attributes = AttributeNest(NFTA_SET_ELEM_KEY, Attribute(NFTA_DATA_VALUE, element.key));
    if (!element.value.empty()) {
        attributes += AttributeNest(NFTA_SET_ELEM_DATA, Attribute(NFTA_DATA_VALUE, element.value));
    }
    if (!element.jump.empty()) {
        std::string verdict = AttributeNumber(NFTA_VERDICT_CODE, static_cast<uint32_t>(NFT_JUMP)) +
                              AttributeText(NFTA_VERDICT_CHAIN, element.jump);
        attributes += AttributeNest(NFTA_SET_ELEM_DATA, AttributeNest(NFTA_DATA_VERDICT, verdict));
    }
    return AttributeNest(NFTA_LIST_ELEM, attributes);
}

// The kernel has answered by the time that a request is sent.
int TakeVerdict(int descriptor) {
    alignas(nlmsghdr) std::array<char, 32768> buffer;
    for (;;) {
        ssize_t size = recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size < 0) {
            return errno == EAGAIN ? 0 : errno;
        }
        for (auto *message = reinterpret_cast<const nlmsghdr *>(buffer.data()); NLMSG_OK(message, size);
             message = NLMSG_NEXT(message, size)) {
            if (message->nlmsg_type == NLMSG_ERROR) {
                int error = -static_cast<const nlmsgerr *>(NLMSG_DATA(message))->error;
                if (error != 0) {
                    return error;
                }
            }
        }
    }
}

}  // namespace

std::string Nft_Padded(std::string bytes) {
    bytes.resize(PART_SIZE);
    return bytes;
}

NftTransaction::NftTransaction(const NftTable &table)
    : table_(table), messages_(Message(NFNL_MSG_BATCH_BEGIN, 0, AF_UNSPEC, NFNL_SUBSYS_NFTABLES, "")) {}

void NftTransaction::Add(uint16_t type, uint16_t flags, const std::string &attributes) {
    last_ = messages_.size();
    messages_ += Message(NftType(type), flags, table_.family, 0, attributes);
}

void NftTransaction::AddTable() {
    Add(NFT_MSG_NEWTABLE, NLM_F_CREATE, AttributeText(NFTA_TABLE_NAME, table_.name));
}

void NftTransaction::DeleteTable() {
    Add(NFT_MSG_DELTABLE, 0, AttributeText(NFTA_TABLE_NAME, table_.name));
}

void NftTransaction::AddChain(const NftChain &chain) {
    std::string attributes =
        AttributeText(NFTA_CHAIN_TABLE, table_.name) + AttributeText(NFTA_CHAIN_NAME, chain.name);
    if (chain.type != nullptr) {
        std::string hook = AttributeNumber(NFTA_HOOK_HOOKNUM, chain.hook) +
                           AttributeNumber(NFTA_HOOK_PRIORITY, static_cast<uint32_t>(chain.priority));
        attributes += AttributeText(NFTA_CHAIN_TYPE, chain.type) + AttributeNest(NFTA_CHAIN_HOOK, hook);
    }
    Add(NFT_MSG_NEWCHAIN, NLM_F_CREATE, attributes);
}

void NftTransaction::AddSet(const NftSet &set) {
    uint32_t map = NFT_SET_MAP;
    uint32_t filledByRules = NFT_SET_EVAL;
    uint32_t forgetful = NFT_SET_TIMEOUT;
    uint32_t flags = (set.valueTypes.size() != 0 || set.verdicts ? map : 0) |
                     (set.dynamicSize != 0 ? filledByRules : 0) | (set.timeout != 0 ? forgetful : 0);
    std::string attributes =
        AttributeText(NFTA_SET_TABLE, table_.name) + AttributeText(NFTA_SET_NAME, set.name) +
        AttributeNumber(NFTA_SET_FLAGS, flags) + AttributeNumber(NFTA_SET_KEY_TYPE, JoinTypes(set.keyTypes)) +
        AttributeNumber(NFTA_SET_KEY_LEN, SizeOf(set.keyTypes)) + AttributeNumber(NFTA_SET_ID, ++sets_);
    if (set.verdicts) {
        attributes +=
            AttributeNumber(NFTA_SET_DATA_TYPE, NFT_DATA_VERDICT) + AttributeNumber(NFTA_SET_DATA_LEN, 0);
    } else if (set.valueTypes.size() != 0) {
        attributes += AttributeNumber(NFTA_SET_DATA_TYPE, JoinTypes(set.valueTypes)) +
                      AttributeNumber(NFTA_SET_DATA_LEN, SizeOf(set.valueTypes));
    }
    uint32_t firstType = *set.keyTypes.begin();
    if (set.keyTypes.size() == 1 && (firstType == NFT_TYPE_INDEX || firstType == NFT_TYPE_NAME)) {
        attributes += Attribute(NFTA_SET_USERDATA, KeysInOwnByteOrder());
    }
    if (set.dynamicSize != 0) {
        attributes += AttributeNest(NFTA_SET_DESC, AttributeNumber(NFTA_SET_DESC_SIZE, set.dynamicSize));
    }
    if (set.timeout != 0) {
        attributes += AttributeNumber64(NFTA_SET_TIMEOUT, set.timeout);
    }
    Add(NFT_MSG_NEWSET, NLM_F_CREATE, attributes);
}

void NftTransaction::AddRule(const std::string &chain, std::initializer_list<Statement> statements) {
    std::string expressions;
    for (const Statement &statement : statements) {
        expressions += statement;
    }
    Add(NFT_MSG_NEWRULE, NLM_F_CREATE | NLM_F_APPEND,
        AttributeText(NFTA_RULE_TABLE, table_.name) + AttributeText(NFTA_RULE_CHAIN, chain) +
            AttributeNest(NFTA_RULE_EXPRESSIONS, expressions));
}

void NftTransaction::AddObject(uint32_t type, const std::string &name, const std::string &content) {
    Add(NFT_MSG_NEWOBJ, NLM_F_CREATE,
        AttributeText(NFTA_OBJ_TABLE, table_.name) + AttributeText(NFTA_OBJ_NAME, name) +
            AttributeNumber(NFTA_OBJ_TYPE, type) + AttributeNest(NFTA_OBJ_DATA, content));
}

void NftTransaction::AddElements(const char *set, std::span<const NftElement> elements) {
    AddElementList(NFT_MSG_NEWSETELEM, NLM_F_CREATE, set, elements);
}

void NftTransaction::DeleteElements(const char *set, std::span<const NftElement> elements) {
    AddElementList(NFT_MSG_DELSETELEM, 0, set, elements);
}

void NftTransaction::AddElementList(uint16_t type, uint16_t flags, const char *set,
                                    std::span<const NftElement> elements) {
    // The list of one message is an attribute, which has less than 64 KiB.
    constexpr size_t MOST = 500;
    for (; !elements.empty(); elements = elements.subspan(std::min(MOST, elements.size()))) {
        std::string list;
        for (const NftElement &element : elements.first(std::min(MOST, elements.size()))) {
            list += ElementAttributes(element);
        }
        Add(type, flags,
            AttributeText(NFTA_SET_ELEM_LIST_TABLE, table_.name) +
                AttributeText(NFTA_SET_ELEM_LIST_SET, set) +
                AttributeNest(NFTA_SET_ELEM_LIST_ELEMENTS, list));
    }
}

int NftTransaction::Commit(RtSocket *socket) {
    if (last_ != 0) {
        reinterpret_cast<nlmsghdr *>(messages_.data() + last_)->nlmsg_flags |= NLM_F_ACK;
    }
    messages_ += Message(NFNL_MSG_BATCH_END, 0, AF_UNSPEC, NFNL_SUBSYS_NFTABLES, "");
    // Thousands of elements are more than a socket usually sends at once.
    int size = static_cast<int>(messages_.size()) * 2;
    setsockopt(socket->descriptor(), SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size);
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = sendto(socket->descriptor(), messages_.data(), messages_.size(), 0,
                          reinterpret_cast<sockaddr *>(&kernel), sizeof kernel);
    return sent < 0 ? errno : TakeVerdict(socket->descriptor());
}

int Nft_Find(RtSocket *socket, const NftTable &table, const char *chain) {
    nfgenmsg header = {table.family, NFNETLINK_V0, 0};
    RtRequest request(NftType(chain != nullptr ? NFT_MSG_GETCHAIN : NFT_MSG_GETTABLE), 0, &header,
                      sizeof header);
    static_assert(static_cast<int>(NFTA_CHAIN_TABLE) == static_cast<int>(NFTA_TABLE_NAME));
    request.PutText(NFTA_TABLE_NAME, table.name);
    if (chain != nullptr) {
        request.PutText(NFTA_CHAIN_NAME, chain);
    }
    return socket->Ask(&request, [](const nlmsghdr *) {});
}

bool Nft_IsLack(int error) {
    return error == ENOENT || error == EOPNOTSUPP || error == EINVAL;
}
