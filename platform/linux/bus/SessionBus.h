#pragma once

#include <utility>

#include "platform/linux/bus/MessageBus.h"

namespace kx {

/// The message bus of the user's session, on which a sandbox's portals are.
class SessionBus : public MessageBus {
 public:
  template <class... Arguments>
  explicit SessionBus(Arguments &&...arguments)
      : MessageBus(G_BUS_TYPE_SESSION, std::forward<Arguments>(arguments)...) {}
};

}  // namespace kx
