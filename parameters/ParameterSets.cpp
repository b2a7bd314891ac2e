// The exported parameter sets, defined in this one file so that they are built at
// library load in this order.
#include "parameters/AutomaticDefectParametersSet.h"
#include "parameters/CalibrationClustersParametersSet.h"
#include "parameters/DMFlagParametersSet.h"
#include "parameters/DMFlagZoomParametersSet.h"
#include "parameters/DefectMapDarkParametersSet.h"
#include "parameters/DefectMapDarkZoomParametersSet.h"
#include "parameters/DefectMapGainParametersSet.h"
#include "parameters/DefectMapParametersSet.h"
#include "parameters/DefectMapUntypicalParametersSet.h"
#include "parameters/DefectMapZoomParametersSet.h"
#include "parameters/EchoLineParametersSet.h"
#include "parameters/GainLinearParametersSet.h"
#include "parameters/GainLinearStandardZoomParametersSet.h"
#include "parameters/GainPolyParametersSet.h"
#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetTimeGridParametersSet.h"

AutomaticDefectParametersSet s_automaticDefectParametersSet;
CalibrationClustersParametersSet s_clustersCalibrationParametersSet;
DefectMapParametersSet s_defectMapParametersSet;
DefectMapZoomParametersSet s_defectMapZoomParametersSet;
DefectMapUntypicalParametersSet s_DefectMapUntypicalParametersSet;
DefectMapDarkParametersSet s_DefectMapDarkParametersSet;
DefectMapDarkZoomParametersSet s_defectMapDarkZoomParametersSet;
DefectMapGainParametersSet s_defectMapGainParametersSet;
EchoLineParametersSet s_EchoLineParametersSet;
GainLinearParametersSet s_gainLinearParametersSet;
GainLinearStandardZoomParametersSet s_gainLinearStandardZoomParametersSet;
GainPolyParametersSet s_gainPolyParametersSet;
OffsetDynamicParametersSet s_OffsetDynamicParametersSet;
OffsetTimeGridParametersSet s_OffsetTimeGridParametersSet;
DMFlagParametersSet s_DMFlagParametersSet;
DMFlagZoomParametersSet s_DMFlagZoomParametersSet;
