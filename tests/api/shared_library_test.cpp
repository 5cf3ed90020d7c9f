// The shared object as a host sees it: only the interface's functions leave it, and it loads and
// runs on its own.
#include <dlfcn.h>
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

TEST(SharedLibrary, LoadsAndDrivesAHandleThroughDlopen) {
  void* library = dlopen(VELMORA_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  using Create = void* (*)();
  using Get = unsigned (*)(void*);
  using Destroy = void (*)(void*);
  auto create = reinterpret_cast<Create>(dlsym(library, "ZEMU_CreateOptFlowStitchHandle"));
  auto get = reinterpret_cast<Get>(dlsym(library, "ZEMU_GetOptFlowStitchCode"));
  auto destroy = reinterpret_cast<Destroy>(dlsym(library, "ZEMU_DestroyOptFlowStitchHandle"));
  ASSERT_TRUE(create && get && destroy);
  void* handle = create();
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(get(handle), 0u);
  destroy(handle);
  dlclose(library);
}

}  // namespace
