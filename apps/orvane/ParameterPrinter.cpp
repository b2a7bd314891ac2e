#include "apps/orvane/ParameterPrinter.h"

#include "OrvaneCalibration.h"

#include <sstream>
#include <vector>

namespace orvane {
namespace app {

namespace {

// One record as "name  field value, field value, ..." lines of a few fields each.
class RecordPrinter {
public:
    RecordPrinter(std::ostream& out, const std::string& title) : out(out) { out << title << '\n'; }
    ~RecordPrinter() { out << '\n'; }

    template <typename T>
    RecordPrinter& operator()(const char* name, const T& value) {
        out << "  " << name << " = " << Text(value) << '\n';
        return *this;
    }

private:
    static std::string Text(bool value) { return value ? "true" : "false"; }
    static std::string Text(const std::string& value) { return '"' + value + '"'; }
    static std::string Text(const ROI& r) {
        std::ostringstream s;
        s << "top " << r.top << ", left " << r.left << ", height " << r.height << ", width " << r.width;
        return s.str();
    }
    template <typename T>
    static std::string Text(const T& value) {
        std::ostringstream s;
        s << value;
        return s.str();
    }
    template <typename T>
    static std::string Text(const std::vector<T>& values) {
        std::string text = "[";
        for (std::size_t i = 0; i < values.size(); ++i) {
            text += (i ? "; " : "") + Text(values[i]);
        }
        return text + "]";
    }

