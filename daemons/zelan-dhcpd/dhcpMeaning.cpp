#include "daemons/zelan-dhcpd/dhcpMeaning.h"

#include <algorithm>
#include <cctype>

#include "daemons/zelan-dhcpd/dhcpParameters.h"

namespace {

// Where a block of statements stands: what it belongs to, and what holds around it.
struct Scope {
    DhcpSettings settings;  // from the outermost scope inwards, that one excepted
    DhcpSubnet *subnet = nullptr;
    int sharedNetwork = 0;
};

std::string Quoted(const DhcpStatement &statement) {
    return std::string(1, '\'').append(statement.Text()).append(1, '\'');
}

class Reader {
  public:
    explicit Reader(DhcpMeaning *meaning) : meaning_(meaning) {}

    DhcpProblem Read(const std::vector<DhcpStatement> &statements) {
        // What is defined may stand behind its use, and what holds in a scope may stand behind its blocks.
        Scope outermost;
        if (ReadParameters(statements, &meaning_->settings)) {
            ReadBlocks(statements, outermost);
        }
        for (DhcpSubnet &subnet : meaning_->subnets) {
            DhcpSettings all = meaning_->settings;
            all.Overlay(subnet.settings);
            subnet.settings = std::move(all);
        }
        return problem_;
    }

  private:
    bool Judge(DhcpVerdict verdict, const DhcpStatement &statement) {
        if (verdict != DhcpVerdict::SOUND) {
            problem_ = {verdict, statement.line(), Quoted(statement)};
        }
        return verdict == DhcpVerdict::SOUND;
    }

    bool Refuse(const DhcpStatement &statement, const char *reason) {
        problem_ = {DhcpVerdict::FAULTY, statement.line(), Quoted(statement).append(": ").append(reason)};
        return false;
    }

    // The parameters of one scope; what only subnets, pools and hosts have is left out.
    bool ReadParameters(const std::vector<DhcpStatement> &statements, DhcpSettings *settings) {
        for (const DhcpStatement &statement : statements) {
            bool isOther = statement.hasBody || statement.Is("range") || statement.Is("hardware") ||
                           statement.Is("fixed-address") || IsClientId(statement);
            if (!isOther && !Judge(DhcpParameter_Take(statement, &options_, settings, meaning_), statement)) {
                return false;
            }
        }
        return true;
    }

    static bool IsClientId(const DhcpStatement &statement) {
        return statement.Is("option") && statement.words.size() > 1 &&
               statement.words[1].IsWord("dhcp-client-identifier");
    }

    bool ReadBlocks(const std::vector<DhcpStatement> &statements, const Scope &scope) {
        return std::all_of(statements.begin(), statements.end(), [&](const DhcpStatement &statement) {
            return statement.hasBody ? ReadBlock(statement, scope) : RefuseStray(statement, scope);
        });
    }

    // Host parameters and ranges outside of what they belong to.
    bool RefuseStray(const DhcpStatement &statement, const Scope &scope) {
        bool isStray = statement.Is("hardware") || statement.Is("fixed-address") ||
                       (statement.Is("range") && scope.subnet == nullptr);
        return !isStray || Refuse(statement, "it does not belong here");
    }

    bool ReadBlock(const DhcpStatement &statement, const Scope &scope) {
        if (statement.Is("subnet")) {
            return ReadSubnet(statement, scope);
        }
        if (statement.Is("host")) {
            return ReadHost(statement, scope);
        }
        if (statement.Is("pool") && scope.subnet != nullptr && statement.words.size() == 1) {
            return ReadPool(statement, scope);
        }
        Scope inner = {scope.settings, nullptr, scope.sharedNetwork};
        if (statement.Is("shared-network")) {
            inner.sharedNetwork = ++sharedNetworks_;
        } else if (!statement.Is("group")) {
            return Judge(DhcpVerdict::BEYOND, statement);
        }
        DhcpSettings own;
        if (!ReadParameters(statement.body, &own)) {
            return false;
        }
        inner.settings.Overlay(own);
        return ReadBlocks(statement.body, inner);
    }

    bool ReadSubnet(const DhcpStatement &statement, const Scope &scope) {
        const std::vector<DhcpToken> &words = statement.words;
        DhcpSubnet subnet = {{}, scope.sharedNetwork, {}, scope.settings, statement.line()};
        Ipv4 mask = 0;
        if (scope.subnet != nullptr || words.size() != 4 ||
            !Ipv4_Parse(words[1].text, &subnet.subnet.address) || !words[2].IsWord("netmask") ||
            !Ipv4_Parse(words[3].text, &mask) || !Ipv4_Prefix(mask, &subnet.subnet.prefix)) {
            return Refuse(statement, "a subnet reads 'subnet ADDRESS netmask MASK { ... }'");
        }
        DhcpSettings own;
        if (!ReadParameters(statement.body, &own)) {
            return false;
        }
        subnet.settings.Overlay(own);
        Scope inner = {subnet.settings, &subnet, scope.sharedNetwork};
        for (const DhcpStatement &member : statement.body) {
            if (member.Is("range") && !ReadRange(member, std::nullopt, &subnet)) {
                return false;
            }
        }
        if (!ReadBlocks(statement.body, inner)) {
            return false;
        }
        meaning_->subnets.push_back(std::move(subnet));
        return true;
    }

