#include "apps/orvane/CorrectionCheck.h"

#include "apps/orvane/CorrectionReferences.h"
#include "apps/orvane/Evaluation.h"
#include "apps/orvane/FrameReader.h"
#include "apps/orvane/InputError.h"
#include "OrvaneCalibration.h"
#include "image/PixelStorage.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace orvane {
namespace app {

namespace {

constexpr int kMedianWindow = 7;
constexpr float kOutlierSigmas = 5.0f;

ImagePtr<float> NewFloat(int width, int height) {
    return boost::make_shared<ImageAcquisition<float>>(width, height);
}

// Robust sigma / mean of `values`, 3-sigma rejection as NonUniformity (Evaluation.h).
struct Robust {
    float mean = 0.0f;
    float sigma = 0.0f;
};
Robust RobustOf(orvane::detail::PixelVector<float>& values) {
    Robust robust;
    if (values.empty()) return robust;
    ComputeGFAMeanAndSigma(values.data(), static_cast<unsigned>(values.size()), 3, 0.001f,
                           -std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), robust.mean,
                           robust.sigma);
    return robust;
}

double Ratio(float sigma, float mean) { return mean != 0.0f ? static_cast<double>(sigma) / mean : CorrectionFigures::kNaN; }

// The offset and linear gain a panel without defects would get, calibrated the way
// the pipeline calibrates them (all darks; the middle dose, offset-subtracted and
// clipped at 0, with an empty defect map), as one chain without a defect step.
CorrectionChain DefectFreeChain(const std::string& model, const DetectorSimulator& simulator, int darks, int dose,
                                int frames) {
    const int width = simulator.Truth().width, height = simulator.Truth().height;
    auto offset = boost::make_shared<ReferenceOffsetSimple>(width, height);
    CalibrationOffsetDynamic offsetCalibration(s_OffsetDynamicParametersSet.lookup(model), offset);
    offsetCalibration.Init();
    for (int i = 0; i < darks; ++i) offsetCalibration.AccumulateOffset(simulator.DarkWithoutDefects(i));
    offsetCalibration.DivideAccumulationAndUpdate();
    offsetCalibration.Clear();

    auto gain = boost::make_shared<ReferenceGainLinear>(width, height);
    auto noDefects = boost::make_shared<ReferenceDM>(width, height);
    noDefects->SetValid(true);
    CalibrationGainLinear gainCalibration(s_gainLinearParametersSet.lookup(model), gain, noDefects);
    gainCalibration.Init();
    for (int f = 0; f < frames; ++f) {
        ImagePtr<unsigned short> flat = simulator.FlatWithoutDefects(dose, f);
        *flat->GetBuffer() = Max(0.0f, *flat->GetBuffer() - *offset->GetOffset()->GetBuffer());
        gainCalibration.AccumulateGainImg(flat);
    }
    gainCalibration.DivideAccumulation();
    gainCalibration.CalculateGainReference();
    gainCalibration.Clear();

    CorrectionChain chain(width, height);
    chain.SetOffset(boost::make_shared<OffsetCorrection>(offset));
    chain.SetGainLinear(gain);
    return chain;
}

// The fraction-th value of `values` (reordered), NaN when empty.
double Quantile(std::vector<float>& values, double fraction) {
    if (values.empty()) return CorrectionFigures::kNaN;
    const auto k = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + k, values.end());
    return values[static_cast<std::size_t>(k)];
}

