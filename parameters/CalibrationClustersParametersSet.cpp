#include "parameters/CalibrationClustersParametersSet.h"

CalibrationClustersParametersSet::CalibrationClustersParametersSet() {
    CalibrationClustersParameters& birch = row("Birch");
    birch.PatchMargin = 10;
    birch.MedianSize = 81;
    birch.AverageSize = 81;
    birch.Threshold = 60.0f;
}
