// The shared library exports its own interface and nothing else (that it keeps what daemons link against is
// tools/abi.sh's job), and dlclose unloads it.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

namespace {

// The defined, non-local symbols of .dynsym by name, read from the file so that the cross build needs no tool of the
// target; both targets are 64-bit little-endian, as is the host.
std::vector<std::pair<std::string, Elf64_Sym>> exported(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::string const image{std::istreambuf_iterator<char>(in), {}};
  auto const read = [&]<class T>(T& to, std::size_t offset) {
    if (offset > image.size() || sizeof to > image.size() - offset) throw std::runtime_error(path + " is cut short");
    std::memcpy(&to, image.data() + offset, sizeof to);
  };
  Elf64_Ehdr header;
  read(header, 0);
  std::vector<std::pair<std::string, Elf64_Sym>> symbols;
  for (std::size_t s = 0; s < header.e_shnum; ++s) {
    Elf64_Shdr section, strings;
    read(section, header.e_shoff + s * sizeof section);
    read(strings, header.e_shoff + section.sh_link * sizeof strings);
    for (std::size_t i = 1; section.sh_type == SHT_DYNSYM && i < section.sh_size / sizeof(Elf64_Sym); ++i) {
      Elf64_Sym symbol;
      read(symbol, section.sh_offset + i * sizeof symbol);
      if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_BIND(symbol.st_info) == STB_LOCAL) continue;
      symbols.emplace_back(&image.at(strings.sh_offset + symbol.st_name), symbol);  // ends by the image's end
    }
  }
  return symbols;
}

// Names in namespace Ny80211 (functions, data, const members, type information and names, vtables; none local to a
// function), the C vendor tables and the version node. A unique binding keeps the library loaded for good.
TEST(Exports, OnlyTheLibrarysOwnNamesAndNoneBoundUniquely) {
  auto const symbols = exported(NY80211_LIBRARY_FILE);
  ASSERT_FALSE(symbols.empty());
  int versions = 0;
  for (auto const& [name, symbol] : symbols) {
    bool own = name == "radio_vendor_cmds" || name == "vap_vendor_cmds";
    for (char const* prefix : {"_ZN7Ny80211", "_ZNK7Ny80211", "_ZTIN7Ny80211", "_ZTSN7Ny80211", "_ZTVN7Ny80211"}) {
      own = own || name.starts_with(prefix);
    }
    versions += symbol.st_shndx == SHN_ABS ? 1 : 0;
    EXPECT_TRUE(symbol.st_shndx == SHN_ABS ? name == "NY80211_1" : own) << "exported beyond the interface: " << name;
    EXPECT_NE(ELF64_ST_BIND(symbol.st_info), STB_GNU_UNIQUE) << "unique binding: " << name;
  }
  EXPECT_EQ(versions, 1);
}

TEST(Exports, DlcloseUnloadsTheLibrary) {
  auto const file = std::filesystem::canonical(NY80211_LIBRARY_FILE);
  auto const mapped = [&] {
    std::ifstream maps("/proc/self/maps");
    return std::string(std::istreambuf_iterator<char>(maps), {}).find(file.native()) != std::string::npos;
  };
  ASSERT_FALSE(mapped()) << "the test program must not link the shared library";
  void* const handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr) << ::dlerror();
  EXPECT_TRUE(mapped());
  ASSERT_EQ(::dlclose(handle), 0) << ::dlerror();
  EXPECT_FALSE(mapped()) << file << " is still mapped after dlclose";
}

}  // namespace
