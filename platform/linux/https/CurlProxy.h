#pragma once

#include <string>

#include "platform/linux/facts/Environment.h"
#include "platform/linux/https/CurlFunctions.h"

namespace kx {

/// The proxy that requests go through, by the variables that the field has for it: `https_proxy` or else
/// `all_proxy` names it, `no_proxy` the hosts that are reached without; each in small letters or, where that
/// is not set, in capitals.
///
/// curl would read them by itself, for every request, on a thread of ours, while the host may be changing its
/// environment.
class CurlProxy {
 public:
  explicit CurlProxy(const Environment &environment);

  /// By the process's environment. To be called on the thread that calls the library; see `Environment`.
  static CurlProxy ofProcess();

  /// Tells a request of it, also that there is none.
  CURLcode applyTo(CURL *easy) const;

 private:
  std::string proxy_;    ///< empty: there is none
  std::string noProxy_;  ///< in curl's syntax, which is that of the variable
};

}  // namespace kx
