// The shared object as a host sees it: only the interface's functions leave it. (That it loads
// and runs for a host in C is the install test's, tests/install.)
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

TEST(SharedLibrary, ExportsOnlyTheInterfaceFunctions) {
  const std::set<std::string> interface = {
      "ZEMU_CreateOptFlowStitchHandle",  "ZEMU_InitOptFlowStitchHandle",
      "ZEMU_ExecuteOptFlowStitchHandle", "ZEMU_ExecuteOptFlowStitchHDRHandle",
      "ZEMU_ExecutePanoRepairHandle",    "ZEMU_ExecuteISPHandle",
      "ZEMU_GetOptFlowStitchCode",       "ZEMU_DestroyOptFlowStitchHandle",
      "ZEMU_CreateVideoStitchHandle",    "ZEMU_InitVideoStitchHandle",
      "ZEMU_ExecuteVideoStitchHandle",   "ZEMU_GetVideoStitchCode",
      "ZEMU_DestroyVideoStitchHandle"};
  // The names of the symbols the library defines in its dynamic symbol table.
  std::set<std::string> symbols;
  if (FILE* nm =
          popen("nm -D --defined-only --format=posix '" VELMORA_SHARED_LIBRARY "' | cut -d' ' -f1",
                "r")) {
    char name[512];
    while (fscanf(nm, "%511s", name) == 1) symbols.insert(name);
    pclose(nm);
  }
  EXPECT_EQ(symbols, interface);
}
