#include "lib/harbrel/cache/journalWords.h"

#include <string>

#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/string/str.h"

using enum JournalField;

constexpr JournalWords ANSWER_JOURNAL_WORDS = {
    .addFunction = "NetCfgAddAnswerStringInt",
    .removeFunction = "HBLNetCfgRemoveAnswer",
    .unchanged = nullptr,
    .removalFailed = nullptr,
    .steps =
        {
            {"Memory allocation failed: a: %p, d: %p, o: %p", {ADD_LINE, REMOVE_LINE, OLD_VALUE}},
            {"Failed to add %s:%s to hash table", {KEY, VALUE}},
            {"Failed to remove: %s from database file, error: %s", {KEY, ERROR_TEXT}},
            {"Failed to write to %s:%s to database file, error: %s", {KEY, VALUE, ERROR_TEXT}},
            {"Failed to restore previous values %s:%s", {KEY, VALUE}},
            {"Failed to remove newly added record, %s:%s", {KEY, VALUE}},
            {"Memory allocation failed: d: %p, o: %p", {REMOVE_LINE, OLD_VALUE}},
            {"Failed to remove \"%s\" from hash table", {KEY}},
            {"Failed to remove \"%s\" in database file", {KEY}},
            {"Restoring %s:%s failed in hash table", {KEY, VALUE}},
        },
};

constexpr JournalWords BRIDGE_JOURNAL_WORDS = {
    .addFunction = "HBLNetCfgAddHostAdapterMapping",
    .removeFunction = "HBLNetCfgRemoveHostAdapterMapping",
    .unchanged = "New and old value vnet in the configuration are same: %d for adapter: %s",
    .removalFailed = "Removing Bridge mapping failed",
    .steps =
        {
            {"Memory allocation failure", {}},
            {"Failed to add Bridge mapping for adapter: %s to vnet: %d", {KEY, VNET}},
            {"Failed to remove bridge mapping for adapter: %s To vnet: %d from database file, error: %s",
             {KEY, VNET, ERROR_TEXT}},
            {"Failed to write bridge for adapter: %s To vnet: %d to database file, error: %s",
             {KEY, VNET, ERROR_TEXT}},
            {"Failed to restore previous values of Bridge mapping adapter: %s, vnet: %d", {KEY, VNET}},
            {"Failed to remove newly added record, adapter: %s, vnet:%d", {KEY, VNET}},
            {"Memory allocation failed, error: %s", {ERROR_TEXT}},
            {"Failed to remove Bridge mapping for adapter: %s from hash table", {KEY}},
            {"Failed to remove Bridge mapping for adapter: %s from database file", {KEY}},
            {"Failed to restore previous values of Bridge mapping, adapter: %s, vnet: %d", {KEY, VNET}},
        },
};

constexpr JournalWords DHCP_JOURNAL_WORDS = {
    .addFunction = "HBLNetCfgAddDHCPMACToIP",
    .removeFunction = "HBLNetCfgRemoveDHCPMACToIP",
    .unchanged = nullptr,
    .removalFailed = nullptr,
    .steps =
        {
            {"Memory allocation failure", {}},
            {"Failed to add DHCP address mapping for MAC: %s To IP: %s", {KEY, VALUE}},
            {"Failed to remove DHCP address mapping for MAC: %s To IP: %s", {KEY, VALUE}},
            {"Failed to add DHCP address mapping record for MAC: %s To IP: %s", {KEY, VALUE}},
            {"Failed to restore previous values %s:%s", {KEY, VALUE}},
            {"Failed to remove newly added record, %s:%s", {KEY, VALUE}},
            {"Memory allocation failure, error: %s", {ERROR_TEXT}},
            {"Failed to remove DHCP address mapping for MAC: %s", {KEY}},
            {"Failed to remove DHCP address mapping for MAC: %s", {KEY}},
            {"Failed to restore previous values of DHCP mapping, mac: %s, ip: %s", {KEY, VALUE}},
        },
};

