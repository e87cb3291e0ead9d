// The files that the measurements work on.
#pragma once

#include <string>

// The number of records in the large database.
constexpr unsigned LARGE_RECORDS = 100000;

// A hundred thousand records spread over all networks: addresses, port forwards, fixed addresses and a few
// bridge mappings, each line ended by a line feed, without a version line.
std::string LargeDatabase();

// One NAT and DHCP network, zelan8, with as many port forwards and fixed addresses.
std::string NatNetwork(unsigned forwards, unsigned mappings);

void WriteFile(const char *path, const std::string &text);

// Puts the database, a log at its ordinary place and a host configuration on the private host.
void InstallDatabase(const std::string &records);
