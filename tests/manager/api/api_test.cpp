#include "tests/manager/api/header_in_c.h"
#include "tests/support/process.h"

#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// The names that a library defines for others, read from its file.
std::vector<std::string> exportsOf(const std::string& library) {
  const std::string file = support::readFile(library);
  const auto* header = reinterpret_cast<const Elf64_Ehdr*>(file.data());
  const auto* sections = reinterpret_cast<const Elf64_Shdr*>(file.data() + header->e_shoff);
  std::vector<std::string> names;
  for (int i = 0; i < header->e_shnum; ++i) {
    if (sections[i].sh_type != SHT_DYNSYM) continue;
    const char* texts = file.data() + sections[sections[i].sh_link].sh_offset;
    const auto* symbol = reinterpret_cast<const Elf64_Sym*>(file.data() + sections[i].sh_offset);
    const auto* end = symbol + sections[i].sh_size / sizeof(Elf64_Sym);
    for (; symbol != end; ++symbol)
      if (symbol->st_shndx != SHN_UNDEF) names.emplace_back(texts + symbol->st_name);
  }
  return names;
}

TEST(Library, ExportsItsEntryPointsAndNothingElse) {
  EXPECT_THAT(exportsOf(support::libDir() + "/libbxm_r.so"),
              testing::UnorderedElementsAre(
                  "BXCONN", "BXCONNX", "BXDISC", "BXOPEN", "BXCLOSE", "BXPUT", "BXGET", "BXCMIT",
                  "BXBACK", "BXBEGIN", "bxCreateBag", "bxDeleteBag", "bxAddInteger", "bxAddString",
                  "bxAddInquiry", "bxCountItems", "bxInquireInteger", "bxInquireString",
                  "bxInquireBag", "bxExecute", "bxTrim"));
}

TEST(Library, HasASecondName) {
  void* one = ::dlopen((support::libDir() + "/libbxm_r.so").c_str(), RTLD_NOW);
  void* two = ::dlopen((support::libDir() + "/libbxm.so").c_str(), RTLD_NOW);
  ASSERT_NE(one, nullptr) << ::dlerror();
  EXPECT_EQ(one, two);
}

TEST(Header, SaysTheSameInC) {
  const AllStructures here{BXMD_DEFAULT,  BXOD_DEFAULT,  BXGMO_DEFAULT,
                           BXPMO_DEFAULT, BXCNO_DEFAULT, BXBO_DEFAULT};
  EXPECT_EQ(std::memcmp(&kAllInC, &here, sizeof here), 0);
}

} // namespace
