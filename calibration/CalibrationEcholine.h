#ifndef ORVANE_CALIBRATION_CALIBRATIONECHOLINE_H
#define ORVANE_CALIBRATION_CALIBRATIONECHOLINE_H

#include "calibration/CalibrationBase.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceEcholine.h"
#include "parameters/EchoLineParameters.h"

#include <boost/shared_ptr.hpp>

#include <set>
#include <string>
#include <vector>

// The echo lines of a ReferenceEcholine, read off the defect map alone: a row of
// parameters.Area holds an echo line when one of its stretches has a run of at
// least MinimumRun defective pixels (any value above 0). Column MiddleColumn splits
// each row into two stretches that are scanned apart, and is itself not looked at;
// row MiddleRow is skipped. Rows from MiddleRow on are recorded under the number of
// their mirror line, imageHeight - row - 1. Two lines that differ by 1 are a double
// line, stored by the lower number; a block is taken in pairs from its low end.
//
// Host order: construct; CalculateEcholineReference; FillEcholineReference; read
// the store. Init and Clear do nothing, and no work image is held.
class CalibrationEcholine : public CalibrationBase {
public:
    CalibrationEcholine(const EchoLineParameters& parameters,
                        boost::shared_ptr<ReferenceEcholine> reference,
                        boost::shared_ptr<ReferenceDM> defectMap);
    ~CalibrationEcholine() override;

    void Init() override;
    void Clear() override;

    // Scans the defect map, adds what it finds to the lines of earlier calls (a line
    // once found is never dropped), and rebuilds singleLines and doubleLines from
    // them. A failure of the store's GetDM passes on unchanged. A null defect map, or
    // a scan that would leave the map (Area past its right or bottom edge, or
    // MiddleColumn below -1 inside a non-empty area), fails with a
    // CalibrationException before anything changes.
    void CalculateEcholineReference();
    // Replaces the store's two sets by copies of singleLines and doubleLines. A null
    // store fails with a CalibrationException.
    void FillEcholineReference();
    boost::shared_ptr<ReferenceEcholine> GetEcholineRef();

private:
    const std::string _GetCalibrationType() override;

    // Records rowNumber (mirrored from MiddleRow on) when the longest run of non-zero
    // bytes in row[firstColumn, endColumn) is at least MinimumRun.
    void ScanRow(unsigned char* row, int firstColumn, int endColumn, int rowNumber,
                 int imageHeight);
    // Inserts line into echoLines, keeping it ascending and free of repeats.
    void InsertUnique(int line);
    void SeparateSingleAndDouble();

    std::vector<int> echoLines;
    boost::shared_ptr<ReferenceEcholine> reference;
    boost::shared_ptr<ReferenceDM> defectMap;
    std::set<int> singleLines;
    std::set<int> doubleLines;
    const EchoLineParameters& parameters;
};

#endif
