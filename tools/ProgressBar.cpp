#include "ProgressBar.hpp"

#include <unistd.h>

#include <algorithm>
#include <csignal>
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

// The signals that end the program from the keyboard or by request.
constexpr int Ending[] = {SIGINT, SIGTERM};

// Ends the line of the bar, then the program by the same signal.
void EndLine(int signal) {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, "\n", 1);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// Replaces only that action of the signal: an ignored signal stays ignored.
void SetAction(int signal, void (*from)(int), void (*to)(int)) {
  struct sigaction action;
  if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != from) return;
  std::signal(signal, to);
}

}  // namespace

ProgressBar::ProgressBar(std::string_view name, std::optional<std::int64_t> size)
    : terminal_(isatty(STDERR_FILENO) == 1), name_(name), size_(size) {}

ProgressBar::~ProgressBar() {
  if (!shown_) return;
  if (!waiting_) Draw();
  std::cerr << '\n';
  for (const int signal : Ending) SetAction(signal, EndLine, SIG_DFL);
}

void ProgressBar::ShowName() {
  if (shown_ || !terminal_) return;
  shown_ = true;
  for (const int signal : Ending) SetAction(signal, SIG_DFL, EndLine);
  std::cerr << Printable(name_) << '\n';
}

void ProgressBar::Waits() {
  const auto now = std::chrono::steady_clock::now();
  if (!terminal_ || now - drawn_ < BetweenDrawings) return;
  drawn_ = now;
  ShowName();
  const auto spent = std::chrono::duration_cast<std::chrono::seconds>(now - begun_);
  std::cerr << "\rwaiting for the service, " << spent.count() << " s\033[K" << std::flush;
}

void ProgressBar::Begin() {
  ShowName();
  waiting_ = false;
  begun_ = std::chrono::steady_clock::now();
}

void ProgressBar::Add(std::size_t bytes) {
  done_ += static_cast<std::int64_t>(bytes);
  const auto now = std::chrono::steady_clock::now();
  if (!terminal_ || now - drawn_ < BetweenDrawings) return;
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
