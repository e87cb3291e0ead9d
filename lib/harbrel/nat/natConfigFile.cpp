#include "lib/harbrel/nat/natConfigFile.h"

#include <cstdio>
#include <utility>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/nat/natParameters.h"
#include "lib/harbrel/parameters/generatedFile.h"
#include "lib/misc/owners.h"

namespace {

constexpr size_t NUMBER_SIZE = 10;  // flags and seconds

struct NatValues {
    char gateway[HBL_IP_STR_SIZE];
    char mask[HBL_IP_STR_SIZE];
    char device[HBL_PATH_SIZE];
    char activeFtp[NUMBER_SIZE];
    char allowAnyOui[NUMBER_SIZE];
    char timeout[NUMBER_SIZE];
};

// Lines that share one message. The last of them ends in the value, if there is one.
struct NatLines {
    const char *text;
    const char *(*value)(const NatValues &values);
    const char *failed;
};

constexpr NatLines LINES_BEFORE_FORWARDS[] = {
    {"# Linux NAT configuration file\n", nullptr, "fputs: failed while writing NAT config file header"},
    {"[host]\n", nullptr, "fputs: failed while writing NAT config file host section header"},
    {"# NAT gateway address\n"
     "ip = ",
     [](const NatValues &values) { return values.gateway; },
     "fputs/fprintf: failed while writing NAT config IP gateway"},
    {"netmask = ", [](const NatValues &values) { return values.mask; },
     "fprintf: failed while writing NAT config netmask"},
    {"# ZeLan device if not specified on command line\n"
     "device = ",
     [](const NatValues &values) { return values.device; },
     "fputs/fprintf: failed while writing NAT config device"},
    {"# Allow PORT/EPRT FTP commands (they need incoming TCP stream ...)\n"
     "activeFTP = ",
     [](const NatValues &values) { return values.activeFtp; },
     "fputs/fprintf: failed while writing NAT config active FTP value"},
    {"# Allows the source to have any OUI.  Turn this one if you change the OUI\n"
     "# in the MAC address of your virtual machines.\n"
     "allowAnyOUI = ",
     [](const NatValues &values) { return values.allowAnyOui; },
     "fputs/fprintf: failed while writing NAT config active FTP value"},
    {"[udp]\n", nullptr, "fputs: failed while writing NAT config UDP sectionheader"},
    {"# Timeout in seconds, 0 = no timeout, default = 60; real value might\n"
     "# be up to 100% longer\n"
     "timeout = ",
     [](const NatValues &values) { return values.timeout; },
     "fputs/fprintf: failed while writing NAT config UDP timeout value"},
};

struct ForwardSection {
    bool isTcp;
    const char *header;
    const char *headerFailed;
    const char *forwardFailed;
};

constexpr ForwardSection FORWARD_SECTIONS[] = {
    {false, "[incomingudp]\n", "fputs: failed while writing NAT config UDP port forward header",
     "fprintf: failed while writing NAT config UDP port forward header"},
    {true, "[incomingtcp]\n", "fputs: failed while writing NAT config TCP port forward header",
     "fprintf: failed while writing NAT config TCP port forward header"},
};

bool ReadValues(FunctionLog log, uint32_t vnet, NatValues *values) {
    const struct {
        uint32_t id;
        char *buffer;
        size_t size;
        const char *failed;
    } reads[] = {
        {HBL_NAT_PARAM_GATEWAY_IP, values->gateway, sizeof values->gateway,
         "Failure in looking up NAT gateway address"},
        {HBL_NAT_PARAM_GATEWAY_NETMASK, values->mask, sizeof values->mask,
         "Failure in looking up NAT netmask"},
        {HBL_NAT_PARAM_DEVICE, values->device, sizeof values->device, "Failure in looking up NAT device"},
        {HBL_NAT_PARAM_ACTIVE_FTP, values->activeFtp, sizeof values->activeFtp,
         "Failure in looking up value of Active FTP"},
        {HBL_NAT_PARAM_ALLOW_ANY_OUI, values->allowAnyOui, sizeof values->allowAnyOui,
         "Failure in looking up value of allow any oui"},
        {HBL_NAT_PARAM_UDP_TIMEOUT, values->timeout, sizeof values->timeout,
         "Failure in looking up value of timeout"},
    };
    for (const auto &read : reads) {
        if (!HBLNATGetParameter(vnet, read.id, true, read.buffer, read.size)) {
            log(LOG_ERR, "%s", read.failed);
            return false;
        }
    }
    return true;
}

bool BackUp(FunctionLog log, uint32_t vnet) {
    char confPath[HBL_PATH_SIZE];
    char backupPath[HBL_PATH_SIZE];
    if (!HBLGeneratedFilePath(log, vnet, HBL_FILE_NAT_CONF, "Cannot get the NAT config file name",
                              confPath) ||
        !HBLGeneratedFilePath(log, vnet, HBL_FILE_NAT_CONF_BACKUP,
                              "Cannot get the NAT config backup file name", backupPath)) {
        return false;
    }
    if (!HBLCopyFile(confPath, backupPath)) {
        log(LOG_ERR, "Failed to backup NAT file");
        return false;
    }
    return true;
}

void CreateNewFile(FunctionLog log, uint32_t vnet) {
    if (!HBLCreateFile(vnet, HBL_FILE_VNET_DIR, nullptr) || !HBLCreateFile(vnet, HBL_FILE_NAT_DIR, nullptr) ||
        !HBLCreateFile(vnet, HBL_FILE_NAT_CONF, nullptr)) {
        log(LOG_ERR, "Failed to create zelan directory, or NAT directory or NAT config file");
    }
}

bool WriteForwards(FunctionLog log, uint32_t vnet, const ForwardSection &section, FILE *stream) {
    if (fputs(section.header, stream) < 0) {
        return HBLLogFileFailure(log, section.headerFailed);
    }
    uint32_t index = 0;
    uint16_t hostPort;
    uint16_t vmPort;
    char vmIP[HBL_IP_STR_SIZE];
    while (HBLNetCfgEnumNATPortFwd(nullptr, vnet, section.isTcp, &index, &hostPort, vmIP, sizeof vmIP,
                                   &vmPort, nullptr, nullptr)) {
        if (fprintf(stream, "%u = %s:%u\n", hostPort, vmIP, vmPort) < 0) {
            return HBLLogFileFailure(log, section.forwardFailed);
        }
    }
    if (fputs("\n", stream) < 0) {
        HBLLogFileFailure(log, "fputs: failed while writing");
    }
    return true;
}

bool WriteLines(FunctionLog log, uint32_t vnet, const NatValues &values, FILE *stream) {
    for (const NatLines &lines : LINES_BEFORE_FORWARDS) {
        const int written = lines.value != nullptr
                                ? fprintf(stream, "%s%s\n", lines.text, lines.value(values))
                                : fputs(lines.text, stream);
        if (written < 0) {
            return HBLLogFileFailure(log, lines.failed);
        }
    }
    for (const ForwardSection &section : FORWARD_SECTIONS) {
        if (!WriteForwards(log, vnet, section, stream)) {
            return false;
        }
    }
    return true;
}

bool WriteFile(FunctionLog log, uint32_t vnet, const NatValues &values, bool isNew) {
    char path[HBL_PATH_SIZE];
    if (!HBLGeneratedFilePath(log, vnet, HBL_FILE_NAT_CONF, "Cannot get the NAT config file name", path)) {
        return false;
    }
    FileStream stream(HBLFopenRegular(path, "w"));
    if (stream == nullptr) {
        return HBLLogFileFailure(log, "fopen: failed to open NAT config file");
    }
    const bool written = WriteLines(log, vnet, values, stream.get());
    return HBLFinishGeneratedFile(log, std::move(stream), path, isNew, written,
                                  "fclose: failed while writing NAT config file");
}

}  // namespace

bool HBLNATWriteConfigFile(FunctionLog log, uint32_t vnet) {
    NatValues values;
    if (!ReadValues(log, vnet, &values)) {
        return false;
    }
    const bool existed = HBLFileExists(vnet, HBL_FILE_NAT_CONF, nullptr);
    if (existed) {
        if (!BackUp(log, vnet)) {
            return false;
        }
    } else {
        CreateNewFile(log, vnet);
    }
    const bool written = WriteFile(log, vnet, values, !existed);
    if (!written && !existed) {
        log(LOG_ERR, "Removing newly created NAT directory and config file");
        HBLRemoveFile(vnet, HBL_FILE_NAT_CONF, nullptr);
        HBLRemoveFile(vnet, HBL_FILE_NAT_DIR, nullptr);
    }
    return written;
}
