#ifndef ORVANE_APPS_INPUTERROR_H
#define ORVANE_APPS_INPUTERROR_H

#include <stdexcept>
#include <string>

namespace orvane {
namespace app {

// Bad input from the user: a file or folder and what is wrong with it. The command
// prints "orvane: <what()>" on one line and exits with code 2.
class InputError : public std::runtime_error {
public:
    InputError(const std::string& path, const std::string& problem)
        : std::runtime_error(path.empty() ? problem : path + ": " + problem) {}
};

}  // namespace app
}  // namespace orvane

#endif
