#ifndef ORVANE_PARAMETERS_DEFECTMAPZOOMPARAMETERS_H
#define ORVANE_PARAMETERS_DEFECTMAPZOOMPARAMETERS_H

#include <cstdint>
#include <string>

// A row of the dose defect-map zoom set: what becomes a DefectMapParameters for one
// image size. Height and Width are the formula variables, registered by pointer; the
// fields from ClipMax on are copied as they are. A default-constructed record is all
// zero and empty (empty formulas give 0).
struct DefectMapZoomParameters {
    std::int32_t Height = 0;         // the image size; written by get()
    std::int32_t Width = 0;
    std::string X0Formula{};
    std::string Y0Formula{};
    std::string WidthFormula{};
    std::string HeightFormula{};
    float ClipMax = 0.0f;
    float ClipMin = 0.0f;
    std::int32_t MedianWidth = 0;
    std::int32_t MedianHeight = 0;
    std::int32_t SpareLevel = 0;
    std::int32_t LogScale = 0;
    std::int32_t GfaMin = 0;
    std::int32_t GfaMax = 0;
    std::int32_t ExcludeSigmas = 0;
    std::int32_t GfaSigmas = 0;
    float GfaTolerance = 0.0f;
    std::int32_t QuantLevels = 0;
};

#endif
