#include "tools/LogAndThrow.h"

#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ImageFileException.h"

#include <sstream>

template <typename E>
void LogAndThrow(const std::string& message, const char* file, int line) {
    std::ostringstream text;
    text << file << "(" << line << "): " << message;
    orvane::detail::LogError(text.str());
    throw E(text.str());
}

template void LogAndThrow<CalibrationException>(const std::string&, const char*, int);
template void LogAndThrow<ImageFileException>(const std::string&, const char*, int);
