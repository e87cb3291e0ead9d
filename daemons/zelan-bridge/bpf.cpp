#include "daemons/zelan-bridge/bpf.h"

#include <elf.h>
#include <linux/bpf.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

// The programs, as clang has compiled them for the kernel's machine.
asm(".section .rodata\n"
    ".balign 8\n"
    "zelanFrameObject:\n"
    ".incbin \"" FRAME_OBJECT_FILE
    "\"\n"
    ".byte 0\n"
    ".previous\n");
extern "C" const char zelanFrameObject[];

namespace {

// Since Linux 6.6; not in the headers of Debian 12.
constexpr uint32_t ATTACH_TCX_INGRESS = 46;
constexpr uint32_t ATTACH_TCX_EGRESS = 47;

int Call(int operation, bpf_attr *attributes) {
    return static_cast<int>(syscall(SYS_bpf, operation, attributes, sizeof *attributes));
}

uint64_t Pointer(const void *address) {
    return reinterpret_cast<uintptr_t>(address);
}

// What the build has put together needs no distrust, so that no offset in it is tested.
class FrameObject {
  public:
    const Elf64_Shdr *Find(const char *name) const {
        const auto *names = At<char>(section(header()->e_shstrndx)->sh_offset);
        for (unsigned i = 0; i < header()->e_shnum; i++) {
            if (strcmp(names + section(i)->sh_name, name) == 0) {
                return section(i);
            }
        }
        return nullptr;
    }

    template <typename Entry>
    std::vector<Entry> Read(const Elf64_Shdr *part) const {
        const auto *first = At<Entry>(part->sh_offset);
        return std::vector<Entry>(first, first + part->sh_size / sizeof(Entry));
    }

    const char *SymbolName(const Elf64_Shdr *relocations, const Elf64_Rel &relocation) const {
        const Elf64_Shdr *symbols = section(relocations->sh_link);
        const auto *symbol = At<Elf64_Sym>(symbols->sh_offset) + ELF64_R_SYM(relocation.r_info);
        return At<char>(section(symbols->sh_link)->sh_offset) + symbol->st_name;
    }

  private:
    template <typename Type>
    static const Type *At(uint64_t offset) {
        return reinterpret_cast<const Type *>(zelanFrameObject + offset);
    }
    static const Elf64_Ehdr *header() { return At<Elf64_Ehdr>(0); }
    static const Elf64_Shdr *section(unsigned number) { return At<Elf64_Shdr>(header()->e_shoff) + number; }
};

// Puts a map's descriptor where the program names it.
bool Resolve(std::vector<bpf_insn> *program, const Elf64_Rel &relocation, const char *name,
             const std::vector<BpfMapName> &maps) {
    for (const BpfMapName &map : maps) {
        if (strcmp(map.name, name) == 0) {
            bpf_insn &load = (*program)[relocation.r_offset / sizeof(bpf_insn)];
            load.src_reg = BPF_PSEUDO_MAP_FD;
            load.imm = map.map;
            return true;
        }
    }
    return false;
}

// Empty with errno.
std::vector<bpf_insn> ReadProgram(const char *name, const std::vector<BpfMapName> &maps) {
    FrameObject object;
    const Elf64_Shdr *part = object.Find(name);
    const Elf64_Shdr *relocations = object.Find((std::string(".rel") + name).c_str());
    errno = ENOEXEC;
    if (part == nullptr || relocations == nullptr) {
        return {};
    }
    std::vector<bpf_insn> program = object.Read<bpf_insn>(part);
    for (const Elf64_Rel &relocation : object.Read<Elf64_Rel>(relocations)) {
        if (!Resolve(&program, relocation, object.SymbolName(relocations, relocation), maps)) {
            return {};
        }
    }
    return program;
}

}  // namespace

FileDescriptor Bpf_MakeMap(const BpfMapPlan &plan) {
    bpf_attr attributes = {};
    attributes.map_type = plan.type;
    attributes.key_size = plan.keySize;
    attributes.value_size = plan.valueSize;
    attributes.max_entries = plan.entries;
    snprintf(attributes.map_name, sizeof attributes.map_name, "%s", plan.name);
    return FileDescriptor(Call(BPF_MAP_CREATE, &attributes));
}

bool Bpf_Put(const FileDescriptor &map, const void *key, const void *value) {
    bpf_attr attributes = {};
    attributes.map_fd = static_cast<uint32_t>(map.get());
    attributes.key = Pointer(key);
    attributes.value = Pointer(value);
    attributes.flags = BPF_ANY;
    return Call(BPF_MAP_UPDATE_ELEM, &attributes) == 0;
}

FileDescriptor Bpf_LoadProgram(const char *section, const std::vector<BpfMapName> &maps) {
    std::vector<bpf_insn> program = ReadProgram(section, maps);
    if (program.empty()) {
        return FileDescriptor();
    }
    bpf_attr attributes = {};
    attributes.prog_type = BPF_PROG_TYPE_SCHED_CLS;
    attributes.insns = Pointer(program.data());
    attributes.insn_cnt = static_cast<uint32_t>(program.size());
    attributes.license = Pointer("");  // no helper asks for a particular one
    snprintf(attributes.prog_name, sizeof attributes.prog_name, "%s", section);
    return FileDescriptor(Call(BPF_PROG_LOAD, &attributes));
}

FileDescriptor Bpf_AttachByLink(const FileDescriptor &program, int interface, Direction direction) {
    bpf_attr attributes = {};
    attributes.link_create.prog_fd = static_cast<uint32_t>(program.get());
    attributes.link_create.target_fd = static_cast<uint32_t>(interface);
    attributes.link_create.attach_type = direction == Direction::IN ? ATTACH_TCX_INGRESS : ATTACH_TCX_EGRESS;
    return FileDescriptor(Call(BPF_LINK_CREATE, &attributes));
}
