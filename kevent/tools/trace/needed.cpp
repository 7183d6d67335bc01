#include "needed.h"

#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>

namespace lumio::trace {

namespace {

template <class Record> bool ReadAt(std::istream &file, std::uint64_t offset, Record *record) {
  file.seekg(static_cast<std::streamoff>(offset));
  return static_cast<bool>(file.read(reinterpret_cast<char *>(record), sizeof *record));
}

// The offsets of the names in the string table.
struct Names {
  std::vector<std::uint64_t> offsets;
  std::uint64_t table = 0; // address
};

Names ReadDynamic(std::istream &file, const ElfW(Phdr) & segment) {
  Names names;
  ElfW(Dyn) entry;
  for (std::uint64_t at = 0; at < segment.p_filesz && ReadAt(file, segment.p_offset + at, &entry) && entry.d_tag != 0;
       at += sizeof entry) {
    if (entry.d_tag == DT_NEEDED) {
      names.offsets.push_back(entry.d_un.d_val);
    } else if (entry.d_tag == DT_STRTAB) {
      names.table = entry.d_un.d_ptr;
    }
  }
  return names;
}

// Returns the offset in the file that the address is loaded from; 0 if there is none.
std::uint64_t OffsetOf(const std::vector<ElfW(Phdr)> &segments, std::uint64_t address) {
  for (const ElfW(Phdr) & segment : segments) {
    if (segment.p_type == PT_LOAD && address >= segment.p_vaddr && address < segment.p_vaddr + segment.p_filesz) {
      return address - segment.p_vaddr + segment.p_offset;
    }
  }
  return 0;
}

} // namespace

std::vector<std::string> NeededLibraries(const std::string &file_name) {
  std::vector<std::string> libraries;
  std::ifstream file(file_name, std::ios::binary);
  ElfW(Ehdr) header;
  if (!ReadAt(file, 0, &header) || memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
      header.e_phentsize != sizeof(ElfW(Phdr))) {
    return libraries;
  }
  std::vector<ElfW(Phdr)> segments(header.e_phnum);
  Names names;
  for (size_t i = 0; i < segments.size(); ++i) {
    if (!ReadAt(file, header.e_phoff + i * sizeof segments[i], &segments[i])) {
      return libraries;
    }
  }
  for (const ElfW(Phdr) & segment : segments) {
    if (segment.p_type == PT_DYNAMIC) {
      names = ReadDynamic(file, segment);
    }
  }
  const std::uint64_t table = OffsetOf(segments, names.table);
  for (const std::uint64_t offset : names.offsets) {
    std::string name;
    file.clear();
    file.seekg(static_cast<std::streamoff>(table + offset));
    std::getline(file, name, '\0');
    libraries.push_back(name);
  }
  return libraries;
}

} // namespace lumio::trace