// Pixels of `area` in `flat` further than `limit` from the median of their 7 x 7
// window (reflected at the area's edges): the library's histogram median on whole
// counts, so the median is that of the flat rounded to counts (clamped to 0 .. 65534).
long Outliers(const ImagePtr<float>& flat, const ROI& area, float limit) {
    const int width = flat->GetWidth(), height = flat->GetHeight();
    ImagePtr<float> levels = NewFloat(width, height);
    const float* pixels = flat->GetData();
    float* level = levels->GetData();
    const int count = flat->GetPixelCount();
    for (int i = 0; i < count; ++i) {
        // Level 0 is kept free: the median walk treats it as out of range.
        level[i] = std::min(65535.0f, std::max(1.0f, std::floor(pixels[i] + 0.5f) + 1.0f));
    }
    ImagePtr<float> difference = NewFloat(width, height);
    *difference->GetBuffer() = *flat->GetBuffer();
    HighPassMedianSubtract(levels, difference, area, kMedianWindow, kMedianWindow, 1.0f, -1.0f, 65536);
    const float* d = difference->GetData();
    long outliers = 0;
    for (int y = area.top; y < area.top + area.height; ++y) {
        for (int x = area.left; x < area.left + area.width; ++x) outliers += std::fabs(d[y * width + x]) > limit;
    }
    return outliers;
}

}  // namespace

CorrectionFigures CheckCorrection(const std::string& dir, const std::string& model, const FrameSeries& series,
                                  const DetectorSimulator& simulator, Progress& progress) {
    CorrectionFigures figures;
    if (series.doses.empty()) {
        figures.notMeasured = "the series has no flat frames";
        return figures;
    }
    const std::size_t middle = series.doses.size() / 2;
    const std::vector<FrameRef>& frames = series.doses[middle];
    figures.dose = static_cast<int>(middle) + 1;
    const int width = series.width, height = series.height;
    CorrectionChoice plainChoice;
    plainChoice.defects = false;
    std::unique_ptr<CorrectionReferences> full, plain;
    try {
        full = std::make_unique<CorrectionReferences>(dir, CorrectionChoice(), width, height);
        plain = std::make_unique<CorrectionReferences>(dir, plainChoice, width, height);
    } catch (const InputError& error) {
        figures.notMeasured = error.what();
        return figures;
    }
    const int total = static_cast<int>(frames.size());
    progress.Stage("correcting the " + std::to_string(total) + " flats of dose " + std::to_string(figures.dose) +
                   ", and the same flats without defects");
    CorrectionChain truthChain =
        DefectFreeChain(model, simulator, static_cast<int>(series.darks.size()), figures.dose, total);

    FrameReader reader(series);
    figures.raw = NewFloat(width, height);
    figures.offsetGain = NewFloat(width, height);
    figures.corrected = NewFloat(width, height);
    ImagePtr<float> plainFrame = NewFloat(width, height), fullFrame = NewFloat(width, height);
    ImagePtr<float> truthFrame = NewFloat(width, height);
    ImagePtr<float> measured = NewFloat(width, height);
    auto marks = boost::make_shared<ImageAcquisition<unsigned char>>(width, height);
    std::vector<float> errors;
    const int count = width * height;
    for (int f = 0; f < total; ++f) {
        const FrameRef& ref = frames[static_cast<std::size_t>(f)];
        const ImagePtr<unsigned short> raw = reader.Read(ref);
        plain->ChainFor(*raw, ref.Name()).Correct(raw, plainFrame);
        const CorrectionChain::Result result = full->ChainFor(*raw, ref.Name()).Correct(raw, fullFrame, marks);
        truthChain.Correct(simulator.FlatWithoutDefects(figures.dose, f), truthFrame);
        *figures.raw->GetBuffer() += *raw->GetBuffer();
        *figures.offsetGain->GetBuffer() += *plainFrame->GetBuffer();
        *figures.corrected->GetBuffer() += *fullFrame->GetBuffer();
        if (f == 0) {
            *measured->GetBuffer() = *fullFrame->GetBuffer();
        }
        const unsigned char* mark = marks->GetData();
        const float* value = fullFrame->GetData();
        const float* truth = truthFrame->GetData();
        for (int i = 0; i < count; ++i) {
            if (mark[i] != DefectReplacement::kMarkGood && mark[i] != DefectReplacement::kMarkUnreplaced) {
                errors.push_back(static_cast<float>(std::fabs(static_cast<double>(value[i]) - truth[i]) / truth[i]));
            }
        }
        figures.unreplacedSamples += result.defects.unreplaced;
        progress.Step(f + 1, total);
    }
    const float scale = 1.0f / static_cast<float>(total);
    for (const ImagePtr<float>& mean : {figures.raw, figures.offsetGain, figures.corrected}) {
        *mean->GetBuffer() = *mean->GetBuffer() * scale;
    }
    figures.frames = total;
    figures.replacedSamples = static_cast<long>(errors.size());
    figures.replacedErrorMedian = Quantile(errors, 0.5);
    figures.replacedError99 = Quantile(errors, 0.99);

    progress.Stage("measuring the first corrected flat");
    const ROI area = GainArea(s_gainLinearParametersSet.lookup(model), width, height);
    const float* pixels = measured->GetData();
    const unsigned char* mark = marks->GetData();  // the same map for every frame
    orvane::detail::PixelVector<float> all, good;  // full-frame buffers: on huge pages
    all.reserve(static_cast<std::size_t>(area.width) * area.height);
    good.reserve(all.capacity());
    for (int y = area.top; y < area.top + area.height; ++y) {
        for (int i = y * width + area.left; i < y * width + area.left + area.width; ++i) {
            all.push_back(pixels[i]);
            if (mark[i] == DefectReplacement::kMarkGood) good.push_back(pixels[i]);
        }
    }
    const Robust whole = RobustOf(all);
    const Robust goodOnly = RobustOf(good);
    figures.nonUniformityAll = Ratio(whole.sigma, whole.mean);
    figures.nonUniformityGood = Ratio(goodOnly.sigma, goodOnly.mean);
    figures.nonUniformityRatio = figures.nonUniformityAll / figures.nonUniformityGood;
    figures.area = area;
    figures.outliers = Outliers(measured, area, kOutlierSigmas * whole.sigma);
    figures.outlierFraction = static_cast<double>(figures.outliers) / static_cast<double>(all.size());
    return figures;
}

