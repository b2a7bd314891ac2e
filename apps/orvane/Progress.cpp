#include "apps/orvane/Progress.h"

#include <cstdio>

namespace orvane {
namespace app {

Progress::Progress(std::ostream& out, bool terminal, bool quiet)
    : out(out), terminal(terminal), quiet(quiet), start(std::chrono::steady_clock::now()) {}

double Progress::Elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Progress::Stage(const std::string& name) {
    if (quiet) {
        return;
    }
    if (barOpen) {
        out << '\n';
        barOpen = false;
    }
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "[%7.1f s] ", Elapsed());
    out << stamp << name << std::endl;
}

void Progress::Step(int done, int total) {
    if (quiet || !terminal || total <= 0) {
        return;
    }
    constexpr int kWidth = 30;
    const int filled = done >= total ? kWidth : done * kWidth / total;
    out << "\r  [" << std::string(static_cast<std::size_t>(filled), '#')
        << std::string(static_cast<std::size_t>(kWidth - filled), ' ') << "] " << done << '/' << total
        << std::flush;
    barOpen = true;
    if (done >= total) {
        out << '\n';
        barOpen = false;
    }
}

}  // namespace app
}  // namespace orvane
