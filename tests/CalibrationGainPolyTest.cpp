#include "TestImages.h"
#include "tools/Parallel.h"

#include "calibration/CalibrationGainLinear.h"
#include "calibration/CalibrationGainPoly.h"
#include "parameters/GainPolyParametersSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace orvane::test;

// Opens the private steps to the tests.
class CalibrationGainPolyInspector {
public:
    explicit CalibrationGainPolyInspector(CalibrationGainPoly& c) : c(c) {}
    std::vector<ImagePtr<float>>& Doses() { return c.doseImages; }
    std::vector<ImagePtr<float>>& Coefficients() { return c.coefficients; }
    const std::vector<int>& FramesPerDose() { return c.framesPerDose; }
    ImagePtr<unsigned char> Mask() { return c.maskImage; }
    bool Invert(float** m) { return c._InvertMatrix(m); }
    void Average(float* v, int r, int n, bool along, float* good, float* out) {
        c._RobustMovingAverage(v, r, n, along, good, out);
    }
    void DetectBad(float* v, int n, float* good) { c._DetectingBadPixels(v, 1, n, true, good); }
    void DenoiseArea(float* v, int r, int n, float* out, unsigned char* mask) { c._DenoisingArea(v, r, n, out, mask); }
    void Denoise() { c._ComputeLinearCoefficients(); c._DenoisingCalibrationImage(); }
    void Format() { c._FormattingCoefficient(); }

private:
    CalibrationGainPoly& c;
};

namespace {

// Opens the protected steps of the gain base class.
class GainSteps : public CalibrationGain {
public:
    void Init() override {}
    void Clear() override {}
    using CalibrationGain::_AverageGaussianFit;
    using CalibrationGain::_AverageMean;
    using CalibrationGain::_EffectivePixel;
    using CalibrationGain::_ExtractGoodPixelInMeasureArea;
    using CalibrationGain::_Normalizing;

private:
    const std::string _GetCalibrationType() override { return "GainSteps"; }
};

// A 12 x 8 panel: normalising area columns 2..9, rows 1..6; gain clipped to [0.25, 4];
// Gaussian fit 3 sigmas / 5 %; two 2 x 2 measure areas, at (3, 2) and (6, 4).
GainLinearParameters LinearParameters(bool invert = false) {
    return GainLinearParameters{invert, 1, 6, 2, 8, 0.25f, 4.0f, 3, 0.05f, {ROI(2, 3, 2, 2), ROI(4, 6, 2, 2)}};
}

struct GainFixture {
    explicit GainFixture(const GainLinearParameters& parameters)
        : parameters(parameters), store(boost::make_shared<ReferenceGainLinear>(12, 8)),
          dm(boost::make_shared<ReferenceDM>(12, 8)), calibration(this->parameters, store, dm) {
        calibration.Init();
    }
    std::vector<float> Gain() {
        auto gain = MakeImage<float>(12, 8);
        store->DeCompressImage(store->GetGainLinear(), gain);
        return Pixels(gain);
    }
    // The logged lines of one calculation on the frames, or on the series so far without
    // frames; a failure is logged too.
    std::vector<std::string> Calculate(const std::vector<Frame>& frames) {
        LogCapture log;
        try {
            frames.empty() ? calibration.CalculateGainReference() : calibration.CalculateGainReference(frames);
        } catch (const CalibrationException&) {
        }
        return log.lines;
    }