    // "range [dynamic-bootp] FIRST [LAST]"
    bool ReadRange(const DhcpStatement &statement, std::optional<bool> known, DhcpSubnet *subnet) {
        DhcpRange range = {0, 0, known, false};
        DhcpWords words = DhcpWords(statement.words).subspan(1);
        if (!words.empty() && words[0].IsWord("dynamic-bootp")) {
            range.forBootp = true;
            words = words.subspan(1);
        }
        if (words.empty() || words.size() > 2 || !Ipv4_Parse(words.front().text, &range.first) ||
            !Ipv4_Parse(words.back().text, &range.last)) {
            return Refuse(statement, "a range has one or two addresses");
        }
        if (range.first > range.last) {
            std::swap(range.first, range.last);
        }
        if (!subnet->subnet.Contains(range.first) || !subnet->subnet.Contains(range.last)) {
            return Refuse(statement, "the range is not in its subnet");
        }
        subnet->ranges.push_back(range);
        return true;
    }

    // A pool is understood when it has ranges and says whether known clients, unknown ones or both get them.
    bool ReadPool(const DhcpStatement &statement, const Scope &scope) {
        DhcpPermits permits;
        for (const DhcpStatement &member : statement.body) {
            if (!member.Is("range") && !Judge(DhcpParameter_TakePermit(member, &permits), member)) {
                return false;
            }
        }
        std::optional<bool> known;
        if (!permits.Admits(true) || !permits.Admits(false)) {
            known = permits.Admits(true);
        }
        if (known == false && !permits.Admits(false)) {
            return true;  // for nobody
        }
        return std::all_of(statement.body.begin(), statement.body.end(), [&](const DhcpStatement &member) {
            return !member.Is("range") || ReadRange(member, known, scope.subnet);
        });
    }

    bool ReadHost(const DhcpStatement &statement, const Scope &scope) {
        DhcpHost host = {"", "", "", {}, scope.settings, statement.line()};
        if (statement.words.size() != 2) {
            return Refuse(statement, "a host has one name");
        }
        host.label = statement.words[1].text;
        DhcpSettings own;
        for (const DhcpStatement &member : statement.body) {
            if (member.hasBody || member.Is("range")) {
                return Judge(DhcpVerdict::BEYOND, member);
            }
            if (!ReadIdentity(member, &host)) {
                return false;
            }
        }
        if (!ReadParameters(statement.body, &own)) {
            return false;
        }
        host.settings.Overlay(own);
        meaning_->hosts.push_back(std::move(host));
        return true;
    }

    bool ReadIdentity(const DhcpStatement &statement, DhcpHost *host) {
        if (statement.Is("hardware")) {
            return ReadHardware(statement, host);
        }
        if (statement.Is("fixed-address")) {
            return ReadAddresses(statement, host);
        }
        if (IsClientId(statement)) {
            DhcpWords words = DhcpWords(statement.words).subspan(2);
            return Judge(DhcpOption_Encode({0, "X"}, words, &host->clientId), statement);
        }
        return true;
    }

    bool ReadHardware(const DhcpStatement &statement, DhcpHost *host) {
        constexpr size_t MAC_LENGTH = 6;
        const std::vector<DhcpToken> &words = statement.words;
        std::string bytes;
        if (words.size() > 1 && !words[1].IsWord("ethernet")) {
            return Judge(DhcpVerdict::BEYOND, statement);
        }
        if (words.size() != 3 || !Dhcp_HexBytes(words[2].text, &bytes) || bytes.size() != MAC_LENGTH) {
            return Refuse(statement, "hardware ethernet has six bytes between colons");
        }
        host->hardware = Dhcp_HexText(bytes);
        return true;
    }

    bool ReadAddresses(const DhcpStatement &statement, DhcpHost *host) {
        std::string bytes;
        DhcpWords words = DhcpWords(statement.words).subspan(1);
        if (!Judge(DhcpOption_Encode({0, "IA"}, words, &bytes), statement)) {
            return false;
        }
        for (size_t i = 0; i < bytes.size(); i += sizeof(Ipv4)) {
            host->addresses.push_back(Ipv4_OfWire(bytes.data() + i));
        }
        return true;
    }

    DhcpMeaning *meaning_;
    DhcpOptions options_;
    DhcpProblem problem_;
    int sharedNetworks_ = 0;
};

template <typename Value>
void Replace(std::optional<Value> *outer, const std::optional<Value> &inner) {
    if (inner) {
        *outer = inner;
    }
}

}  // namespace

void DhcpSettings::Overlay(const DhcpSettings &inner) {
    for (const auto &[code, value] : inner.options) {
        options[code] = value;
    }
    Replace(&defaultLease, inner.defaultLease);
    Replace(&maxLease, inner.maxLease);
    Replace(&bootFile, inner.bootFile);
    Replace(&serverName, inner.serverName);
    Replace(&nextServer, inner.nextServer);
    Replace(&authoritative, inner.authoritative);
    Replace(&knownOnly, inner.knownOnly);
    Replace(&noBooting, inner.noBooting);
    Replace(&noBootp, inner.noBootp);
    Replace(&labelsAsNames, inner.labelsAsNames);
}

DhcpProblem DhcpMeaning_Read(const std::vector<DhcpStatement> &statements, DhcpMeaning *meaning) {
    *meaning = {};
    return Reader(meaning).Read(statements);
}