constexpr JournalWords NAT_JOURNAL_WORDS = {
    .addFunction = "HBLNetCfgAddNATPortFwd",
    .removeFunction = "HBLNetCfgRemoveNATPortFwd",
    .unchanged = nullptr,
    .removalFailed = nullptr,
    .steps =
        {
            {"Memory allocation failure", {}},
            {"Failed to add port forward record for %s port %u", {PROTOCOL, HOST_PORT}},
            {"Failed to remove port forward record for %s port %u", {PROTOCOL, HOST_PORT}},
            {"Failed to add port forward record for %s port %u", {PROTOCOL, HOST_PORT}},
            {"Failed to restore previous values, vnet: %u, %s, port %u, vmip: %s, vmPort: %u",
             {VNET, PROTOCOL, HOST_PORT, VALUE, VM_PORT}},
            {"Failed to remove newly added record, vnet: %u, %s, port %u, vmip: %s, vmPort: %u",
             {VNET, PROTOCOL, HOST_PORT, VALUE, VM_PORT}},
            {"Memory allocation error", {}},
            {"Failed to remove NAT port forward for %s port %u from hash table", {PROTOCOL, HOST_PORT}},
            {"Failed to remove NAT port forward for %s port %u from database file, error: %s",
             {PROTOCOL, HOST_PORT, ERROR_TEXT}},
            {"Failed to restore previous value for NAT port  forward record, vnet: %u, \"%s\", hostPort: %u, "
             "vmIP: %s vmPort: %u, desc.: %s",
             {VNET, PROTOCOL, HOST_PORT, VALUE, VM_PORT, DESCRIPTION}},
        },
};

static constexpr bool EachConversionHasItsField(const JournalWords &words) {
    for (const JournalMessage &message : words.steps) {
        size_t conversions = 0;
        for (const char *at = message.format; *at != '\0'; ++at) {
            conversions += *at == '%' ? 1 : 0;
        }
        size_t fields = 0;
        for (JournalField field : message.fields) {
            fields += field != NONE ? 1 : 0;
        }
        if (conversions != fields) {
            return false;
        }
    }
    return true;
}
static_assert(EachConversionHasItsField(ANSWER_JOURNAL_WORDS));
static_assert(EachConversionHasItsField(BRIDGE_JOURNAL_WORDS));
static_assert(EachConversionHasItsField(DHCP_JOURNAL_WORDS));
static_assert(EachConversionHasItsField(NAT_JOURNAL_WORDS));

static std::string PointerText(const void *pointer) {
    char text[32];
    Str_Snprintf(text, sizeof text, "%p", pointer);
    return text;
}

static std::string FieldText(JournalField field, const JournalDetails &details) {
    const RecordFields &record = details.record;
    switch (field) {
        case KEY:
            return TextOrNull(record.key);
        case VALUE:
            return TextOrNull(record.value);
        case VNET:
            return std::to_string(record.vnet);
        case PROTOCOL:
            return ProtocolName(record.isTcp);
        case HOST_PORT:
            return std::to_string(record.hostPort);
        case VM_PORT:
            return std::to_string(record.vmPort);
        case DESCRIPTION:
            return TextOrNull(record.description);
        case ERROR_TEXT:
            return Err_ErrnoText(details.errorNumber);
        case ADD_LINE:
            return PointerText(details.addLine);
        case REMOVE_LINE:
            return PointerText(details.removeLine);
        case OLD_VALUE:
            return PointerText(details.oldValue);
        case NONE:
            break;
    }
    return {};
}

void TellJournalStep(const JournalWords &words, JournalStep step, const JournalDetails &details) {
    if (!HBLLogEnabled(LOG_ERR)) {
        return;
    }
    const JournalMessage &message = words.steps[step];
    std::string text;
    const JournalField *field = message.fields;
    for (const char *at = message.format; *at != '\0'; ++at) {
        if (*at == '%') {
            ++at;  // every conversion of these texts is one letter
            text += FieldText(*field++, details);
        } else {
            text += *at;
        }
    }
    bool adding = step < JOURNAL_REMOVE_ALLOCATION;
    HBLLog(LOG_ERR, adding ? words.addFunction : words.removeFunction, "%s", text.c_str());
}