    GainLinearParameters parameters;
    boost::shared_ptr<ReferenceGainLinear> store;
    boost::shared_ptr<ReferenceDM> dm;
    CalibrationGainLinear calibration;
};

// The scaled normal matrix of five doses in a ratio near 1:2:3:4:5 has a condition
// number of 4.1e3; a float solution is good to that many float epsilons, and a few
// times more for the rounding of the sums.
constexpr double kFitTolerance = 4.1e3 * 0x1p-24 * 8;

// Whether `call` throws E while the log receives a line containing `text`.
template <typename E, typename Call>
bool FailsLogging(const std::string& text, Call call) {
    LogCapture log;
    try {
        call();
    } catch (const E&) {
        return Contains(log.lines, text);
    }
    return false;
}

// Factors 4, band 6 sigmas, windows 241, Gaussian fit 3 sigmas / 5 %, one 2 x 2 measure area.
GainPolyParameters Parameters() {
    return GainPolyParameters{0.0f, 0.0f, 4, 4, 6, 241, 241, 3, 0.05f, {}, {ROI(0, 0, 2, 2)}};
}

// A panel with a valid defect map, a linear gain of 1.0 and an initialised calibration.
struct PolyFixture {
    PolyFixture(int width, int height, int doses, const GainPolyParameters& p = Parameters())
        : parameters(p), store(boost::make_shared<ReferenceGainPoly>(width, height)),
          linear(boost::make_shared<ReferenceGainLinear>(width, height)),
          dm(boost::make_shared<ReferenceDM>(width, height)), calibration(parameters, store, linear, dm, doses),
          inspect(calibration) {
        dm->SetValid(true);
        linear->CompressImage(MakeFilled<float>(width, height, 1.0f), linear->GetGainLinear());
        calibration.Init();
    }
    // One dose of `frames` equal frames: `level` everywhere but the listed pixels.
    void Dose(unsigned short level, std::vector<std::pair<int, unsigned short>> pixels = {}, int frames = 1,
              float weight = 1.0f) {
        Frame frame = MakeFilled<unsigned short>(dm->GetDM()->GetWidth(), dm->GetDM()->GetHeight(), level);
        for (const auto& pixel : pixels) frame->GetData()[pixel.first] = pixel.second;
        for (int i = 0; i < frames; ++i) calibration.AccumulateGainImg(frame);
        calibration.DivideAccumulation(weight);
    }
    float Coefficient(int k, int index) { return inspect.Coefficients().at(k)->GetData()[index]; }

    GainPolyParameters parameters;
    boost::shared_ptr<ReferenceGainPoly> store;
    boost::shared_ptr<ReferenceGainLinear> linear;
    boost::shared_ptr<ReferenceDM> dm;
    CalibrationGainPoly calibration;
    CalibrationGainPolyInspector inspect;
};

// The weighted least-squares cubic through the origin: its normal equations, solved
// in double by plain elimination.
std::vector<double> NaiveFit(const std::vector<double>& x, const std::vector<double>& y, const std::vector<double>& w) {
    double a[3][4] = {};
    for (size_t i = 0; i < x.size(); ++i) {
        for (int j = 0; j < 3; ++j) {
            a[j][3] += w[i] * y[i] * std::pow(x[i], j + 1);
            for (int k = 0; k < 3; ++k) a[j][k] += w[i] * std::pow(x[i], j + k + 2);
        }
    }
    for (int p = 0; p < 3; ++p)
        for (int r = 0; r < 3; ++r)
            for (int c = 3; c >= p && r != p; --c) a[r][c] -= a[r][p] / a[p][p] * a[p][c];
    return {a[0][3] / a[0][0], a[1][3] / a[1][1], a[2][3] / a[2][2]};
}

// Each coefficient's contribution at x = 500 agrees within the fit tolerance of 500.
void ExpectFit(const std::vector<double>& expected, PolyFixture& f, int index) {
    for (int k = 0; k < 3; ++k) {
        EXPECT_LE(std::fabs(f.Coefficient(k, index) - expected[k]) * std::pow(500.0, k + 1), kFitTolerance * 500)
            << "pixel " << index << " coefficient " << k << ": " << f.Coefficient(k, index) << " for " << expected[k];
    }
}

}  // namespace

