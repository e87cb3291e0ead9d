// The few bpf(2) operations that the bridge needs.
//
// Done here and not through libbpf: the programs need neither type information nor relocations but those of
// four maps; libbpf would add itself, libelf, zlib and zstd to a static program, some twenty system calls of
// probing to each start, and Debian 12's cannot attach by tcx.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "daemons/bridgefilter/tcFilter.h"
#include "lib/misc/owners.h"

// A map as the kernel makes it; `type` is one of BPF_MAP_TYPE_.
struct BpfMapPlan {
    const char *name;  // as the programs call it, at most 15 letters
    uint32_t type;
    uint32_t keySize;
    uint32_t valueSize;
    uint32_t entries;
};

// Empty with errno, as all below.
FileDescriptor Bpf_MakeMap(const BpfMapPlan &plan);

// Writes one element; false with errno.
bool Bpf_Put(const FileDescriptor &map, const void *key, const void *value);

// A map by the name that the programs know.
struct BpfMapName {
    const char *name;
    int map;
};

// Loads the program in that section of the object that is built in, for a place where packets are classified.
FileDescriptor Bpf_LoadProgram(const char *section, const std::vector<BpfMapName> &maps);

// Attaches a program to an interface before all others of its kind, by a link that ends with its descriptor.
// EINVAL before Linux 6.6.
FileDescriptor Bpf_AttachByLink(const FileDescriptor &program, int interface, Direction direction);
