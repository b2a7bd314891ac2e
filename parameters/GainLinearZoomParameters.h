#ifndef ORVANE_PARAMETERS_GAINLINEARZOOMPARAMETERS_H
#define ORVANE_PARAMETERS_GAINLINEARZOOMPARAMETERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "parameters/ROIFormula.h"

// A row of the linear-gain zoom set: what becomes a GainLinearParameters for one region.
// std::string fields are formulas. X0, Y0, Height, Width and Xc to nc are the
// formula variables, registered by pointer; a formula variable is evaluated when read.
// A default-constructed record is all zero, false and empty (empty formulas give 0).
struct GainLinearZoomParameters {
    std::int32_t X0 = 0;       // the region, in panel coordinates; written by get()
    std::int32_t Y0 = 0;
    std::int32_t Height = 0;
    std::int32_t Width = 0;
    bool InvertGain = false;
    std::int32_t AreaY0 = 0;           // Y0 of the finished record
    std::string AreaHeight{};          // Height of the finished record
    std::int32_t AreaX0 = 0;           // X0 of the finished record
    std::string AreaWidth{};           // Width of the finished record
    float ClipMin = 0.0f;
    float ClipMax = 0.0f;
    std::int32_t GfaSigmas = 0;
    float GfaTolerance = 0.0f;
    std::string Xc{};                  // centre of the region, in panel coordinates
    std::string Yc{};
    std::string Mpxc{};                // module boundary column at or before the centre, panel coordinates
    std::string Thlc{};                // module boundary row at or before the centre, panel coordinates
    std::int32_t modSize = 0;          // side of a module, in pixels
    std::string cLeftLimit{};          // usable part of the region, in region coordinates
    std::string lTopLimit{};
    std::string cRightLimit{};
    std::string lBotLimit{};
    std::string l1{};                  // first rows of the measure areas, region coordinates
    std::string l2{};
    std::string l3{};
    std::string l4{};
    std::string c1{};                  // first columns of the measure areas, region coordinates
    std::string c2{};
    std::string c3{};
    std::string c4{};
    std::string nl{};                  // rows of a measure area
    std::string nl1{};                 // rows of the areas starting at l1 and l2, where they differ
    std::string nl2{};
    std::string nc1{};                 // columns of the areas starting at c1, c2, c3, where they differ
    std::string nc2{};
    std::string nc3{};
    std::int32_t nc = 0;               // columns of a measure area
    std::vector<ROIFormula> MeasureAreaFormulas{};  // MeasureAreas of the finished record
};

#endif
