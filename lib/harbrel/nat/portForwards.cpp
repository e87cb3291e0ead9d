// The exported functions of port forwards, keyed by protocol and host port.
#include <cstring>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/frame/inOutLengths.h"
#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

namespace {

// A caller's buffers for one forward, as the reads of the cache take them.
struct ForwardBuffers {
    char *vmIP;
    uint32_t *vmIPLen;
    char *description;
    uint32_t *descLen;
    size_t descriptionSize;

    ForwardBuffers(char *ip, uint32_t *ipLen, char *text, uint32_t *textLen)
        : vmIP(ip),
          vmIPLen(ipLen),
          description(text),
          descLen(textLen),
          descriptionSize(ValueOrZero(textLen)) {}

    bool Usable() const {
        return vmIP != nullptr && vmIPLen != nullptr && *vmIPLen >= HBL_IP_STR_SIZE &&
               (description == nullptr || descLen != nullptr);
    }
    // Hands the lengths of a successful read to the caller.
    void Publish() const {
        *vmIPLen = LengthWithTerminator(vmIP);
        if (description != nullptr) {
            *descLen = static_cast<uint32_t>(descriptionSize);
        }
    }
    const char *ShownDescription() const {
        return description != nullptr && descriptionSize != 0 ? description : TextOrNull(nullptr);
    }
};

// A terminated copy; null stays null, and so does an empty text. False when it is refused.
bool CopyDescription(FunctionLog log, const char *description, uint32_t length, MallocString *copy) {
    if (description == nullptr) {
        return true;
    }
    if (length >= NETCFG_MAX_DESCRIPTION) {
        log(LOG_ERR, "Description is too long, allowed is: %u bytes",
            static_cast<unsigned>(NETCFG_MAX_DESCRIPTION));
        return false;
    }
    if (length == 0) {
        log(LOG_INFO2, "Using a NULL description since, length is 0");
        return true;
    }
    copy->reset(strndup(description, length));
    if (*copy == nullptr) {
        log(LOG_ERR, "Error in memory allocation for NAT port forward description");
        return false;
    }
    return true;
}

bool StoreForward(uint32_t vnet, bool tcp, uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                  const char *description) {
    return vmIP != nullptr
               ? HBLNetCfgAddNATPortFwd(nullptr, vnet, tcp, hostPort, vmIP, vmPort, description, false)
               : HBLNetCfgRemoveNATPortFwd(nullptr, vnet, tcp, hostPort);
}

}  // namespace

