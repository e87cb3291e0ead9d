// The database and backup loader: what it has read is written and read again without a change, but
// for a forward whose description was too long: the blank before an empty one comes with the second reading.
#include <fstream>
#include <iterator>

#include "fuzz/inputFile.h"
#include "lib/harbrel/database/database.h"

namespace {

std::string TextOf(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// The cache of `from` written to `to`; false when `from` cannot be loaded.
bool Rewrite(const std::string &from, bool isBackup, const std::string &to) {
    HBLNetworkConfigurationDB *db = nullptr;
    if (!HBLNetCfgLoad(from.c_str(), &db, isBackup)) {
        return false;
    }
    const bool written = NetCfgWriteDatabaseFile(db, to.c_str(), false);
    HBLNetCfgUnload(&db, false);
    return written;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const InputFile file;
    if (size == 0) {
        return 0;
    }
    file.Write(data + 1, size - 1);
    if (Rewrite(file.Path(), data[0] % 2 != 0, file.Path("once")) &&
        (!Rewrite(file.Path("once"), false, file.Path("twice")) ||
         !Rewrite(file.Path("twice"), false, file.Path("thrice")) ||
         TextOf(file.Path("twice")) != TextOf(file.Path("thrice")))) {
        abort();
    }
    return 0;
}
