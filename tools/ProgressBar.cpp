#include "ProgressBar.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <string>

#include "Printable.hpp"

namespace quorbin {
namespace {

constexpr std::size_t BarWidth = 30;  // characters
constexpr std::chrono::milliseconds BetweenDrawings{100};

std::string Amount(double bytes) {
  const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  std::size_t unit = 0;
  for (; bytes >= 1024 && unit + 1 < std::size(units); ++unit) bytes /= 1024;
  char text[40];
  std::snprintf(text, sizeof text, "%.*f %s", unit == 0 ? 0 : 1, bytes, units[unit]);
  return text;
}

}  // namespace

ProgressBar::ProgressBar(std::string_view name, std::optional<std::int64_t> size)
    : shown_(isatty(STDERR_FILENO) == 1), size_(size) {
  if (shown_) std::cerr << Printable(name) << '\n';
}

ProgressBar::~ProgressBar() {
  if (!shown_) return;
  Draw();
  std::cerr << '\n';
}

void ProgressBar::Add(std::size_t bytes) {
  done_ += static_cast<std::int64_t>(bytes);
  const auto now = std::chrono::steady_clock::now();
  if (!shown_ || now - drawn_ < BetweenDrawings) return;
  drawn_ = now;
  Draw();
}

void ProgressBar::Draw() const {
  const auto done = static_cast<double>(done_);
  std::string line = "\r";
  if (size_) {
    // A file may grow or shrink while it is read.
    const double part = *size_ > 0 ? std::min(1.0, done / static_cast<double>(*size_)) : 1.0;
    const auto filled = static_cast<std::size_t>(part * BarWidth);
    char percent[8];
    std::snprintf(percent, sizeof percent, "%3d%% ", static_cast<int>(part * 100));
    line += percent;
    line += '[' + std::string(filled, '#') + std::string(BarWidth - filled, '.') + "] ";
  }
  line += Amount(done);
  if (size_) line += " of " + Amount(static_cast<double>(*size_));
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begun_;
  if (spent.count() > 0) line += ", " + Amount(done / spent.count()) + "/s";
  std::cerr << line << "\033[K" << std::flush;
}

}  // namespace quorbin
