#include "tools/sim/output/Progress.h"

#include <algorithm>
#include <string>

namespace TalvexSim {
namespace {

constexpr auto kQuietFor = std::chrono::seconds(1);
constexpr auto kRedrawEvery = std::chrono::milliseconds(100);
constexpr int kWidth = 40;

}  // namespace

ProgressBar::ProgressBar(std::FILE* terminal_, bool enabled_, double total_s_)
    : terminal(terminal_),
      enabled(enabled_ && total_s_ > 0.0),
      total_s(total_s_),
      start(std::chrono::steady_clock::now()),
      lastDrawn(start) {}

ProgressBar::~ProgressBar() { Finish(); }

void ProgressBar::Update(double done_s) {
    if (!enabled) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - start < kQuietFor || (drawn && now - lastDrawn < kRedrawEvery)) return;
    lastDrawn = now;
    drawn = true;
    const double share = std::clamp(done_s / total_s, 0.0, 1.0);
    const int filled = static_cast<int>(share * kWidth);
    const std::string bar = std::string(static_cast<size_t>(filled), '#') +
                            std::string(static_cast<size_t>(kWidth - filled), '.');
    std::fprintf(terminal, "\r[%s] %3d%%  %.0f / %.0f s simulated", bar.c_str(),
                 static_cast<int>(share * 100.0), done_s, total_s);
    std::fflush(terminal);
}

void ProgressBar::Finish() {
    if (!drawn) return;
    std::fprintf(terminal, "\r\033[K");
    std::fflush(terminal);
    drawn = false;
}

}  // namespace TalvexSim
