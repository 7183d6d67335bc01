#include "service_table.h"

#include <algorithm>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr size_t kHeader = 11;       // bytes before the first service
constexpr size_t kChecksum = 4;      // bytes after the last one
constexpr size_t kServiceHeader = 5; // bytes before a service's descriptors
constexpr unsigned char kServiceDescriptor = 0x48;
constexpr unsigned char kTelevision = 1; // type of a service

size_t Length12(const Bytes &bytes, size_t at) { return (bytes[at] & 0x0fU) << 8U | bytes[at + 1]; }

void PutLength12(Bytes &bytes, size_t at, size_t length) {
  bytes[at] = static_cast<unsigned char>(length >> 8U & 0x0fU);
  bytes[at + 1] = static_cast<unsigned char>(length);
}

// Returns the text whose length is at `at`; empty unless the text ends before `end`.
std::string Text(const Bytes &bytes, size_t at, size_t end) {
  if (at >= end || at + 1 + bytes[at] > end) {
    return "";
  }
  const auto first = bytes.begin() + static_cast<long>(at) + 1;
  return {first, first + bytes[at]};
}

void AppendText(Bytes &bytes, const std::string &text) {
  bytes.push_back(static_cast<unsigned char>(text.size()));
  bytes.insert(bytes.end(), text.begin(), text.end());
}

// Returns the name in the descriptors in [at, end).
std::string ServiceName(const Bytes &bytes, size_t at, size_t end) {
  for (; at + 2 <= end; at += 2U + bytes[at + 1]) {
    const size_t provider = at + 3;
    if (bytes[at] == kServiceDescriptor && provider < end) {
      return Text(bytes, provider + 1 + bytes[provider], end);
    }
  }
  return "";
}

} // namespace

std::vector<std::string> ServiceNames(const Bytes &section) {
  std::vector<std::string> names;
  for (size_t at = kHeader; at + kServiceHeader + kChecksum <= section.size();) {
    const size_t descriptors = at + kServiceHeader;
    const size_t end = descriptors + Length12(section, at + 3);
    names.push_back(ServiceName(section, descriptors, std::min(end, section.size() - kChecksum)));
    at = end;
  }
  return names;
}

Bytes MakeServiceTable(const std::vector<std::string> &names) {
  Bytes table(kHeader);
  for (const std::string &name : names) {
    Bytes descriptor = {kServiceDescriptor, 0, kTelevision};
    AppendText(descriptor, ""); // no provider
    AppendText(descriptor, name);
    descriptor[1] = static_cast<unsigned char>(descriptor.size() - 2);
    const size_t service = table.size();
    table.resize(service + kServiceHeader);
    PutLength12(table, service + 3, descriptor.size());
    table.insert(table.end(), descriptor.begin(), descriptor.end());
  }
  table.resize(table.size() + kChecksum);
  table[0] = kServiceTableId;
  PutLength12(table, 1, table.size() - 3);
  return table;
}
