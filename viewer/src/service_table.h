// The service description table of a broadcast (ETSI EN 300 468, 5.2.3), as far as names go.
#pragma once

#include <string>
#include <vector>

constexpr unsigned short kServiceTablePid = 0x11;
constexpr unsigned char kServiceTableId = 0x42;

// The names of the services, in the order of the table. Makes the best of a section that is damaged.
std::vector<std::string> ServiceNames(const std::vector<unsigned char> &section);

// A table of services with these names, each of up to 200 bytes. All else in it is zero, the checksum as well.
std::vector<unsigned char> MakeServiceTable(const std::vector<std::string> &names);
