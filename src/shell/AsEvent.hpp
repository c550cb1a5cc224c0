#pragma once

#include <utility>

#include "Form1.hpp"

namespace quorbin {

// The handler of an event, bound to Form1: after it has returned, the display brings the fields to
// the user. Every event of the program goes through here.
template <typename Handler>
auto AsEvent(Form1& form, Handler handler) {
  return [&form, handler = std::move(handler)](auto&&... arguments) {
    const struct EndOfEvent {
      StatusDisplay& Display;
      ~EndOfEvent() { Display.EndOfEvent(); }
    } atEnd{form.FControl};
    return handler(form, std::forward<decltype(arguments)>(arguments)...);
  };
}

}  // namespace quorbin
