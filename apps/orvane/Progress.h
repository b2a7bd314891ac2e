#ifndef ORVANE_APPS_PROGRESS_H
#define ORVANE_APPS_PROGRESS_H

#include <chrono>
#include <ostream>
#include <string>

namespace orvane {
namespace app {

// Progress of a long command on stderr: one line per stage with the time since the
// command started, and for per-frame loops a bar redrawn in place when the stream is
// a terminal (nothing otherwise, so logs stay clean).
class Progress {
public:
    // `terminal`: whether `out` is a terminal (bars drawn). A quiet Progress prints nothing.
    Progress(std::ostream& out, bool terminal, bool quiet = false);

    // "[  12.3 s] <name>"
    void Stage(const std::string& name);
    // Item `done` of `total` of the current stage (1-based); draws the bar on a terminal.
    void Step(int done, int total);
    // Seconds since construction.
    double Elapsed() const;

private:
    std::ostream& out;
    bool terminal;
    bool quiet;
    bool barOpen = false;
    std::chrono::steady_clock::time_point start;
};

}  // namespace app
}  // namespace orvane

#endif
