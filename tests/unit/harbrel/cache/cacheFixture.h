// An open cache over a temporary database file, with the library's log captured.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/cache/records.h"
#include "lib/misc/owners.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/logCapture.h"

class CacheTest : public testing::Test {
  protected:
    // Larger than the log gets, so that a limit on the database's size does not reach the log.
    static constexpr size_t PADDING = 200000;

    CacheTest() {
        char path[] = "/tmp/cacheTest.XXXXXX";
        close(mkstemp(path));
        path_ = path;
        start_ = "VERSION=1,0\n# " + std::string(PADDING, '.') + "\n";
        std::ofstream(path_) << start_;
        db = static_cast<HBLNetworkConfigurationDB *>(calloc(1, sizeof *db));
        db->path = strdup(path);
        OpenStream(path);
        EXPECT_TRUE(NetCfgTrackFile(db));
    }
    ~CacheTest() override {
        fclose(db->stream);
        Forget();
        free(db->path);
        free(db);
        unlink(path_.c_str());
    }

    void OpenStream(const char *path) {
        if (db->stream != nullptr) {
            fclose(db->stream);
        }
        db->stream = fopen(path, "r+");
        ASSERT_NE(db->stream, nullptr) << path;
        setvbuf(db->stream, nullptr, _IONBF, 0);
        fseek(db->stream, 0, SEEK_END);
    }
    // The lines of the file behind its start.
    std::string Journal() const {
        std::ifstream file(path_);
        const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        EXPECT_EQ(text.compare(0, start_.size(), start_), 0) << "the start of the file has changed";
        return text.substr(start_.size());
    }
    // The records of the cache as lines, by family and network.
    std::string Records() const {
        char *text = nullptr;
        size_t length = 0;
        FILE *stream = open_memstream(&text, &length);
        const auto write = [stream](uint32_t type, const HashTable *table) {
            NetCfgRecordFormatCtx context = {type, stream};
            if (table != nullptr) {
                EXPECT_EQ(HashTable_ForEach(table, NetCfgWriteRecordToConfig, &context), 0);
            }
        };
        write(NETCFG_REC_ANSWER, db->dictHash);
        for (const NATVnetPortFwdConfig *config : db->natConfig) {
            write(NETCFG_REC_ADD_NAT_PORTFWD, config != nullptr ? config->tcpHash : nullptr);
            write(NETCFG_REC_ADD_NAT_PORTFWD, config != nullptr ? config->udpHash : nullptr);
        }
        for (const DHCPMACToIPConfig *config : db->dhcpConfig) {
            write(NETCFG_REC_ADD_DHCP_MAC_TO_IP, config != nullptr ? config->hash : nullptr);
        }
        write(NETCFG_REC_ADD_BRIDGE_MAPPING, db->bridgeHash);
        fclose(stream);
        const MallocString owner(text);
        return text;
    }
    void Apply(const std::string &lines) {
        size_t start = 0;
        for (unsigned number = 2; start < lines.size(); ++number) {
            const size_t end = lines.find('\n', start);
            NetCfgApplyRecordLine(db, number, lines.substr(start, end - start).c_str());
            start = end + 1;
        }
    }
    // Frees all records.
    void Forget() {
        for (uint32_t vnet = 0; vnet < HBL_NUM_VNETS; ++vnet) {
            HBLNetCfgRemoveAllNATPortFwd(db, vnet, true, true, false);
            HBLNetCfgRemoveAllDHCPMACToIPMapping(db, vnet, false);
        }
        for (HashTable **table : {&db->bridgeHash, &db->dictHash}) {
            if (*table != nullptr) {
                HashTable_Free(*table);
                *table = nullptr;
            }
        }
        free(db->bridgeArray);
        db->bridgeArray = nullptr;
    }

    HBLNetworkConfigurationDB *db = nullptr;
    LogCapture log;

  private:
    std::string path_;
    std::string start_;
};
