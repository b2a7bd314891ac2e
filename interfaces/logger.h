#ifndef ORVANE_INTERFACES_LOGGER_H
#define ORVANE_INTERFACES_LOGGER_H

#include <boost/function.hpp>

#include <atomic>
#include <map>
#include <mutex>
#include <string>

// The process's logger: delivers finished lines to the attached sinks.
// A line reaches a sink as composed, e.g. "I CalibrationOffsetDynamic : UpdateSingleOffsetRef\n".
// Sinks may be attached and removed from any thread; a sink may remove itself.
class logger {
public:
    using sink = boost::function<void(const std::string&)>;

    static logger& manager();

    // True when no sink is attached: callers then skip composing their line.
    bool empty_sink() const;
    // Delivers the text to every sink, in the order they were attached. An empty
    // text (an entry that was not composed) is not delivered.
    void log(const std::string& text);
    // Attaches a sink; the handle removes it again.
    int add_sink(sink target);
    void remove_sink(int handle);

private:
    logger() = default;

    mutable std::mutex mutex;
    std::map<int, sink> sinks;
    std::atomic<int> sinkCount{0};
    int nextHandle = 1;
};

#endif
