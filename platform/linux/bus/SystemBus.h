#pragma once

#include <utility>

#include "platform/linux/bus/MessageBus.h"

namespace kx {

/// The system's message bus, on which the device's services are.
class SystemBus : public MessageBus {
 public:
  template <class... Arguments>
  explicit SystemBus(Arguments &&...arguments)
      : MessageBus(G_BUS_TYPE_SYSTEM, std::forward<Arguments>(arguments)...) {}
};

}  // namespace kx