TEST(CalibrationGainPoly, DosesAreMeansOfTheirOwnFramesAndCopiesOfASingleOne) {
    PolyFixture f(4, 2, 2);
    Frame a = MakeImage<unsigned short>(4, 2, {1, 2, 3, 4, 5, 6, 7, 65535});
    a->SetProperty("image.time", 5);
    f.calibration.AccumulateGainImg(a);
    f.calibration.DivideAccumulation(1.5f);
    for (unsigned short v : {10, 13, 13}) f.calibration.AccumulateGainImg(MakeFilled<unsigned short>(4, 2, v));
    f.calibration.DivideAccumulation(2.0f);
    EXPECT_EQ((std::vector<float>{1, 2, 3, 4, 5, 6, 7, 65535}), Pixels(f.inspect.Doses()[0]));
    EXPECT_EQ(5, f.inspect.Doses()[0]->GetProperty<int>("image.time"));
    EXPECT_EQ(std::vector<float>(8, 12.0f), Pixels(f.inspect.Doses()[1]));
    EXPECT_EQ((std::vector<int>{1, 3}), f.inspect.FramesPerDose());

    EXPECT_TRUE(FailsLogging<CalibrationException>("CalibrationGainPoly: DivideAccumulation failed, not enough buffer "
                                                   "available", [&] { f.calibration.DivideAccumulation(1.0f); }));
    EXPECT_EQ(2u, f.inspect.Doses().size());
    EXPECT_TRUE(FailsLogging<CalibrationException>("CalibrationGainPoly: AccumulateGainImg failed\n",
                                                   [&] { f.calibration.AccumulateGainImg(nullptr); }));
    f.calibration.Clear();
    EXPECT_THROW(f.calibration.AccumulateGainImg(a), CalibrationException);
}

// Pixels at the level of their dose fit y = x, defects too; pixels at 0 fit nothing;
// the weight of a dose is frames x dose weight / (x + 1). The normal matrix is inverted
// without pivot search.
TEST(CalibrationGainPoly, WeightedFitOfEveryPixelAndInversionWithoutPivotSearch) {
    PolyFixture f(6, 4, 5);
    const int pixel = 2 * 6 + 3, zero = 1 * 6 + 5, defect = 3 * 6 + 2;
    f.dm->GetDM()->GetData()[defect] = 1;
    const std::vector<double> x{90, 210, 290, 410, 480}, y{100, 200, 300, 400, 500};
    const int frames[5] = {1, 2, 1, 3, 1};
    const float weights[5] = {1.0f, 0.5f, 2.0f, 1.0f, 4.0f};
    std::vector<double> w;
    for (int i = 0; i < 5; ++i) {
        f.Dose(100 * (i + 1), {{pixel, static_cast<int>(x[i])}, {zero, 0}}, frames[i], weights[i]);
        w.push_back(frames[i] * weights[i] / (x[i] + 1.0));
    }
    LogCapture log;
    f.calibration.CalculateGainReference();
    EXPECT_EQ(Succeeded("CalibrationGainPoly : CalculateGainReference"), log.lines);
    ExpectFit(NaiveFit(x, y, w), f, pixel);  // the data are no cubic, so the weights matter
    for (int index : {0, 8, defect}) ExpectFit({1.0, 0.0, 0.0}, f, index);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(0.0f, f.Coefficient(k, zero));
    auto back = MakeImage<float>(6, 4);
    f.store->DeCompressImage(0, f.store->GetGainPoly()[0], back);
    EXPECT_NEAR(1.0, back->GetData()[0], kFitTolerance + f.store->GetScale(0) / 65534);
    EXPECT_EQ(0.0f, back->GetData()[zero]);

    float rows[3][3] = {{4, 7, 2}, {3, 6, 1}, {2, 5, 3}};           // determinant 9
    float swap[3][3] = {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}};           // invertible, but the first pivot is 0
    float nan[3][3] = {{1, 0, 0}, {0, std::nanf(""), 0}, {0, 0, 1}};  // not finite
    float last[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 0}};             // the last pivot is 0
    float *m[3] = {rows[0], rows[1], rows[2]}, *q[3] = {swap[0], swap[1], swap[2]}, *z[3] = {nan[0], nan[1], nan[2]},
          *l[3] = {last[0], last[1], last[2]};
    EXPECT_FALSE(f.inspect.Invert(q) || f.inspect.Invert(z) || f.inspect.Invert(l));
    ASSERT_TRUE(f.inspect.Invert(m));
    const double inverse[3][3] = {{13, -11, -5}, {-7, 8, 2}, {3, -6, 3}};  // times 1/9
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(inverse[r][c] / 9, rows[r][c], 1e-6) << r << c;
}

