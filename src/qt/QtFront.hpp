#pragma once

#include <memory>

#include "EventLoop.hpp"
#include "Front.hpp"

namespace quorbin {

// Opens the display that DISPLAY or WAYLAND_DISPLAY names, by the platform plugin that
// QT_QPA_PLATFORM may choose. Null if neither is set, or if the display can't be opened, which is
// reported on standard error. One front per process; the loop must outlive it.
std::unique_ptr<Front> OpenWindows(EventLoop& loop);

}  // namespace quorbin
