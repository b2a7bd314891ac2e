#ifndef ORVANE_ORVANECALIBRATION_H
#define ORVANE_ORVANECALIBRATION_H

// Every exported name of orvane-calibration, with the image model, the reference
// stores and the logger of its sibling libraries.

#include "image/Coordinates.h"
#include "image/ImageAcquisition.h"
#include "image/ImageBuffer.h"
#include "image/ImageBufferExtract.h"
#include "image/ImageCollection.h"
#include "image/ImageCollector.h"
#include "image/ImageCollectorBase.h"
#include "image/ImageCollectorRegistry.h"
#include "image/ImagePixelRect.h"
#include "image/QuadPart.h"
#include "image/ROI.h"

#include "interfaces/BaseException.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/CorrectionGainLinear.h"
#include "interfaces/ImageFileException.h"
#include "interfaces/ImageFormatException.h"
#include "interfaces/Reference.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceException.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"
#include "interfaces/logger.h"
#include "interfaces/loglevel.h"

#include "tools/ImageFxdFile.h"

#include "parameters/GainPolyParametersSet.h"
#include "parameters/OffsetDynamicParameters.h"
#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetParameters.h"
#include "parameters/OffsetTimeGridParametersSet.h"
#include "parameters/FormulaCalculator.h"
#include "parameters/ParameterRecords.h"
#include "parameters/ParametersSet.h"
#include "parameters/ROIFormula.h"

#include "calibration/CalibrationBase.h"
#include "calibration/CalibrationDefectMap.h"
#include "calibration/CalibrationDefectMapDark.h"
#include "calibration/CalibrationDefectMapGain.h"
#include "calibration/CalibrationDefectMapUntypical.h"
#include "calibration/CalibrationGain.h"
#include "calibration/CalibrationGainLinear.h"
#include "calibration/CalibrationGainPoly.h"
#include "calibration/CalibrationOffsetBase.h"
#include "calibration/CalibrationOffsetDynamic.h"
#include "calibration/CalibrationOffsetPreview.h"
#include "calibration/CalibrationOffsetTimeGrid.h"
#include "calibration/CalibrationTools.h"
#include "calibration/DefectMapChecker.h"
#include "calibration/DefectMapFlag.h"
#include "calibration/LogAndThrow.h"
#include "calibration/LogEntry.h"

#endif
