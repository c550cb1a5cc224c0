#pragma once

// What quorbin-send shows on a terminal.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorbin {

// One file's progress on standard error; silent unless that is a terminal. The last state stays.
// Nothing is shown before the first Waits or Begin. While something is, SIGINT and SIGTERM end the
// line before they end the program. One at a time.
class ProgressBar {
 public:
  // Without a size (bytes) there is no bar, only the amount and the rate.
  ProgressBar(std::string_view name, std::optional<std::int64_t> size);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar();

  // The service is busy, or does not run yet.
  void Waits();

  // The content follows.
  void Begin();

  // This many more bytes have been sent.
  void Add(std::size_t bytes);

 private:
  void ShowName();
  void Draw() const;

  bool terminal_;
  bool shown_ = false;  // the name, and so a line that must be ended
  bool waiting_ = true;
  std::string name_;
  std::optional<std::int64_t> size_;
  std::int64_t done_ = 0;
  std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point drawn_ = begun_;
};

}  // namespace quorbin
