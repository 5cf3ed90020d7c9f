// The shared object as a host sees it: only the interface's functions leave it. (That it loads
// and runs on its own is the C host's test, tests/host.)
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>

namespace {

const std::set<std::string> kInterface = {
    "ZEMU_CreateOptFlowStitchHandle",  "ZEMU_InitOptFlowStitchHandle",
    "ZEMU_ExecuteOptFlowStitchHandle", "ZEMU_ExecuteOptFlowStitchHDRHandle",
    "ZEMU_ExecutePanoRepairHandle",    "ZEMU_ExecuteISPHandle",
    "ZEMU_GetOptFlowStitchCode",       "ZEMU_DestroyOptFlowStitchHandle",
    "ZEMU_CreateVideoStitchHandle",    "ZEMU_InitVideoStitchHandle",
    "ZEMU_ExecuteVideoStitchHandle",   "ZEMU_GetVideoStitchCode",
    "ZEMU_DestroyVideoStitchHandle"};

// Names of the symbols the library defines in its dynamic symbol table.
std::set<std::string> definedDynamicSymbols(const std::string& library) {
  const std::string command = "nm -D --defined-only --format=posix '" + library + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::set<std::string> names;
  if (!pipe) return names;
  std::array<char, 512> line;
  while (fgets(line.data(), line.size(), pipe.get()) != nullptr) {
    std::istringstream fields(line.data());
    std::string name, type;
    fields >> name >> type;
    if (!name.empty()) names.insert(name);
  }
  return names;
}

TEST(SharedLibrary, ExportsOnlyTheInterfaceFunctions) {
  const auto symbols = definedDynamicSymbols(VELMORA_SHARED_LIBRARY);
  ASSERT_FALSE(symbols.empty()) << "nm found no symbols in " << VELMORA_SHARED_LIBRARY;
  for (const auto& name : symbols) {
    EXPECT_TRUE(kInterface.count(name)) << name << " leaks out of the shared object";
  }
  for (const auto& name : kInterface) {
    EXPECT_TRUE(symbols.count(name)) << name << " is missing";
  }
}

}  // namespace
