#include "interfaces/BaseException.h"

BaseException::BaseException(const std::string& message) : message(message) {}

BaseException::BaseException(const std::exception& source) : message(source.what()) {}

BaseException::~BaseException() = default;

const char* BaseException::what() const noexcept {
    return message.c_str();
}