TEST(CalibrationGainPoly, EveryThreadCountGivesTheSameCoefficientsWithAndWithoutDenoising) {
    // 60 x 290 pixels (several pieces of the fit) and a denoised area of 280 rows x 50
    // columns (several pieces of lines each way), three doses with noise and outliers.
    GainPolyParameters p = Parameters();
    p.DenoiseAreas = {ROI(5, 5, 280, 50)};
    const auto run = [&](bool denoised) {
        PolyFixture f(60, 290, 3, p);
        for (int dose = 1; dose <= 3; ++dose) {
            std::vector<std::pair<int, unsigned short>> pixels;
            for (int i = 0; i < 60 * 290; ++i) {
                const int noise = (i * 7 + (i / 60) * 13 + dose * 5) % 23;
                pixels.push_back({i, static_cast<unsigned short>(i % 997 == 3 ? 9000 : 1000 * dose + noise)});
            }
            f.Dose(0, pixels, 1, 1.0f + 0.25f * dose);
        }
        denoised ? f.calibration.CalculateDenoisedGainReference() : f.calibration.CalculateGainReference();
        std::vector<std::vector<float>> result;
        for (const auto& image : f.inspect.Coefficients()) result.push_back(Pixels(image));
        for (const auto& image : f.store->GetGainPoly()) {
            const auto words = Pixels(image);
            result.emplace_back(words.begin(), words.end());
        }
        return result;
    };
    for (const bool denoised : {false, true}) {
        orvane::SetThreadCount(1);
        const auto one = run(denoised);
        for (const int threads : {2, 7}) {
            orvane::SetThreadCount(threads);
            EXPECT_EQ(one, run(denoised)) << threads << " threads, denoised " << denoised;
        }
    }
    orvane::SetThreadCount(0);
}

TEST(CalibrationGainPolyDenoise, MovingAverageMatchesADirectWindowedMeanBadPixelsAndFlatAreas) {
    GainPolyParameters p = Parameters();
    std::vector<float> v(150), good(150), out(150);
    for (int i = 0; i < 150; ++i) {
        v[i] = static_cast<float>((i * 7919) % 1000);
        good[i] = (i * 31) % 5 == 0 ? 0.0f : ((i * 17) % 13 == 0 ? 0.5f : 1.0f);  // 0.5 is not good
    }
    for (int window : {1, 2, 3, 7, 241}) {
        p.RowWindow = p.ColumnWindow = window;
        PolyFixture f(2, 1, 1, p);
        for (bool alongRows : {true, false}) {
            const int length = alongRows ? 50 : 3, h = (window - 1) / 2;  // 3 rows x 50 columns
            f.inspect.Average(v.data(), 3, 50, alongRows, good.data(), out.data());
            for (int i = 0; i < 150; ++i) {  // lines are runs of `length` consecutive samples
                const int start = i - i % length;
                double sum = 0;
                int n = 0;
                for (int j = std::max(start, i - h); j <= std::min(start + length - 1, i + h); ++j) {
                    if (good[j] == 1.0f) sum += v[j], ++n;
                }
                const float expected = n ? static_cast<float>(static_cast<float>(sum) / static_cast<double>(n)) : 0.0f;
                ASSERT_EQ(expected, out[i]) << window << " " << alongRows << " " << i;
            }
        }
    }
    // Band of 1.5 x factor 1 x sigma along rows: the mean is 10 and sigma 30, so 100 is out.
    p = Parameters();
    p.RowSigmaFactor = 1;
    PolyFixture f(2, 1, 1, p);
    std::vector<float> line{0, 0, 0, 0, 0, 0, 0, 0, 0, 100}, flags(10, -1.0f);
    f.inspect.DetectBad(line.data(), 10, flags.data());
    EXPECT_EQ((std::vector<float>{1, 1, 1, 1, 1, 1, 1, 1, 1, 0}), flags);
    // A flat area is its own estimate, and all of it lies within the band.
    std::vector<float> area(7 * 5, 7.25f), estimate(35, -1.0f);
    std::vector<unsigned char> mask(35, 9);
    f.inspect.DenoiseArea(area.data(), 7, 5, estimate.data(), mask.data());
    EXPECT_EQ(area, estimate);
    EXPECT_EQ(std::vector<unsigned char>(35, 1), mask);
}

