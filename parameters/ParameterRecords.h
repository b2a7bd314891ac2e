#ifndef ORVANE_PARAMETERS_PARAMETERRECORDS_H
#define ORVANE_PARAMETERS_PARAMETERRECORDS_H

// The parameter records of the gain, defect-map and artefact calibrations, and the
// zoom rows from which some of them are made.

#include "parameters/AutomaticDefectParameters.h"
#include "parameters/CalibrationClustersParameters.h"
#include "parameters/DMFlagParameters.h"
#include "parameters/DMFlagZoomParameters.h"
#include "parameters/DefectMapDarkParameters.h"
#include "parameters/DefectMapDarkZoomParameters.h"
#include "parameters/DefectMapGainParameters.h"
#include "parameters/DefectMapParameters.h"
#include "parameters/DefectMapUntypicalParameters.h"
#include "parameters/DefectMapZoomParameters.h"
#include "parameters/EchoLineParameters.h"
#include "parameters/GainLinearParameters.h"
#include "parameters/GainLinearZoomParameters.h"
#include "parameters/GainPolyParameters.h"

#endif
