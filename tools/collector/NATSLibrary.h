#pragma once

#include <nats/nats.h>

#include <memory>

namespace kx::collector {

/// By which a stream knows a message that comes again.
constexpr const char *headerOfMessageId = "Nats-Msg-Id";

/// Lets the NATS library's objects go.
struct NATSDeleter {
  void operator()(natsMsg *message) const { natsMsg_Destroy(message); }
  void operator()(natsOptions *options) const { natsOptions_Destroy(options); }
  void operator()(natsConnection *connection) const { natsConnection_Destroy(connection); }
  void operator()(jsCtx *context) const { jsCtx_Destroy(context); }
  void operator()(jsStreamInfo *info) const { jsStreamInfo_Destroy(info); }
};

template <typename Object>
using NATSPointer = std::unique_ptr<Object, NATSDeleter>;

}  // namespace kx::collector
