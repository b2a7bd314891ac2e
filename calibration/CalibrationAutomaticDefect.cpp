#include "calibration/CalibrationAutomaticDefect.h"

#include "calibration/DefectMapChecker.h"
#include "calibration/ImageStatistics.h"
#include "calibration/Median7x7.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "tools/Parallel.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ImageFormatException.h"
#include "interfaces/ReferenceException.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace {

// p reflected into 0 .. n - 1 without repeating the edge; p must lie within
// n - 1 of the range, which the window checks guarantee.
inline int Reflect(int p, int n) {
    return p < 0 ? -p : (p >= n ? 2 * n - p - 2 : p);
}

bool AreaInside(const ROI& area, int width, int height) {
    return area.top + area.height <= height && area.left + area.width <= width;
}

}  // namespace

CalibrationAutomaticDefect::CalibrationAutomaticDefect(const AutomaticDefectParameters& parameters,
                                                       boost::shared_ptr<ReferenceDM> reference,
                                                       boost::shared_ptr<DefectMapFlag> flag)
    : parameters(parameters), reference(reference), flag(flag) {
    orvane::detail::LogInfo("CalibrationAutomaticDefect : CalibrationAutomaticDefect");
    const ImagePtr<unsigned char> map = reference->GetDM();
    width = map->GetWidth();
    height = map->GetHeight();
}

CalibrationAutomaticDefect::~CalibrationAutomaticDefect() {
    _Clear();
}

const std::string CalibrationAutomaticDefect::_GetCalibrationType() {
    return "DMAuto";
}

void CalibrationAutomaticDefect::Init() {
    orvane::detail::LogInfo("CalibrationAutomaticDefect : Init");
    try {
        if (floatImages.IsOpen()) {
            return;
        }
        floatImages.Open(width, height, 2, {&difference, &hits});
        byteImages.Open(width, height, 1, {&mergeImage});
        floatImages.FillSlots(0.0f);
        byteImages.FillSlots(0);
        // A negative size would fail the allocation; the window check refuses it later.
        const std::size_t scratchSize = static_cast<std::size_t>(std::max(parameters.WindowPixels, 0));
        if (!medianScratch) {
            medianScratch.reset(new float[scratchSize]);
        }
        std::fill(medianScratch.get(), medianScratch.get() + scratchSize, 0.0f);
        pairs = 0;
    } catch (ImageFormatException&) {
        _Clear();
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : Init failed due to wrong format file", __FILE__, __LINE__);
    } catch (...) {
        _Clear();
        LogAndThrow<CalibrationException>("CalibrationAutomaticDefect : Init failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationAutomaticDefect::Clear() {
    _Clear();
}

void CalibrationAutomaticDefect::_Clear() {
    floatImages.Close();
    byteImages.Close();
    medianScratch.reset();
    pairs = 0;
}

void CalibrationAutomaticDefect::ProcessReferenceAndCumul(ImagePtr<unsigned short> first,
                                                          ImagePtr<unsigned short> second) {
    if (!reference->IsValid()) {
        orvane::detail::LogInfo(
            "CalibrationAutomaticDefect : ProcessReferenceAndCumul skipped due to invalid reference");
        return;
    }
    try {
        orvane::detail::LogInfo("CalibrationAutomaticDefect : ProcessReferenceAndCumul");
        if (!first || !second || !difference) {
            LogAndThrow<CalibrationException>(
                "CalibrationAutomaticDefect : ProcessReferenceAndCumul failed due to null pointer",
                __FILE__, __LINE__);
        }
        *difference->GetBuffer() = *second->GetBuffer() - *first->GetBuffer();
        difference->GetProperties() = first->GetProperties();
        _MovingMedianDiffThresholdAndCumul();
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationAutomaticDefect : ProcessReferenceAndCumul failed",
                                          __FILE__, __LINE__);
    }
    ++pairs;
    orvane::detail::LogInfo("CalibrationAutomaticDefect : ProcessReferenceAndCumul succeed");
}

void CalibrationAutomaticDefect::_MovingMedianDiffThresholdAndCumul() {
    if (!difference || !difference->GetData() || !hits || !hits->GetData() || !medianScratch) {
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : _MovingMedianDiffThresholdAndCumul failed due to null pointer",
            __FILE__, __LINE__);
    }
    const ROI area = parameters.Area;
    const int k = parameters.WindowSize;
    const int h = k / 2;
    const int rows = area.height;
    const int cols = area.width;
    if (!AreaInside(area, width, height)) {
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : _MovingMedianDiffThresholdAndCumul failed due to area outside the image",
            __FILE__, __LINE__);
    }
    if (k < 1 || static_cast<long long>(k) * k > parameters.WindowPixels ||
        (rows > 0 && cols > 0 && (rows <= h || cols <= h))) {
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : _MovingMedianDiffThresholdAndCumul failed due to window larger than the area or the scratch array",
            __FILE__, __LINE__);
    }

    const std::ptrdiff_t stride = width;
    const std::ptrdiff_t originOffset = static_cast<std::ptrdiff_t>(area.top) * stride + area.left;
    const float* const origin = difference->GetData() + originOffset;
    float* const counts = hits->GetData() + originOffset;
    const unsigned windowCount = static_cast<unsigned>(k * k);
    const double high = parameters.ThresholdHigh;
    const double low = parameters.ThresholdLow;
    // The 7 x 7 windows that lie inside the area's columns go through the vectorised
    // selection; the others, and other window sizes, through SelectMedian. The values
    // are differences of 16-bit frames, without NaN, so both give the same median.
    const bool fast = k == 7 && cols > 2 * h;
    const int interiorFirst = h;
    const int interiorCount = fast ? cols - 2 * h : 0;

    // Rows are independent: each reads the difference and writes its own counts.
    orvane::ParallelFor(rows, 8, [&](int firstRow, int endRow) {
        std::vector<float> scratch(windowCount);
        std::vector<float> medians(static_cast<size_t>(cols));
        std::vector<const float*> lines(static_cast<size_t>(k));
        for (int r = firstRow; r < endRow; ++r) {
            for (int i = 0; i < k; ++i) {
                lines[static_cast<size_t>(i)] = origin + Reflect(r - h + i, rows) * stride;
            }
            if (fast) {
                orvane::detail::Median7x7(lines.data(), interiorFirst, interiorCount, medians.data() + interiorFirst);
            }
            for (int c = 0; c < cols; ++c) {
                float median;
                if (c >= interiorFirst && c < interiorFirst + interiorCount) {
                    median = medians[static_cast<size_t>(c)];
                } else {
                    const bool columnsInside = c - h >= 0 && c - h + k <= cols;
                    float* s = scratch.data();
                    for (int i = 0; i < k; ++i) {
                        const float* line = lines[static_cast<size_t>(i)];
                        if (columnsInside) {
                            s = std::copy(line + (c - h), line + (c - h + k), s);
                        } else {
                            for (int j = 0; j < k; ++j) {
                                *s++ = line[Reflect(c - h + j, cols)];
                            }
                        }
                    }
                    median = SelectMedian(scratch.data(), windowCount);
                }
                const std::ptrdiff_t at = r * stride + c;
                const float d = static_cast<float>(static_cast<double>(origin[at]) - median);
                if (d > high || low > d) {
                    counts[at] += 1.0f;
                }
            }
        }
    });
    hits->GetProperties() = difference->GetProperties();
}