// A 60 x 110 panel, one area of 100 rows x 50 columns at (5, 5), noise of +-5 around
// 1000, and a far outlier in each of two doses.
TEST(CalibrationGainPolyDenoise, OutliersKeepTheirValueUnlessEstimatedAtAnEarlierDose) {
    GainPolyParameters p = Parameters();
    p.DenoiseAreas = {ROI(5, 5, 100, 50)};
    PolyFixture f(60, 110, 2, p);
    std::vector<std::pair<int, unsigned short>> noisy;
    for (int i = 0; i < 60 * 110; ++i) noisy.push_back({i, 995 + (i * 7 + (i / 60) * 13) % 11});
    const int first = 40 * 60 + 20, second = 70 * 60 + 30;
    for (int outlier : {first, second}) {
        auto pixels = noisy;
        pixels[outlier].second = 5000;
        f.Dose(0, pixels);
    }
    f.inspect.Denoise();
    const auto mask = Pixels(f.inspect.Mask());
    const auto dose0 = Pixels(f.inspect.Doses()[0]), dose1 = Pixels(f.inspect.Doses()[1]);
    for (int i = 0; i < 60 * 110; ++i) {
        const int x = i % 60, y = i / 60;
        if (y < 5 || y >= 105 || x < 5 || x >= 55) {
            ASSERT_EQ(0, mask[i]) << i;
            ASSERT_EQ(noisy[i].second, dose0[i]) << i;
        } else if (i != first && i != second) {
            ASSERT_EQ(2, mask[i]) << i;
            ASSERT_NEAR(1000.0f, dose0[i], 8.0f) << i;  // the outlier pulls no average
        }
    }
    EXPECT_EQ((std::vector<int>{1, 1}), (std::vector<int>{mask[first], mask[second]}));
    EXPECT_EQ(5000.0f, dose0[first]);
    EXPECT_NEAR(1000.0f, dose1[second], 8.0f);
}

TEST(CalibrationGainPolyDenoise, LinearGainIsDividedOutFormattedWhereItIsZeroAndFoldedBack) {
    PolyFixture f(3, 1, 1);
    f.linear->CompressImage(MakeImage<float>(3, 1, {2.0f, 0.0f, 0.5f}), f.linear->GetGainLinear());
    f.Dose(300);
    f.inspect.Denoise();  // no denoise area
    EXPECT_EQ((std::vector<float>{150, 0, 600}), Pixels(f.inspect.Doses()[0]));
    for (int k = 0; k < 3; ++k) f.inspect.Coefficients().push_back(MakeFilled<float>(3, 1, 8.0f));
    f.inspect.Format();
    for (int k = 0; k < 3; ++k)  // coefficient k / g^(k+1)
        EXPECT_EQ((std::vector<float>{8.0f / (2 << k), 0, 8.0f * (2 << k)}), Pixels(f.inspect.Coefficients()[k])) << k;
    f.inspect.Coefficients().clear();  // not pool images

    GainPolyParameters p = Parameters();  // the denoised reference folds the linear gain back
    p.DenoiseAreas = {ROI(0, 0, 10, 12)};
    PolyFixture g(12, 10, 5, p);
    const int pixel = 5 * 12 + 6;
    auto gain = MakeFilled<float>(12, 10, 1.0f);
    gain->GetData()[pixel] = 2.0f;
    g.linear->CompressImage(gain, g.linear->GetGainLinear());
    for (int level = 100; level <= 500; level += 100) g.Dose(level, {{pixel, 2 * level}});
    g.calibration.CalculateDenoisedGainReference();
    ExpectFit({0.5, 0.0, 0.0}, g, pixel);
    ExpectFit({1.0, 0.0, 0.0}, g, 0);
}

