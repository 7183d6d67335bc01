// Reads and makes the service description table of a broadcast (ETSI EN 300 468, 5.2.3). It supports names only.
#pragma once

#include <string>
#include <vector>

constexpr unsigned short kServiceTablePid = 0x11;
constexpr unsigned char kServiceTableId = 0x42;

// Returns the names of the services in the order of the table, as far as a damaged section can be read.
std::vector<std::string> ServiceNames(const std::vector<unsigned char> &section);

// Returns a table of services with these names, each of at most 200 bytes. Everything else in the table is zero,
// including the checksum.
std::vector<unsigned char> MakeServiceTable(const std::vector<std::string> &names);
