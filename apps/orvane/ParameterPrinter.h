#ifndef ORVANE_APPS_PARAMETERPRINTER_H
#define ORVANE_APPS_PARAMETERPRINTER_H

#include "image/ROI.h"

#include <ostream>
#include <string>

namespace orvane {
namespace app {

// Prints, for `key`, the record of every parameter set: the plain sets through lookup,
// the zoom sets through get on `roi` (a region) or on its height and width (a size).
void PrintParameters(std::ostream& out, const std::string& key, const ROI& roi);

}  // namespace app
}  // namespace orvane

#endif