bool HBL_SetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                           const char *description, uint32_t descLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, tcp: %u, hP: %u, vmIP: %p,%s, vmP: %u, d: %p,%.*s, dL: %u",
              Address(vnet), TextOrNull(vnet), tcp, hostPort, Address(vmIP), TextOrNull(vmIP), vmPort,
              Address(description), ShownLength(description, descLen), TextOrNull(description), descLen);
    if (vnet == nullptr || hostPort == 0) {
        frame.log(LOG_ERR, "Invalid argument - zelan: %p, hostPort: %u", Address(vnet), hostPort);
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    if (vmIP != nullptr && (!HBLIPStrIsValid(vmIP) || vmPort == 0)) {
        frame.log(LOG_ERR, "Invalid VM IP: %s or port: %u", vmIP, vmPort);
        return false;
    }
    MallocString descriptionCopy;
    if (!CopyDescription(frame.log, description, descLen, &descriptionCopy)) {
        return false;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    if (!StoreForward(number, tcp, hostPort, vmIP, vmPort, descriptionCopy.get())) {
        frame.log(LOG_ERR, "Setting/ Removing NAT Port Forward failed for vnet: %s, port: %u", vnet,
                  hostPort);
        return false;
    }
    if (vmIP != nullptr) {
        frame.log(
            LOG_OK,
            "Setting NAT Port Forward succeeded for vnet: %s, tcp: %u, hostPort: %u, vm IP: %s, vm port: %u, "
            "description: %s",
            vnet, tcp, hostPort, vmIP, vmPort, TextOrNull(descriptionCopy.get()));
    } else {
        frame.log(LOG_OK, "Removing NAT Port Forward succeeded for vnet: %s, tcp: %u, hostPort: %u", vnet,
                  tcp, hostPort);
    }
    return true;
}

bool HBL_GetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, char *vmIP, uint32_t *vmIPLen,
                           uint16_t *vmPort, char *description, uint32_t *descLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    ForwardBuffers buffers(vmIP, vmIPLen, description, descLen);
    frame.log(
        LOG_ARGS, "Arguments - v: %p,%s, tcp: %u, hP: %u, vIP: %p, vIPL: %p, %u, vP: %p, d: %p, dL: %p,%u",
        Address(vnet), TextOrNull(vnet), tcp, hostPort, Address(vmIP), Address(vmIPLen), ValueOrZero(vmIPLen),
        Address(vmPort), Address(description), Address(descLen), ValueOrZero(descLen));
    if (vnet == nullptr || vmPort == nullptr || !buffers.Usable()) {
        frame.log(LOG_ERR,
                  "Invalid argument - vnet: %p, vmIP: %p, vmIPLen: %p, %u, vmPort: %p, description: %p, "
                  "descLen: %p",
                  Address(vnet), Address(vmIP), Address(vmIPLen), ValueOrZero(vmIPLen), Address(vmPort),
                  Address(description), Address(descLen));
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    if (!HBLNetCfgLookupNATPortFwd(nullptr, number, tcp, hostPort, vmIP, *vmIPLen, vmPort, description,
                                   &buffers.descriptionSize)) {
        frame.log(LOG_ERR, "Getting NAT Port Forward failed on vnet: %s", vnet);
        return false;
    }
    buffers.Publish();
    frame.log(LOG_INFO,
              "Retrieved NAT Port forward record for vnet: %s, tcp: %u, hostport: %u, vmIP: %s, vmIPLen: %u, "
              "vmPort: %u, description: %s, description len: %u",
              vnet, tcp, hostPort, vmIP, *vmIPLen, *vmPort, buffers.ShownDescription(), ValueOrZero(descLen));
    return true;
}

bool HBL_EnumNATPortForward(const char *vnet, bool tcp, uint32_t *enumOffset, uint16_t *hostPort, char *vmIP,
                            uint32_t *vmIPLen, uint16_t *vmPort, char *description, uint32_t *descLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    ForwardBuffers buffers(vmIP, vmIPLen, description, descLen);
    frame.log(
        LOG_ARGS,
        "Arguments - v: %p,%s, tcp: %u, eO: %p,%u, hP: %p, vIP: %p, vIPL: %p,%u, vP: %p, d: %p, dL: %p,%u",
        Address(vnet), TextOrNull(vnet), tcp, Address(enumOffset), ValueOrZero(enumOffset), Address(hostPort),
        Address(vmIP), Address(vmIPLen), ValueOrZero(vmIPLen), Address(vmPort), Address(description),
        Address(descLen), ValueOrZero(descLen));
    if (vnet == nullptr || enumOffset == nullptr || vmPort == nullptr || !buffers.Usable()) {
        frame.log(LOG_ERR,
                  "Invalid argument, zelan: %p, enumOffset: %p, vmIP: %p vmIPLen: %p, %u, vmPort: %p, "
                  "description: %p, descLen: %p",
                  Address(vnet), Address(enumOffset), Address(vmIP), Address(vmIPLen), ValueOrZero(vmIPLen),
                  Address(vmPort), Address(description), Address(descLen));
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    if (!HBLNetCfgEnumNATPortFwd(nullptr, number, tcp, enumOffset, hostPort, vmIP, *vmIPLen, vmPort,
                                 description, &buffers.descriptionSize)) {
        frame.log(LOG_ERR, "No ports to enumerate for vnet: %s", vnet);
        return false;
    }
    buffers.Publish();
    frame.log(
        LOG_INFO2,
        "Successfully enumerated NAT forwarde port, vnet: %s, tcp: %uenumOffset: %u, hostPort: %u, vmIP: %s, "
        "vmIPLen: %u, vmPort: %u, description: %s, description len: %u",
        vnet, tcp, *enumOffset, *hostPort, vmIP, *vmIPLen, *vmPort, buffers.ShownDescription(),
        ValueOrZero(descLen));
    return true;
}