void CalibrationAutomaticDefect::UpdateDefectMap() {
    if (!reference->IsValid()) {
        orvane::detail::LogInfo(
            "CalibrationAutomaticDefect : UpdateDefectMap skipped due to invalid reference");
        return;
    }
    const ImagePtr<unsigned char> map = reference->GetDM();
    DefectMapChecker checker;
    if (!hits || !hits->GetData() || !map || !map->GetData() || !mergeImage ||
        !mergeImage->GetData() || !flag) {
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : UpdateDefectMap failed due to null pointer", __FILE__,
            __LINE__);
    }
    const ROI area = parameters.Area;
    if (!AreaInside(area, map->GetWidth(), map->GetHeight()) ||
        !AreaInside(area, hits->GetWidth(), hits->GetHeight())) {
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : UpdateDefectMap failed due to area outside the image",
            __FILE__, __LINE__);
    }
    unsigned long count = 0;
    try {
        const bool merged = reference->IsMerged();
        if (merged) {
            reference->Load();
        }
        // Without a pair the bound would be 0 and condemn the whole area.
        if (pairs > 0) {
            const float required = static_cast<float>(std::min(pairs, parameters.MinHits));
            for (int r = 0; r < area.height; ++r) {
                const float* hitRow = hits->GetData() +
                                      static_cast<std::ptrdiff_t>(area.top + r) * hits->GetWidth() +
                                      area.left;
                unsigned char* mapRow = map->GetData() +
                                        static_cast<std::ptrdiff_t>(area.top + r) * map->GetWidth() +
                                        area.left;
                for (int c = 0; c < area.width; ++c) {
                    if (hitRow[c] >= required && mapRow[c] == 0) {
                        mapRow[c] = 1;
                        ++count;
                    }
                }
            }
        }
        map->GetProperties() = hits->GetProperties();
        flag->UpdateDefectMap(map);
        checker.UpdateDefectMap(map);
        reference->Save();
        if (merged && reference->LoadMergeDM(mergeImage)) {
            flag->UpdateDefectMap(map);
            checker.UpdateDefectMap(map);
        }
    } catch (ReferenceException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : UpdateDefectMap failed to save reference", __FILE__,
            __LINE__);
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationAutomaticDefect : UpdateDefectMap failed in DM checker", __FILE__, __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationAutomaticDefect : UpdateDefectMap failed",
                                          __FILE__, __LINE__);
    }
    orvane::detail::LogInfo("CalibrationAutomaticDefect : UpdateDefectMap succeed (count=", count,
                            ")");
}
