#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

namespace kx {
namespace {

TEST(Unloading, TheLibraryStaysInAProcessThatHasUsedIt) {
  // A plug-in of the host's may bring the library and go again while the library's threads still run.
  void *const library = dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  // Asked for, and not just so because of some C++ symbol in it that the loader keeps libraries for.
  link_map *map = nullptr;
  ASSERT_EQ(dlinfo(library, RTLD_DI_LINKMAP, static_cast<void *>(&map)), 0);
  bool asksToStay = false;
  for (const auto *entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_FLAGS_1) asksToStay = (entry->d_un.d_val & DF_1_NODELETE) != 0;
  }
  EXPECT_TRUE(asksToStay);

  ASSERT_EQ(dlclose(library), 0);
  EXPECT_NE(dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST(Unloading, TheLibraryBringsNoCurlWithIt) {
  // A host that reports nothing pays for none, and one that does, when the first request runs.
  ASSERT_NE(dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL), nullptr) << dlerror();
  EXPECT_EQ(dlopen("libcurl.so.4", RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
}  // namespace kx
