#include <dlfcn.h>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

// The module's file, read as ELF64: only its dynamic symbols are of interest.
class ElfFile {
 public:
  explicit ElfFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
  }

  [[nodiscard]] std::set<std::string> DefinedSymbols() const {
    std::set<std::string> names;
    const auto header = At<Elf64_Ehdr>(0);
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
      const auto section = Section(header, i);
      if (section.sh_type != SHT_DYNSYM) continue;
      const auto strings = Section(header, section.sh_link);
      for (std::size_t n = 1; n < section.sh_size / sizeof(Elf64_Sym); ++n) {
        const auto symbol = At<Elf64_Sym>(section.sh_offset + n * sizeof(Elf64_Sym));
        if (symbol.st_shndx == SHN_UNDEF || symbol.st_shndx == SHN_ABS) continue;
        if (ELF64_ST_TYPE(symbol.st_info) == STT_SECTION) continue;  // nobody can link to it
        names.insert(&bytes_.at(strings.sh_offset + symbol.st_name));
      }
    }
    return names;
  }

 private:
  template <class T>
  [[nodiscard]] T At(std::size_t offset) const {
    T value;
    std::memcpy(&value, &bytes_.at(offset), sizeof value);
    return value;
  }
  [[nodiscard]] Elf64_Shdr Section(const Elf64_Ehdr& header, std::size_t index) const {
    return At<Elf64_Shdr>(header.e_shoff + index * sizeof(Elf64_Shdr));
  }

  std::vector<char> bytes_;
};

TEST(ModuleExports, AreTheTableItsAccessorAndTheSixteenEntryFunctions) {
  const std::set<std::string> expected = {
      "GetAPITable",
      "WebapiUpgradeDownloadCancel",
      "WebapiUpgradeDownloadProgress",
      "WebapiUpgradeDownloadProgressV2",
      "WebapiUpgradeDownloadStart",
      "WebapiUpgradeEqualCancel",
      "WebapiUpgradeEqualStart",
      "WebapiUpgradePatchCheck",
      "WebapiUpgradePatchCheckEqual",
      "WebapiUpgradePatchClean",
      "WebapiUpgradePatchUpload",
      "WebapiUpgradeProgress",
      "WebapiUpgradeProgressV2",
      "WebapiUpgradeRunPrecheck",
      "WebapiUpgradeStart",
      "WebapiUpgradeStatusV1",
      "WebapiUpgradeStatusV2",
      "gTable",
  };
  EXPECT_EQ(ElfFile(MODULE_PATH).DefinedSymbols(), expected);
}

}  // namespace