    std::ostream& out;
};

std::string Lookup(const char* set, const std::string& key) { return std::string(set) + ".lookup(\"" + key + "\")"; }

std::string Get(const char* set, const std::string& key, const std::string& args) {
    return std::string(set) + ".get(\"" + key + "\", " + args + ")";
}

void Print(std::ostream& out, const std::string& title, const DefectMapParameters& p) {
    RecordPrinter(out, title)("X0", p.X0)("Y0", p.Y0)("Width", p.Width)("Height", p.Height)("ClipMax", p.ClipMax)(
        "ClipMin", p.ClipMin)("MedianWidth", p.MedianWidth)("MedianHeight", p.MedianHeight)("SpareLevel", p.SpareLevel)(
        "LogScale", p.LogScale)("GfaMin", p.GfaMin)("GfaMax", p.GfaMax)("ExcludeSigmas", p.ExcludeSigmas)(
        "GfaSigmas", p.GfaSigmas)("GfaTolerance", p.GfaTolerance)("QuantLevels", p.QuantLevels);
}

void Print(std::ostream& out, const std::string& title, const DefectMapDarkParameters& p) {
    RecordPrinter(out, title)("Area", p.Area)("ThresholdMin", p.ThresholdMin)("ThresholdMax", p.ThresholdMax);
}

void Print(std::ostream& out, const std::string& title, const GainLinearParameters& p) {
    RecordPrinter(out, title)("InvertGain", p.InvertGain)("Y0", p.Y0)("Height", p.Height)("X0", p.X0)(
        "Width", p.Width)("ClipMin", p.ClipMin)("ClipMax", p.ClipMax)("GfaSigmas", p.GfaSigmas)(
        "GfaTolerance", p.GfaTolerance)("MeasureAreas", p.MeasureAreas);
}

void Print(std::ostream& out, const std::string& title, const DMFlagParameters& p) {
    RecordPrinter(out, title)("TestWholeFrame", p.TestWholeFrame)("TestDRZLines", p.TestDRZLines)(
        "TestArea", p.TestArea)("RetestWholeFrame", p.RetestWholeFrame)("HorizontalRatio", p.HorizontalRatio)(
        "VerticalRatio", p.VerticalRatio)("DRZRatio", p.DRZRatio)("AreaHorizontalRatio", p.AreaHorizontalRatio)(
        "AreaVerticalRatio", p.AreaVerticalRatio)("RetestHorizontalRatio", p.RetestHorizontalRatio)(
        "RetestVerticalRatio", p.RetestVerticalRatio)("Area", p.Area)("DRZFirstColumn", p.DRZFirstColumn)(
        "DRZFirstCount", p.DRZFirstCount)("DRZSecondColumn", p.DRZSecondColumn)("DRZSecondCount", p.DRZSecondCount)(
        "SplitRows", p.SplitRows)("SplitColumns", p.SplitColumns)("SplitRow", p.SplitRow)("SplitColumn", p.SplitColumn);
}

}  // namespace

void PrintParameters(std::ostream& out, const std::string& key, const ROI& roi) {
    std::ostringstream size;
    size << roi.width << ", " << roi.height;
    std::ostringstream region;
    region << "ROI(" << roi.top << ", " << roi.left << ", " << roi.height << ", " << roi.width << ")";

    const AutomaticDefectParameters& automatic = s_automaticDefectParametersSet.lookup(key);
    RecordPrinter(out, Lookup("s_automaticDefectParametersSet", key))("Area", automatic.Area)(
        "WindowSize", automatic.WindowSize)("WindowPixels", automatic.WindowPixels)(
        "ThresholdHigh", automatic.ThresholdHigh)("ThresholdLow", automatic.ThresholdLow)("MinHits", automatic.MinHits);

    const CalibrationClustersParameters& clusters = s_clustersCalibrationParametersSet.lookup(key);
    RecordPrinter(out, Lookup("s_clustersCalibrationParametersSet", key))("PatchMargin", clusters.PatchMargin)(
        "MedianSize", clusters.MedianSize)("AverageSize", clusters.AverageSize)("Threshold", clusters.Threshold);

    Print(out, Lookup("s_defectMapParametersSet", key), s_defectMapParametersSet.lookup(key));
    Print(out, Get("s_defectMapZoomParametersSet", key, size.str()),
          s_defectMapZoomParametersSet.get(key, roi.width, roi.height));

    const DefectMapUntypicalParameters& untypical = s_DefectMapUntypicalParametersSet.lookup(key);
    RecordPrinter(out, Lookup("s_DefectMapUntypicalParametersSet", key))("Area", untypical.Area)(
        "MedianWidth", untypical.MedianWidth)("MedianHeight", untypical.MedianHeight)(
        "QuantLevels", untypical.QuantLevels)("GfaSigmas", untypical.GfaSigmas)(
        "GfaTolerance", untypical.GfaTolerance)("ExcludeSigmas", untypical.ExcludeSigmas);

    Print(out, Lookup("s_DefectMapDarkParametersSet", key), s_DefectMapDarkParametersSet.lookup(key));
    Print(out, Get("s_defectMapDarkZoomParametersSet", key, size.str()),
          s_defectMapDarkZoomParametersSet.get(key, roi.width, roi.height));

    const DefectMapGainParameters& gainMap = s_defectMapGainParametersSet.lookup(key);
    RecordPrinter(out, Lookup("s_defectMapGainParametersSet", key))("X0", gainMap.X0)("Y0", gainMap.Y0)(
        "Width", gainMap.Width)("Height", gainMap.Height)("MedianWidth", gainMap.MedianWidth)(
        "MedianHeight", gainMap.MedianHeight)("ClipMin", gainMap.ClipMin)("ClipMax", gainMap.ClipMax)(
        "ThresholdMin", gainMap.ThresholdMin)("ThresholdMax", gainMap.ThresholdMax)("QuantLevels", gainMap.QuantLevels);

    const EchoLineParameters& echo = s_EchoLineParametersSet.lookup(key);
    RecordPrinter(out, Lookup("s_EchoLineParametersSet", key))("Area", echo.Area)("MiddleRow", echo.MiddleRow)(
        "MiddleColumn", echo.MiddleColumn)("MinimumRun", echo.MinimumRun);

    Print(out, Lookup("s_gainLinearParametersSet", key), s_gainLinearParametersSet.lookup(key));
    Print(out, Get("s_gainLinearStandardZoomParametersSet", key, region.str()),
          s_gainLinearStandardZoomParametersSet.get(key, roi));

    const GainPolyParameters& poly = s_gainPolyParametersSet.lookup(key);
    RecordPrinter(out, Lookup("s_gainPolyParametersSet", key))("ClipMin", poly.ClipMin)("ClipMax", poly.ClipMax)(
        "RowSigmaFactor", poly.RowSigmaFactor)("ColumnSigmaFactor", poly.ColumnSigmaFactor)(
        "MaskSigmas", poly.MaskSigmas)("RowWindow", poly.RowWindow)("ColumnWindow", poly.ColumnWindow)(
        "GfaSigmas", poly.GfaSigmas)("GfaTolerance", poly.GfaTolerance)("DenoiseAreas", poly.DenoiseAreas)(
        "MeasureAreas", poly.MeasureAreas);

    RecordPrinter(out, Lookup("s_OffsetDynamicParametersSet", key))(
        "Weight", s_OffsetDynamicParametersSet.lookup(key).Weight);

    const OffsetParameters& grid = s_OffsetTimeGridParametersSet.lookup(key);
    RecordPrinter(out, Lookup("s_OffsetTimeGridParametersSet", key))("TemperatureSteps", grid.TemperatureSteps)(
        "TimeSteps", grid.TimeSteps)("Coefficients", grid.Coefficients);

    Print(out, Lookup("s_DMFlagParametersSet", key), s_DMFlagParametersSet.lookup(key));
    Print(out, Get("s_DMFlagZoomParametersSet", key, region.str()), s_DMFlagZoomParametersSet.get(key, roi));
}

}  // namespace app
}  // namespace orvane
