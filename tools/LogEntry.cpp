#include "tools/LogEntry.h"

LogEntry::LogEntry() : stream(new std::ostringstream) {}

LogEntry::~LogEntry() {
    logger::manager().log(stream->str());
}

bool LogEntry::Composing() const {
    return !logger::manager().empty_sink();
}

std::ostringstream& LogEntry::Stream() {
    return *stream;
}
