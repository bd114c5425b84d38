#pragma once

#include <curl/curl.h>

#include <optional>
#include <string>

namespace kx {

/// Every function of curl that is called.
#define KX_CURL_FUNCTIONS(each)   \
  each(curl_easy_cleanup);        \
  each(curl_easy_getinfo);        \
  each(curl_easy_header);         \
  each(curl_easy_init);           \
  each(curl_easy_nextheader);     \
  each(curl_easy_setopt);         \
  each(curl_easy_strerror);       \
  each(curl_global_init);         \
  each(curl_multi_add_handle);    \
  each(curl_multi_cleanup);       \
  each(curl_multi_info_read);     \
  each(curl_multi_init);          \
  each(curl_multi_perform);       \
  each(curl_multi_poll);          \
  each(curl_multi_remove_handle); \
  each(curl_multi_setopt);        \
  each(curl_multi_wakeup);        \
  each(curl_share_cleanup);       \
  each(curl_share_init);          \
  each(curl_share_setopt);        \
  each(curl_slist_append);        \
  each(curl_slist_free_all);      \
  each(curl_version_info)

// The functions of curl, under their own names: what is written in this namespace as a call of one goes
// through these pointers. The shared library opens curl when the first request runs, for linking it would
// cost every host, reporting or not, the loading of some two dozen libraries before `main`. They are null
// until `CurlLibrary::open` has been successful, and never change again.
#define KX_DECLARE(name) extern decltype(&::name) name
KX_CURL_FUNCTIONS(KX_DECLARE);
#undef KX_DECLARE

/// libcurl itself. CurlOpened.cpp has the shared library's, which is opened at run time; CurlLinked.cpp that
/// of the archive, whose host links libcurl.
class CurlLibrary {
 public:
  /// Has the functions be there; what has been opened stays. Loads libraries, so it is not to be called on a
  /// thread of the host's. Where it fails, the next call tries again. May be called from any thread.
  ///
  /// Absent when all is well, otherwise what is missing, in a line for a person to read.
  static std::optional<std::string> open();

  /// What curl, or a library that it stands on, knows by that name; null when none does. After `open`.
  static void *symbol(const char *name);
};

}  // namespace kx
