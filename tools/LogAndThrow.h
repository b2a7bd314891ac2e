#ifndef ORVANE_TOOLS_LOGANDTHROW_H
#define ORVANE_TOOLS_LOGANDTHROW_H

#include <string>

// The one road to a failure: composes "<file>(<line>): <message>", writes it as an
// error line and throws an E with that same text. Exists for CalibrationException
// and ImageFileException. Callers pass __FILE__ and __LINE__; the build strips the
// source directory from __FILE__, so the text reads "calibration/X.cpp(42): X: ...".
template <typename E>
[[noreturn]] void LogAndThrow(const std::string& message, const char* file, int line);

#endif