TEST(CalibrationGainPoly, FailuresOfBothRoadsAndWhichOfThemReachTheHost) {
    GainPolyParameters offMeasure = Parameters(), offDenoise = Parameters();
    offMeasure.MeasureAreas.push_back(ROI(1, 3, 2, 2));  // leaves the 4 x 2 panel
    offDenoise.DenoiseAreas = {ROI(1, 2, 2, 3)};         // leaves it too
    PolyFixture invalid(4, 2, 1), fewer(4, 2, 2), none(4, 2, 0), offPanel(4, 2, 1, offMeasure), empty(4, 2, 1),
        missing(4, 2, 2), off(4, 2, 1, offDenoise);
    for (PolyFixture* f : {&invalid, &fewer, &offPanel, &missing, &off}) f->Dose(100);
    invalid.dm->SetValid(false);
    const std::string fit = "CalibrationGainPoly: _CalculateGainWithoutDenoise failed";
    EXPECT_TRUE(FailsLogging<CalibrationException>(fit + " due to invalid DM reference",
                                                   [&] { invalid.calibration.CalculateGainReference(); }));
    EXPECT_TRUE(FailsLogging<CalibrationException>(fit + " due to wrong number of acquistion",
                                                   [&] { fewer.calibration.CalculateGainReference(); }));
    // Failures inside the fit are only logged, the area's with its text; the missing
    // coefficient images then stop the compression.
    EXPECT_TRUE(FailsLogging<std::out_of_range>("E " + fit + " : calibration/",
                                                [&] { offPanel.calibration.CalculateGainReference(); }));
    EXPECT_TRUE(FailsLogging<std::out_of_range>("E " + fit + "\n", [&] { none.calibration.CalculateGainReference(); }));

    const std::string denoise = "CalibrationGainPoly: _DenoisingCalibrationImage failed";
    EXPECT_TRUE(FailsLogging<CalibrationException>(denoise + " due to empty calibration stack",
                                                   [&] { empty.calibration.CalculateDenoisedGainReference(); }));
    EXPECT_TRUE(FailsLogging<CalibrationException>("E " + denoise + "\n",  // logged; then the fit fails
                                                   [&] { missing.calibration.CalculateDenoisedGainReference(); }));
    EXPECT_TRUE(FailsLogging<CalibrationException>("CalibrationGainPoly: _ExtractingUsedArea failed because the area "
                                                   "leaves the image",
                                                   [&] { off.calibration.CalculateDenoisedGainReference(); }));
}

TEST(GainPolyParametersSet, StoredRowsHaveDisjointDenoiseAreasAndNoDefaultRow) {
    EXPECT_EQ(0u, s_gainPolyParametersSet.GetBaseRows().count(""));
    for (const char* key : {"Birch", "Cedar"}) {
        const GainPolyParameters& row = s_gainPolyParametersSet.lookup(key);
        ASSERT_FALSE(row.DenoiseAreas.empty());
        EXPECT_EQ(16u, row.MeasureAreas.size());
        for (size_t a = 0; a < row.DenoiseAreas.size(); ++a) {
            for (size_t b = a + 1; b < row.DenoiseAreas.size(); ++b) {
                const ROI &u = row.DenoiseAreas[a], &v = row.DenoiseAreas[b];
                EXPECT_TRUE(u.top + u.height <= v.top || v.top + v.height <= u.top || u.left + u.width <= v.left ||
                            v.left + v.width <= u.left)
                    << key << " " << a << " " << b;
            }
        }
    }
}

