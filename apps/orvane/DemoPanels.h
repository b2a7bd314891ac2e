#ifndef ORVANE_APPS_DEMOPANELS_H
#define ORVANE_APPS_DEMOPANELS_H

#include "parameters/DefectMapUntypicalParameters.h"


namespace orvane {
namespace app {

// The demo's second panel, run after the main one: the smallest panel whose tables
// have rows for the gain and dark defect maps, which the main panel's lack.
constexpr const char* kDemoSecondModel = "Willow.*.m12";
// Its folder inside the demo's output folder.
constexpr const char* kDemoSecondFolder = "willow-m12";

// The demo's own row for the untypical defect map on a panel of `width` x `height`,
// whose table holds rows for a few large panels only: the settings those rows share
// (an 11 x 11 median, 65536 levels, a 3-sigma statistic to 5 %, a 10-sigma band) over
// the whole frame. The statistic takes every pixel of the frame, those outside the
// area with their raw levels: the table's rows leave out a few rows and columns only.
DefectMapUntypicalParameters DemoUntypicalRow(int width, int height);

}  // namespace app
}  // namespace orvane

#endif
