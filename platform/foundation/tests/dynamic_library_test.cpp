// DynamicLibrary: failures with a reason, symbols of the test plug-in, local
// symbol scope, and unloading by the owner.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <utility>

#include "zel/DynamicLibrary.h"

using zel::DynamicLibrary;
using zel::String;

namespace {

// Layout of the plug-in's exported data symbol.
struct PluginInfo {
  int version;
  int reserved;
  int (*answer)(void);
};

bool loadedInProcess(char const *path) {
  void *handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
  if (!handle)
    return false;
  dlclose(handle);
  return true;
}

} // namespace

TEST(DynamicLibrary, FailuresGiveNullAndAReason) {
  DynamicLibrary missing("/no/such/library.so");
  EXPECT_FALSE(missing.load());
  EXPECT_FALSE(missing.isLoaded());
  EXPECT_TRUE(missing.errorText().contains("/no/such/library.so")) << missing.errorText();
  EXPECT_EQ(missing.getSymbol("ostrelPlugin"), nullptr);
  missing.unload(); // harmless

  DynamicLibrary empty{String()};
  EXPECT_FALSE(empty.load()) << "an empty path must not hand back the main program";
  EXPECT_FALSE(empty.errorText().isEmpty());
}

TEST(DynamicLibrary, PluginSymbolsAndScope) {
  DynamicLibrary library(PELLOR_TEST_PLUGIN);
  ASSERT_TRUE(library.load()) << library.errorText();
  EXPECT_TRUE(library.load()) << "loading twice is harmless";
  EXPECT_TRUE(library.errorText().isEmpty());

  auto *info = static_cast<PluginInfo *>(library.getSymbol("ostrelPlugin"));
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->version, 1);
  ASSERT_NE(info->answer, nullptr);
  EXPECT_EQ(info->answer(), 42);

  EXPECT_EQ(library.getSymbol("noSuchSymbol"), nullptr);
  EXPECT_TRUE(library.errorText().contains("noSuchSymbol")) << library.errorText();

  // Loaded locally: the plug-in's names do not enter the global scope, so two
  // plug-ins exporting "ostrelPlugin" do not collide.
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "ostrelPlugin"), nullptr);

  // Ownership moves with the object.
  DynamicLibrary moved(std::move(library));
  EXPECT_FALSE(library.isLoaded());
  EXPECT_EQ(library.getSymbol("ostrelPlugin"), nullptr);
  EXPECT_EQ(moved.getSymbol("ostrelPlugin"), static_cast<void *>(info));

  moved.unload();
  EXPECT_FALSE(moved.isLoaded());
  EXPECT_EQ(moved.getSymbol("ostrelPlugin"), nullptr);
  EXPECT_FALSE(loadedInProcess(PELLOR_TEST_PLUGIN));
}

TEST(DynamicLibrary, DestructorUnloads) {
  {
    DynamicLibrary library(PELLOR_TEST_PLUGIN);
    ASSERT_TRUE(library.load());
    EXPECT_TRUE(loadedInProcess(PELLOR_TEST_PLUGIN));
  }
  EXPECT_FALSE(loadedInProcess(PELLOR_TEST_PLUGIN));
}
