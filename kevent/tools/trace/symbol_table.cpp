#include "symbol_table.h"

#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <vector>

namespace lumio::trace {

namespace {

template <class Record> std::vector<Record> ReadTable(std::istream &file, std::uint64_t offset, std::uint64_t count) {
  constexpr std::uint64_t kMost = 4 << 20; // a larger one is damaged, or not worth the wait
  std::vector<Record> records;
  if (count < kMost) {
    records.resize(count);
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(reinterpret_cast<char *>(records.data()), static_cast<std::streamsize>(count * sizeof(Record)));
  }
  if (!file) {
    records.clear();
  }
  return records;
}

bool Covers(const ElfW(Sym) & symbol, std::uintptr_t address) {
  return ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF && address >= symbol.st_value &&
         address < symbol.st_value + symbol.st_size;
}

std::string NameIn(std::istream &file, const std::vector<ElfW(Shdr)> &sections, const ElfW(Shdr) & table,
                   std::uintptr_t address) {
  if (table.sh_link >= sections.size()) {
    return "";
  }
  const ElfW(Shdr) &names = sections[table.sh_link];
  for (const ElfW(Sym) & symbol : ReadTable<ElfW(Sym)>(file, table.sh_offset, table.sh_size / sizeof(ElfW(Sym)))) {
    if (Covers(symbol, address) && symbol.st_name < names.sh_size) {
      std::string name;
      file.seekg(static_cast<std::streamoff>(names.sh_offset + symbol.st_name));
      std::getline(file, name, '\0');
      return name;
    }
  }
  return "";
}

} // namespace

std::string NameInFile(const char *file_name, std::uintptr_t address) {
  std::ifstream file(file_name, std::ios::binary);
  const auto header = ReadTable<ElfW(Ehdr)>(file, 0, 1);
  if (header.empty() || memcmp(header[0].e_ident, ELFMAG, SELFMAG) != 0 ||
      header[0].e_shentsize != sizeof(ElfW(Shdr))) {
    return "";
  }
  const auto sections = ReadTable<ElfW(Shdr)>(file, header[0].e_shoff, header[0].e_shnum);
  for (const ElfW(Shdr) & section : sections) {
    if (section.sh_type == SHT_SYMTAB) {
      return NameIn(file, sections, section, address);
    }
  }
  return "";
}

} // namespace lumio::trace
