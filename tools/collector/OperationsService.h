#pragma once

#include <functional>
#include <string>

#include "tools/collector/PageService.h"

namespace kx::collector {

/// What those ask who run a collector: `/metrics`, `/healthz` (it runs) and `/readyz` (it is to get
/// requests).
class OperationsService : public WebService {
 public:
  struct Sources {
    std::function<std::string()> metrics;
    /// Why requests should go elsewhere; empty if they should come.
    std::function<std::string()> whyNotReady;
  };

  /// Both are called on the thread that asks this object.
  explicit OperationsService(Sources sources) : sources_(std::move(sources)) {}

  void setPort(std::uint16_t /*port*/) override {}
  PageAnswer answer(const PageRequest &request, Feed::Time now) override;

 private:
  const Sources sources_;
};

}  // namespace kx::collector