// Good pixels are those at most the threshold inside the map, collected row after row.
TEST(CalibrationGain, GoodPixelsTheirLevelsTheirMeanAndNormalizing) {
    GainSteps steps;
    auto map = MakeImage<unsigned char>(3, 2, {0, 1, 255, 0, 0, 0});
    for (int index : {-1, 0, 1, 2, 5, 6}) EXPECT_EQ(index == 0 || index == 5, steps._EffectivePixel(map, index)) << index;
    auto image = MakeImage<float>(4, 3, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    map = MakeImage<unsigned char>(4, 3, {0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0});
    float buffer[6] = {-1, -1, -1, -1, -1, -1};
    int count = -1;
    steps._ExtractGoodPixelInMeasureArea(image, map, ROI(1, 1, 2, 3), buffer, count);  // to the corner
    EXPECT_EQ(5, count);
    EXPECT_EQ((std::vector<float>{5, 7, 9, 10, 11, -1}), std::vector<float>(buffer, buffer + 6));
    // A map shorter than the image: its missing pixels are not good.
    steps._ExtractGoodPixelInMeasureArea(image, MakeImage<unsigned char>(4, 2), ROI(1, 0, 2, 2), buffer, count);
    EXPECT_EQ(2, count);

    LogCapture log;
    EXPECT_THROW(steps._ExtractGoodPixelInMeasureArea(image, map, ROI(2, 1, 2, 2), buffer, count), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _ExtractGoodPixelInMeasureArea failed\n"));

    std::vector<float> values(100, 7.0f);
    values.push_back(5000.0f);
    EXPECT_EQ(7.0f, steps._AverageGaussianFit(values.data(), 101, 3, 0.05f));
    EXPECT_TRUE(std::isnan(steps._AverageGaussianFit(values.data(), 0, 3, 0.05f)));
    float levels[] = {1, 2, 3, 6}, large[] = {16777216.0f, 1.0f, 1.0f};
    float mean = 0.0f;
    steps._AverageMean(levels, 4, mean);
    EXPECT_EQ(3.0f, mean);
    steps._AverageMean(levels, 0, mean);  // keeps the mean
    EXPECT_EQ(3.0f, mean);
    steps._AverageMean(large, 3, mean);  // the sum is kept in float: 2^24 + 1 + 1 stays 2^24
    EXPECT_EQ(static_cast<float>(16777216.0 / 3), mean);

    // Divides inside the area and gives 1 outside it; the guards of the steps are
    // left out, as no calibration can hand them a missing or mismatched image.
    auto source = MakeImage<float>(4, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    auto target = MakeFilled<float>(4, 3, -9.0f);
    QuadPart area(1, 3, 1, 9);  // rows past the image are left out
    steps._Normalizing(source, 3.0f, area, target);
    EXPECT_EQ((std::vector<float>{1, 1, 1, 1, 1, 6 / 3.0f, 7 / 3.0f, 1, 1, 10 / 3.0f, 11 / 3.0f, 1}), Pixels(target));
}

TEST(CalibrationGainLinear, GainIsNormalisedByTheLevelOfTheGoodMeasurePixelsClippedInvertedAndOneOutsideTheArea) {
    struct Case { int x, y; unsigned short value; double gain, inverted; };
    const double top = 65535 / 16384.0;  // the store's highest gain
    const std::vector<Case> cases{
        {8, 2, 2000, 2.0, 0.5}, {8, 3, 10000, top, 0.25}, {8, 4, 0, 0.25, top}, {8, 5, 1250, 1.25, 0.8},
        {2, 1, 2000, 2.0, 0.5}, {9, 6, 2000, 2.0, 0.5},  // the corners of the normalising area
        {1, 1, 2000, 1, 1},     {10, 6, 2000, 1, 1},     {2, 0, 2000, 1, 1}, {9, 7, 2000, 1, 1}, {5, 5, 1000, 1, 1}};
    for (bool invert : {false, true}) {
        GainFixture f(LinearParameters(invert));
        Frame frame = MakeFilled<unsigned short>(12, 8, 1000);
        for (const Case& c : cases) frame->GetData()[c.y * 12 + c.x] = c.value;
        frame->SetProperty("image.time", 77);
        const std::vector<std::string> log = f.Calculate({frame});
        const std::vector<float> gain = f.Gain();
        for (const Case& c : cases)
            EXPECT_NEAR(invert ? c.inverted : c.gain, gain[c.y * 12 + c.x], 1.0 / 32768) << c.x << ", " << c.y;
        EXPECT_EQ(invert, f.store->GetGainInversion());
        EXPECT_EQ(77, f.store->GetGainLinear()->GetProperty<int>("image.time"));
        EXPECT_EQ((std::vector<std::string>{"I CalibrationGainLinear : CalculateGainReference\n",
                                            "I GainLinear AverageMean : 1000\n",
                                            "I CalibrationGainLinear : CalculateGainReference succeed\n"}),
                  log);
    }

    // The level is the mean of the measure areas' levels over their good pixels.
    GainLinearParameters none = LinearParameters(true);
    none.MeasureAreas.clear();
    GainFixture f(LinearParameters()), g(LinearParameters()), h(none);
    Frame frame = MakeFilled<unsigned short>(12, 8, 1000);
    frame->GetData()[2 * 12 + 3] = 3000;  // a defect in the first measure area: normalised all the same
    f.dm->GetDM()->GetData()[2 * 12 + 3] = 1;
    EXPECT_TRUE(Contains(f.Calculate({frame}), "GainLinear AverageMean : 1000\n"));
    EXPECT_EQ(3.0f, f.Gain()[2 * 12 + 3]);
    // A measure area of defects only has no level: the mean is NaN, which the store
    // keeps as "no usable gain" inside the normalising area; nothing fails.
    for (int i : {2 * 12 + 3, 2 * 12 + 4, 3 * 12 + 3, 3 * 12 + 4}) g.dm->GetDM()->GetData()[i] = 9;
    EXPECT_TRUE(Contains(g.Calculate({frame}), "nan\n"));  // "nan" or "-nan"
    EXPECT_EQ(0.0f, g.Gain()[3 * 12 + 5]);
    EXPECT_EQ(1.0f, g.Gain()[0]);
    // No measure area leaves the mean at 0, and the gain at 1.0 everywhere.
    EXPECT_TRUE(Contains(h.Calculate({frame}), "GainLinear AverageMean : 0\n"));
    EXPECT_EQ(std::vector<float>(96, 1.0f), h.Gain());
}

// A series fed frame by frame, with an Init in between, gives what the series gives.
TEST(CalibrationGainLinear, FrameByFrameMatchesTheSeriesInitKeepsItClearStartsAnewFailuresCarryTheirMessages) {
    std::vector<Frame> frames;
    for (int k = 0; k < 3; ++k) {
        frames.push_back(MakeImageOf<unsigned short>(12, 8, [k](int x, int y) { return 900 + ((y * 12 + x) * 37 + k * 11) % 200; }));
    }
    GainFixture series(LinearParameters()), single(LinearParameters());
    const std::vector<std::string> lines = series.Calculate(frames);
    single.calibration.AccumulateGainImg(frames[0]);
    single.calibration.Init();
    for (int k = 1; k < 3; ++k) single.calibration.AccumulateGainImg(frames[k]);
    single.calibration.DivideAccumulation();
    EXPECT_EQ(lines, single.Calculate({}));
    EXPECT_EQ(series.Gain(), single.Gain());

    single.calibration.Clear();
    EXPECT_TRUE(Contains(single.Calculate({}), "CalibrationGainLinear: CalculateGainReference failed due to null pointer"));
    single.calibration.Init();
    single.calibration.DivideAccumulation();  // no frame: 0 / 0
    EXPECT_TRUE(Contains(single.Calculate({}), "nan\n"));

    EXPECT_EQ("CalibrationGainLinear::CalculateGainReference failed due uncorrect number of images",
              FailureText([&] { series.calibration.CalculateGainReference(std::vector<Frame>{}); }));
    EXPECT_EQ("CalibrationGainLinear: AccumulateGainImg failed",
              FailureText([&] { series.calibration.AccumulateGainImg(nullptr); }));
    // A measure area off the panel fails inside the calculation, which says so last.
    GainLinearParameters p = LinearParameters();
    p.MeasureAreas.push_back(ROI(7, 0, 2, 2));
    GainFixture g(p);
    g.store->SetGainInversion(true);
    LogCapture log;
    EXPECT_EQ("CalibrationGainLinear: CalculateGainReference failed",
              FailureText([&] { g.calibration.CalculateGainReference({MakeFilled<unsigned short>(12, 8, 10)}); }));
    ASSERT_FALSE(log.lines.empty());
    EXPECT_NE(std::string::npos, log.lines.back().find("CalibrationGainLinear: CalculateGainReference failed\n"));
    EXPECT_TRUE(g.store->GetGainInversion());  // untouched without InvertGain
}
