#pragma once

#include <utility>

#include "Form1.hpp"

namespace quorbin {

// At its end the display brings the fields to the user.
struct EventScope {
  StatusDisplay& Display;
  ~EventScope() { Display.EndOfEvent(); }
};

// The handler of an event, bound to Form1, in a scope of its own. Every event of the program goes
// through here.
template <typename Handler>
auto AsEvent(Form1& form, Handler handler) {
  return [&form, handler = std::move(handler)](auto&&... arguments) {
    const EventScope scope{form.FControl};
    return handler(form, std::forward<decltype(arguments)>(arguments)...);
  };
}

}  // namespace quorbin
