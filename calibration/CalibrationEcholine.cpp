#include "calibration/CalibrationEcholine.h"

#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>

CalibrationEcholine::CalibrationEcholine(const EchoLineParameters& parameters,
                                         boost::shared_ptr<ReferenceEcholine> reference,
                                         boost::shared_ptr<ReferenceDM> defectMap)
    : reference(reference), defectMap(defectMap), parameters(parameters) {}

CalibrationEcholine::~CalibrationEcholine() = default;

void CalibrationEcholine::Init() {}

void CalibrationEcholine::Clear() {}

const std::string CalibrationEcholine::_GetCalibrationType() {
    return "Echoline";
}

boost::shared_ptr<ReferenceEcholine> CalibrationEcholine::GetEcholineRef() {
    return reference;
}

void CalibrationEcholine::CalculateEcholineReference() {
    orvane::detail::LogInfo("CalibrationEcholine : CalculateEcholineReference");
    if (!defectMap) {
        LogAndThrow<CalibrationException>(
            "CalibrationEcholine: CalculateEcholineReference failed due to null pointer", __FILE__,
            __LINE__);
    }
    const ImagePtr<unsigned char> map = defectMap->GetDM();
    if (!map) {
        LogAndThrow<CalibrationException>(
            "CalibrationEcholine: CalculateEcholineReference failed due to null pointer", __FILE__,
            __LINE__);
    }
    const ROI& area = parameters.Area;
    const int firstRow = area.top;
    const int endRow = area.top + area.height;
    const int endColumn = area.left + area.width;
    const int splitColumn = std::min(endColumn, static_cast<int>(parameters.MiddleColumn));
    const int width = map->GetWidth();
    const int height = map->GetHeight();
    const bool split = splitColumn != endColumn;
    if (area.height > 0 && (endRow > height || endColumn > width || (split && splitColumn + 1 < 0))) {
        LogAndThrow<CalibrationException>(
            "CalibrationEcholine: CalculateEcholineReference failed due to an area outside the "
            "defect map",
            __FILE__, __LINE__);
    }

    for (int rowNumber = firstRow; rowNumber < endRow; ++rowNumber) {
        if (rowNumber == parameters.MiddleRow) {
            continue;
        }
        unsigned char* row = map->GetData() + static_cast<long>(rowNumber) * width;
        ScanRow(row, area.left, splitColumn, rowNumber, height);
        if (split) {
            ScanRow(row, splitColumn + 1, endColumn, rowNumber, height);
        }
    }

    singleLines.clear();
    doubleLines.clear();
    SeparateSingleAndDouble();
    orvane::detail::LogInfo("CalibrationEcholine : CalculateEcholineReference succeed");
}

void CalibrationEcholine::FillEcholineReference() {
    if (!reference) {
        LogAndThrow<CalibrationException>(
            "CalibrationEcholine: FillEcholineReference failed due to null pointer", __FILE__, __LINE__);
    }
    reference->singleLines = singleLines;
    reference->doubleLines = doubleLines;
}

// The run grows on each non-zero byte and restarts at 0 on a zero byte; keeping the
// maximum after every byte is the same as closing the run at each zero and at the end.
void CalibrationEcholine::ScanRow(unsigned char* row, int firstColumn, int endColumn,
                                  int rowNumber, int imageHeight) {
    int longest = 0;
    int run = 0;
    for (int column = firstColumn; column < endColumn; ++column) {
        run = row[column] != 0 ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    if (longest < parameters.MinimumRun) {
        return;
    }
    InsertUnique(rowNumber < parameters.MiddleRow ? rowNumber : imageHeight - rowNumber - 1);
}

// A panel has few echo lines, so a linear walk is enough.
void CalibrationEcholine::InsertUnique(int line) {
    auto it = echoLines.begin();
    while (it != echoLines.end() && *it < line) {
        ++it;
    }
    if (it == echoLines.end() || *it != line) {
        echoLines.insert(it, line);
    }
}

void CalibrationEcholine::SeparateSingleAndDouble() {
    const size_t count = echoLines.size();
    size_t i = 0;
    while (i < count) {
        if (i + 1 < count && echoLines[i + 1] == echoLines[i] + 1) {
            doubleLines.insert(echoLines[i]);
            i += 2;
        } else {
            singleLines.insert(echoLines[i]);
            i += 1;
        }
    }
}
