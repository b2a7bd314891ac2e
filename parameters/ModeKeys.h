#ifndef ORVANE_PARAMETERS_MODEKEYS_H
#define ORVANE_PARAMETERS_MODEKEYS_H

#include <initializer_list>
#include <string>
#include <vector>

namespace orvane {
namespace detail {

// The row keys "<model>.*.m<n>" of the given modes, in the order given.
inline std::vector<std::string> ModeKeys(const std::string& model, std::initializer_list<int> modes) {
    std::vector<std::string> keys;
    for (int mode : modes) {
        keys.push_back(model + ".*.m" + std::to_string(mode));
    }
    return keys;
}

}  // namespace detail
}  // namespace orvane

#endif