void PrintCorrection(std::ostream& out, const CorrectionFigures& figures) {
    if (!figures.notMeasured.empty()) {
        out << "correction not measured: " << figures.notMeasured << '\n';
        return;
    }
    const auto met = [](bool yes) { return yes ? "met" : "NOT met"; };
    char line[200];
    out << "correction of the " << figures.frames << " flats of dose " << figures.dose
        << " (measured on the first, corrected on its own), over the gain area (top " << figures.area.top << ", left "
        << figures.area.left << ", " << figures.area.height << " x " << figures.area.width << "):\n";
    std::snprintf(line, sizeof line, "%-32s %8.3f %%\n%-32s %8.3f %%\n%-32s %8.3f    (target <= %.1f: %s)\n",
                  "non-uniformity, all pixels", 100.0 * figures.nonUniformityAll, "non-uniformity, good pixels",
                  100.0 * figures.nonUniformityGood, "ratio all / good", figures.nonUniformityRatio,
                  kNonUniformityRatioTarget, met(figures.nonUniformityRatio <= kNonUniformityRatioTarget));
    out << line;
    std::snprintf(line, sizeof line, "%-32s %8ld    (%.2f per 100000; target < 1: %s)\n",
                  "beyond 5 sigma of 7x7 median", figures.outliers, 1.0e5 * figures.outlierFraction,
                  met(figures.outlierFraction < kOutlierFractionTarget));
    out << line;
    std::snprintf(line, sizeof line,
                  "%-32s %8.3f %% median, %.3f %% 99th percentile (%ld replaced, %ld unreplaced)\n",
                  "replaced pixels vs truth", 100.0 * figures.replacedErrorMedian, 100.0 * figures.replacedError99,
                  figures.replacedSamples, figures.unreplacedSamples);
    out << line;
}

}  // namespace app
}  // namespace orvane
