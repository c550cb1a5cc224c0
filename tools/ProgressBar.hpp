#pragma once

// What quorbin-send shows on a terminal.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quorbin {

// One file's progress on standard error; silent unless that is a terminal. The last state stays.
class ProgressBar {
 public:
  // Without a size (bytes) there is no bar, only the amount and the rate.
  ProgressBar(std::string_view name, std::optional<std::int64_t> size);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar();

  // So many bytes more have been sent.
  void Add(std::size_t bytes);

 private:
  void Draw() const;

  bool shown_;
  std::optional<std::int64_t> size_;
  std::int64_t done_ = 0;
  std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point drawn_ = begun_;
};

}  // namespace quorbin
