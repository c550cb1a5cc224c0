#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

// The carrier of link commands from other programs of the same user, topic "qbstop".
class LinkChannel : public PlatformInterface {
 public:
  // Raised one at a time on the program's only thread, between other events.
  struct Events {
    // A command. Cancel comes in as refused (1) and goes back to the client: 0 accepts.
    std::function<void(const std::string& CmdStr, std::int16_t& Cancel)> LinkExecute;
    // The present value of an item; nullopt for an unknown one.
    std::function<std::optional<std::string>(const std::string& item)> LinkRequest;
    // A notification of an item; true if it had an effect.
    std::function<bool(const std::string& item)> LinkNotify;
  };

  // 1 publishes the topic, 0 withdraws it: clients are disconnected, after the answer to the
  // command that is being executed. A failure to publish is reported on standard error.
  virtual void SetLinkMode(int mode) = 0;
};

}  // namespace quorbin
