#include "interfaces/logger.h"

#include <vector>

logger& logger::manager() {
    static logger instance;
    return instance;
}

bool logger::empty_sink() const {
    return sinkCount.load(std::memory_order_relaxed) == 0;
}

void logger::log(const std::string& text) {
    if (text.empty()) {
        return;
    }
    // Sinks are called outside the lock, so that one may add or remove sinks.
    std::vector<sink> targets;
    {
        std::lock_guard<std::mutex> lock(mutex);
        for (const auto& entry : sinks) {
            targets.push_back(entry.second);
        }
    }
    for (const auto& target : targets) {
        target(text);
    }
}

int logger::add_sink(sink target) {
    std::lock_guard<std::mutex> lock(mutex);
    const int handle = nextHandle++;
    sinks.emplace(handle, std::move(target));
    sinkCount.store(static_cast<int>(sinks.size()), std::memory_order_relaxed);
    return handle;
}

void logger::remove_sink(int handle) {
    std::lock_guard<std::mutex> lock(mutex);
    sinks.erase(handle);
    sinkCount.store(static_cast<int>(sinks.size()), std::memory_order_relaxed);
}
