#ifndef ORVANE_TOOLS_LOGENTRY_H
#define ORVANE_TOOLS_LOGENTRY_H

#include "interfaces/logger.h"
#include "interfaces/loglevel.h"

#include <memory>
#include <ostream>
#include <sstream>

// One log line in the making. The stream is written only when a sink is attached
// (Composing()); the destructor hands the text, empty or not, to the logger.
class LogEntry {
public:
    LogEntry();
    ~LogEntry();

    LogEntry(const LogEntry&) = delete;
    LogEntry& operator=(const LogEntry&) = delete;

    bool Composing() const;
    std::ostringstream& Stream();

private:
    std::unique_ptr<std::ostringstream> stream;
};

namespace orvane {
namespace detail {

// Writes one line "<level> <parts...>\n", composed only when a sink listens.
template <typename Level, typename... Parts>
void LogLine(const Level& level, const Parts&... parts) {
    LogEntry entry;
    if (entry.Composing()) {
        std::ostringstream& stream = entry.Stream();
        stream << level;
        (stream << ... << parts) << std::endl;
    }
}

template <typename... Parts>
void LogInfo(const Parts&... parts) {
    LogLine(loglevelinfo(), parts...);
}

template <typename... Parts>
void LogError(const Parts&... parts) {
    LogLine(loglevelerror(), parts...);
}

}  // namespace detail
}  // namespace orvane

#endif
