// The shared library as daemons link it: its dynamic symbol table, read from
// the ELF file so that the cross build needs no tool of the target, holds the
// library's own interface and nothing else, and dlclose unloads it.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

namespace {

struct DynamicSymbol {
  std::string name;
  unsigned binding;  // STB_*
  bool absolute;     // SHN_ABS: a version node's own symbol
};

struct DynamicTable {
  std::vector<DynamicSymbol> defined;
  std::set<std::string> versions;  // the version definitions' names
};

// The defined symbols of an ELF64 file's .dynsym and the names of its
// version definitions. Both targets are 64-bit little-endian, as is the host.
DynamicTable readDynamicTable(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::string const image{std::istreambuf_iterator<char>(in), {}};
  if (image.size() < sizeof(Elf64_Ehdr) || image.compare(0, SELFMAG, ELFMAG) != 0 || image[EI_CLASS] != ELFCLASS64) {
    throw std::runtime_error(path + " is not an ELF64 file");
  }
  auto const at = [&](std::size_t offset, std::size_t size) {
    if (offset > image.size() || size > image.size() - offset) {
      throw std::runtime_error(path + ": a table runs past the end of the file");
    }
    return image.data() + offset;
  };
  Elf64_Ehdr header;
  std::memcpy(&header, image.data(), sizeof header);
  std::vector<Elf64_Shdr> sections(header.e_shnum);
  std::memcpy(sections.data(), at(header.e_shoff, sections.size() * sizeof(Elf64_Shdr)),
              sections.size() * sizeof(Elf64_Shdr));
  auto const text = [&](Elf64_Shdr const& strings, std::size_t offset) {
    char const* const table = at(strings.sh_offset, strings.sh_size);
    return std::string(table + offset, ::strnlen(table + offset, strings.sh_size - offset));
  };

  DynamicTable result;
  for (auto const& section : sections) {
    auto const& strings = sections.at(section.sh_link);
    if (section.sh_type == SHT_DYNSYM) {
      for (std::size_t i = 1; i < section.sh_size / sizeof(Elf64_Sym); ++i) {
        Elf64_Sym symbol;
        std::memcpy(&symbol, at(section.sh_offset + i * sizeof symbol, sizeof symbol), sizeof symbol);
        unsigned const binding = ELF64_ST_BIND(symbol.st_info);
        if (symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL) {
          result.defined.push_back({text(strings, symbol.st_name), binding, symbol.st_shndx == SHN_ABS});
        }
      }
    } else if (section.sh_type == SHT_GNU_verdef) {
      std::size_t offset = section.sh_offset;
      for (std::size_t n = 0; n < section.sh_info; ++n) {
        Elf64_Verdef definition;
        std::memcpy(&definition, at(offset, sizeof definition), sizeof definition);
        Elf64_Verdaux name;
        std::memcpy(&name, at(offset + definition.vd_aux, sizeof name), sizeof name);
        result.versions.insert(text(strings, name.vda_name));
        offset += definition.vd_next;
      }
    }
  }
  return result;
}

std::string demangled(std::string const& name) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> const text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                         &std::free);
  return status == 0 ? text.get() : name;
}

// The library's interface: names nested in namespace Ny80211 (functions and
// data, const member functions, type information and its name, vtables) and
// the vendor tables with C linkage. Types local to its functions (lambdas)
// are not part of it: no daemon can name them.
bool isOwn(std::string_view name) {
  static constexpr std::string_view prefixes[] = {"_ZN7Ny80211", "_ZNK7Ny80211", "_ZTIN7Ny80211", "_ZTSN7Ny80211",
                                                  "_ZTVN7Ny80211"};
  for (auto const prefix : prefixes) {
    if (name.substr(0, prefix.size()) == prefix) return true;
  }
  return name == "radio_vendor_cmds" || name == "vap_vendor_cmds";
}

DynamicTable const& library() {
  static DynamicTable const table = readDynamicTable(NY80211_LIBRARY_FILE);
  return table;
}

TEST(Exports, OnlyTheLibrarysOwnNamesAndNoneBoundUniquely) {
  auto const& table = library();
  ASSERT_FALSE(table.defined.empty());
  for (auto const& symbol : table.defined) {
    if (symbol.absolute && table.versions.count(symbol.name) != 0) continue;
    EXPECT_TRUE(isOwn(symbol.name)) << "exported beyond the interface: " << demangled(symbol.name);
    // A unique symbol keeps the library loaded for the life of the process.
    EXPECT_NE(symbol.binding, STB_GNU_UNIQUE) << "unique binding: " << demangled(symbol.name);
  }
  EXPECT_EQ(table.versions.count("NY80211_1"), 1U);
}

// What daemons link against without the library's sources: the templates the
// headers declare extern, type information to catch the library's errors by,
// vtables of the classes they derive from, and the C tables.
class Kept : public testing::TestWithParam<char const*> {};

TEST_P(Kept, StillExported) {
  std::string const wanted = GetParam();
  bool found = false;
  for (auto const& symbol : library().defined) {
    found = found || demangled(symbol.name).find(wanted) != std::string::npos;
  }
  EXPECT_TRUE(found) << wanted;
}

INSTANTIATE_TEST_SUITE_P(
    Exports, Kept,
    testing::Values("Ny80211::AttrStream::addInternal<unsigned char>(int, unsigned char const&)",
                    "Ny80211::AttrStream::addInternal<Ny80211::NestedAttr>(int, Ny80211::NestedAttr const&)",
                    "Ny80211::QcaCmd::WifiParamVendorData<Ny80211::QcaCmd::RadioVendorParamTable>::",
                    "Ny80211::QcaCmd::WifiParamVendorData<Ny80211::QcaCmd::VapVendorParamTable>::",
                    "typeinfo for Ny80211::Error", "vtable for Ny80211::ElementVisitor", "radio_vendor_cmds",
                    "vap_vendor_cmds"));

bool mapped(std::filesystem::path const& file) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    if (line.size() >= file.native().size() &&
        line.compare(line.size() - file.native().size(), std::string::npos, file.native()) == 0) {
      return true;
    }
  }
  return false;
}

TEST(Exports, DlcloseUnloadsTheLibrary) {
  auto const file = std::filesystem::canonical(NY80211_LIBRARY_FILE);
  ASSERT_FALSE(mapped(file)) << "the test program must not link the shared library";
  void* const handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr) << ::dlerror();
  EXPECT_TRUE(mapped(file));
  ASSERT_EQ(::dlclose(handle), 0) << ::dlerror();
  EXPECT_FALSE(mapped(file)) << file << " is still mapped after dlclose";
}

}  // namespace
