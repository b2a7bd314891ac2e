#include "apps/orvane/DemoPanels.h"

#include "parameters/DefectMapUntypicalParametersSet.h"

namespace orvane {
namespace app {

DefectMapUntypicalParameters DemoUntypicalRow(int width, int height) {
    DefectMapUntypicalParameters row = s_DefectMapUntypicalParametersSet.lookup("LarchB");
    row.Area = ROI(0, 0, static_cast<unsigned short>(height), static_cast<unsigned short>(width));
    return row;
}

}  // namespace app
}  // namespace orvane
