#include "TestImages.h"

#include "calibration/CalibrationGainPoly.h"
#include "parameters/GainPolyParametersSet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;

// Opens the private steps to the tests.
class CalibrationGainPolyInspector {
public:
    explicit CalibrationGainPolyInspector(CalibrationGainPoly& c) : c(c) {}
    std::vector<ImagePtr<float>>& Doses() { return c.doseImages; }
    std::vector<ImagePtr<float>>& Coefficients() { return c.coefficients; }
    ImagePtr<unsigned char> Mask() { return c.maskImage; }
    bool Invert(float** m) { return c._InvertMatrix(m); }
    void Average(std::vector<float>& v, int rows, int columns, bool alongRows, std::vector<float>& good,
                 std::vector<float>& out) {
        c._RobustMovingAverage(v.data(), rows, columns, alongRows, good.data(), out.data());
    }
    void DetectBad(std::vector<float>& v, int rows, int columns, std::vector<float>& good) {
        c._DetectingBadPixels(v.data(), rows, columns, true, good.data());
    }
    void DenoiseArea(std::vector<float>& v, int rows, int columns, std::vector<float>& out,
                     std::vector<unsigned char>& mask) {
        c._DenoisingArea(v.data(), rows, columns, out.data(), mask.data());
    }
    void Denoise() {
        c._ComputeLinearCoefficients();
        c._DenoisingCalibrationImage();
    }
    void Format() { c._FormattingCoefficient(); }
    const std::vector<int>& FramesPerDose() { return c.framesPerDose; }

private:
    CalibrationGainPoly& c;
};

namespace {

using Frame = ImagePtr<unsigned short>;

// The scaled normal matrix of five doses in the ratio 1:2:3:4:5 has a condition
// number of 4.1e3; a float solution is good to that many float epsilons, and a few
// times more for the rounding of the sums.
constexpr double kFitTolerance = 4.1e3 * 0x1p-24 * 8;

bool Contains(const std::vector<std::string>& lines, const std::string& text) {
    for (const auto& line : lines) {
        if (line.find(text) != std::string::npos) return true;
    }
    return false;
}

GainPolyParameters Parameters() {
    GainPolyParameters p;
    p.RowSigmaFactor = p.ColumnSigmaFactor = 4;
    p.MaskSigmas = 6;
    p.RowWindow = p.ColumnWindow = 241;
    p.GfaSigmas = 3;
    p.GfaTolerance = 0.05f;
    p.MeasureAreas = {ROI(0, 0, 2, 2)};
    return p;
}

struct PolyFixture {
    PolyFixture(int width, int height, int doses, const GainPolyParameters& p = Parameters())
        : width(width), height(height), parameters(p),
          store(boost::make_shared<ReferenceGainPoly>(width, height)),
          linear(boost::make_shared<ReferenceGainLinear>(width, height)),
          dm(boost::make_shared<ReferenceDM>(width, height)),
          calibration(parameters, store, linear, dm, doses), inspect(calibration) {
        dm->SetValid(true);
        linear->CompressImage(MakeFilled<float>(width, height, 1.0f), linear->GetGainLinear());
        calibration.Init();
    }

    // One dose of `frames` equal frames: `level` everywhere but the listed pixels.
    void Dose(unsigned short level, std::vector<std::pair<int, unsigned short>> pixels = {},
              int frames = 1, float weight = 1.0f) {
        Frame frame = MakeFilled<unsigned short>(width, height, level);
        for (const auto& pixel : pixels) frame->GetData()[pixel.first] = pixel.second;
        for (int i = 0; i < frames; ++i) calibration.AccumulateGainImg(frame);
        calibration.DivideAccumulation(weight);
    }

    float Coefficient(int k, int index) { return inspect.Coefficients().at(k)->GetData()[index]; }

    int width, height;
    GainPolyParameters parameters;
    boost::shared_ptr<ReferenceGainPoly> store;
    boost::shared_ptr<ReferenceGainLinear> linear;
    boost::shared_ptr<ReferenceDM> dm;
    CalibrationGainPoly calibration;
    CalibrationGainPolyInspector inspect;
};

// The weighted least-squares cubic through the origin, in double (Cramer's rule).
std::vector<double> NaiveFit(const std::vector<double>& x, const std::vector<double>& y,
                             const std::vector<double>& w) {
    double m[3][3] = {}, b[3] = {};
    for (size_t i = 0; i < x.size(); ++i) {
        for (int j = 0; j < 3; ++j) {
            b[j] += w[i] * y[i] * std::pow(x[i], j + 1);
            for (int k = 0; k < 3; ++k) m[j][k] += w[i] * std::pow(x[i], j + k + 2);
        }
    }
    auto det = [](double a[3][3]) {
        return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
               a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
    };
    std::vector<double> c(3);
    for (int k = 0; k < 3; ++k) {
        double a[3][3];
        for (int r = 0; r < 3; ++r)
            for (int s = 0; s < 3; ++s) a[r][s] = s == k ? b[r] : m[r][s];
        c[k] = det(a) / det(m);
    }
    return c;
}

// Each coefficient's contribution at x = 500 agrees within the fit tolerance of 500.
void ExpectFit(const std::vector<double>& expected, PolyFixture& f, int index) {
    for (int k = 0; k < 3; ++k) {
        EXPECT_LE(std::fabs(f.Coefficient(k, index) - expected[k]) * std::pow(500.0, k + 1), kFitTolerance * 500)
            << "coefficient " << k << ": " << f.Coefficient(k, index) << " for " << expected[k];
    }
}

}  // namespace

TEST(CalibrationGainPoly, DosesAreMeansOfTheirOwnFramesAndCopiesOfASingleOne) {
    PolyFixture f(4, 2, 2);
    Frame a = MakeImage<unsigned short>(4, 2, {1, 2, 3, 4, 5, 6, 7, 65535});
    a->SetProperty("image.time", 5);
    f.calibration.AccumulateGainImg(a);
    f.calibration.DivideAccumulation(1.5f);
    f.calibration.AccumulateGainImg(MakeFilled<unsigned short>(4, 2, 10));
    f.calibration.AccumulateGainImg(MakeFilled<unsigned short>(4, 2, 13));
    f.calibration.AccumulateGainImg(MakeFilled<unsigned short>(4, 2, 13));
    f.calibration.DivideAccumulation(2.0f);
    EXPECT_EQ((std::vector<float>{1, 2, 3, 4, 5, 6, 7, 65535}), Pixels(f.inspect.Doses()[0]));
    EXPECT_EQ(5, f.inspect.Doses()[0]->GetProperty<int>("image.time"));
    EXPECT_EQ(std::vector<float>(8, 12.0f), Pixels(f.inspect.Doses()[1]));
    EXPECT_EQ((std::vector<int>{1, 3}), f.inspect.FramesPerDose());

    LogCapture log;
    EXPECT_THROW(f.calibration.DivideAccumulation(1.0f), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGainPoly: DivideAccumulation failed, not enough buffer available"));
    EXPECT_EQ(2u, f.inspect.Doses().size());
    EXPECT_THROW(f.calibration.AccumulateGainImg(nullptr), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGainPoly: AccumulateGainImg failed\n"));
    f.calibration.Clear();
    EXPECT_THROW(f.calibration.AccumulateGainImg(a), CalibrationException);
}

TEST(CalibrationGainPoly, PixelsAtTheLevelGiveOneAndZeroPixelsGiveZero) {
    PolyFixture f(6, 4, 5);
    const int zero = 1 * 6 + 5, defect = 3 * 6 + 2;
    f.dm->GetDM()->GetData()[defect] = 1;  // fitted all the same
    for (unsigned short level = 100; level <= 500; level += 100) f.Dose(level, {{zero, 0}});
    LogCapture log;
    f.calibration.CalculateGainReference();
    EXPECT_EQ((std::vector<std::string>{"I CalibrationGainPoly : CalculateGainReference\n",
                                        "I CalibrationGainPoly : CalculateGainReference succeed\n"}),
              log.lines);
    for (int index : {0, 8, defect}) ExpectFit({1.0, 0.0, 0.0}, f, index);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(0.0f, f.Coefficient(k, zero));
    auto back = MakeImage<float>(6, 4);
    f.store->DeCompressImage(0, f.store->GetGainPoly()[0], back);
    EXPECT_NEAR(1.0, back->GetData()[0], kFitTolerance + f.store->GetScale(0) / 65534);
    EXPECT_EQ(0.0f, back->GetData()[zero]);
}

TEST(CalibrationGainPoly, RecoversAKnownCubicResponse) {
    PolyFixture f(6, 4, 5);
    const int pixel = 2 * 6 + 3;
    // y = 0.5 x + 1e-3 x^2 + 1e-6 x^3 at x = 100 ... 500.
    const unsigned short levels[] = {61, 148, 267, 424, 625};
    for (int i = 0; i < 5; ++i) f.Dose(levels[i], {{pixel, static_cast<unsigned short>(100 * (i + 1))}});
    f.calibration.CalculateGainReference();
    ExpectFit({0.5, 1e-3, 1e-6}, f, pixel);
}

TEST(CalibrationGainPoly, WeightsFollowFramesDoseWeightsAndPixelValue) {
    PolyFixture f(6, 4, 5);
    const int pixel = 2 * 6 + 3;
    const std::vector<double> x{100, 200, 300, 400, 500}, y{90, 210, 290, 410, 480};
    const std::vector<int> frames{1, 2, 1, 3, 1};
    const std::vector<float> weights{1.0f, 0.5f, 2.0f, 1.0f, 4.0f};
    std::vector<double> w;
    for (int i = 0; i < 5; ++i) {
        f.Dose(static_cast<unsigned short>(y[i]), {{pixel, static_cast<unsigned short>(x[i])}}, frames[i], weights[i]);
        w.push_back(frames[i] * weights[i] / (x[i] + 1.0));
    }
    f.calibration.CalculateGainReference();
    const std::vector<double> expected = NaiveFit(x, y, w);
    // The data are no cubic, so the weights matter far beyond the tolerance.
    const std::vector<double> unweighted = NaiveFit(x, y, std::vector<double>(5, 1.0));
    double apart = 0;
    for (int k = 0; k < 3; ++k) apart = std::max(apart, std::fabs(unweighted[k] - expected[k]) * std::pow(500.0, k));
    ASSERT_GT(apart, 10 * kFitTolerance);
    ExpectFit(expected, f, pixel);
}

TEST(CalibrationGainPoly, FailuresOfTheFitAndWhichOfThemReachTheHost) {
    LogCapture log;
    PolyFixture invalid(4, 2, 1);
    invalid.Dose(100);
    invalid.dm->SetValid(false);
    EXPECT_THROW(invalid.calibration.CalculateGainReference(), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGainPoly: _CalculateGainWithoutDenoise failed due to invalid DM reference"));

    PolyFixture fewer(4, 2, 2);
    fewer.Dose(100);
    EXPECT_THROW(fewer.calibration.CalculateGainReference(), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "failed due to wrong number of acquistion"));

    // A measure area off the panel fails inside the fit: logged with its text, and
    // the missing coefficient images then stop the compression.
    GainPolyParameters p = Parameters();
    p.MeasureAreas.push_back(ROI(1, 3, 2, 2));
    PolyFixture offPanel(4, 2, 1, p);
    offPanel.Dose(100);
    log.lines.clear();
    EXPECT_THROW(offPanel.calibration.CalculateGainReference(), std::out_of_range);
    EXPECT_TRUE(Contains(log.lines, "E CalibrationGainPoly: _CalculateGainWithoutDenoise failed : calibration/"));

    PolyFixture none(4, 2, 0);
    log.lines.clear();
    EXPECT_THROW(none.calibration.CalculateGainReference(), std::out_of_range);
    EXPECT_TRUE(Contains(log.lines, "E CalibrationGainPoly: _CalculateGainWithoutDenoise failed\n"));
}

TEST(CalibrationGainPoly, InvertMatrixWithoutPivotSearch) {
    PolyFixture f(2, 1, 1);
    float rows[3][3] = {{4, 7, 2}, {3, 6, 1}, {2, 5, 3}};  // determinant 9
    float* m[3] = {rows[0], rows[1], rows[2]};
    ASSERT_TRUE(f.inspect.Invert(m));
    const double inverse[3][3] = {{13 / 9.0, -11 / 9.0, -5 / 9.0}, {-7 / 9.0, 8 / 9.0, 2 / 9.0}, {3 / 9.0, -6 / 9.0, 3 / 9.0}};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(inverse[r][c], rows[r][c], 1e-6) << r << c;
    float permutation[3][3] = {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}};  // invertible, but the first pivot is 0
    float* q[3] = {permutation[0], permutation[1], permutation[2]};
    EXPECT_FALSE(f.inspect.Invert(q));
    float nan[3][3] = {{1, 0, 0}, {0, std::numeric_limits<float>::quiet_NaN(), 0}, {0, 0, 1}};
    float* z[3] = {nan[0], nan[1], nan[2]};
    EXPECT_FALSE(f.inspect.Invert(z));
}

TEST(CalibrationGainPolyDenoise, MovingAverageMatchesADirectWindowedMean) {
    GainPolyParameters p = Parameters();
    for (int window : {1, 2, 3, 7, 241}) {
        p.RowWindow = window;
        p.ColumnWindow = window;
        PolyFixture f(2, 1, 1, p);
        for (bool alongRows : {true, false}) {
            const int rows = 3, columns = 50, length = alongRows ? columns : rows, h = (window - 1) / 2;
            std::vector<float> v(150), good(150), out(150);
            for (int i = 0; i < 150; ++i) {
                v[i] = static_cast<float>((i * 7919) % 1000);
                good[i] = (i * 31) % 5 == 0 ? 0.0f : ((i * 17) % 13 == 0 ? 0.5f : 1.0f);  // 0.5 is not good
            }
            f.inspect.Average(v, rows, columns, alongRows, good, out);
            for (int start = 0; start < 150; start += length) {
                for (int i = 0; i < length; ++i) {
                    double sum = 0;
                    int n = 0;
                    for (int j = std::max(0, i - h); j <= std::min(length - 1, i + h); ++j) {
                        if (good[start + j] == 1.0f) sum += v[start + j], ++n;
                    }
                    const float expected = n ? static_cast<float>(static_cast<float>(sum) / static_cast<double>(n)) : 0.0f;
                    ASSERT_EQ(expected, out[start + i]) << window << " " << alongRows << " " << start + i;
                }
            }
        }
    }
}

TEST(CalibrationGainPolyDenoise, LinesAreRunsOfConsecutiveSamples) {
    GainPolyParameters p = Parameters();
    p.RowWindow = p.ColumnWindow = 3;
    PolyFixture f(2, 1, 1, p);
    std::vector<float> v{1, 2, 3, 4, 5, 6}, good(6, 1.0f), out(6);
    f.inspect.Average(v, 2, 3, false, good, out);  // three lines of two samples
    EXPECT_EQ((std::vector<float>{1.5f, 1.5f, 3.5f, 3.5f, 5.5f, 5.5f}), out);
    f.inspect.Average(v, 2, 3, true, good, out);  // two lines of three samples
    EXPECT_EQ((std::vector<float>{1.5f, 2, 2.5f, 4.5f, 5, 5.5f}), out);
    good = {0, 0, 1, 0, 0, 0};  // one good sample, then none
    f.inspect.Average(v, 2, 3, true, good, out);
    EXPECT_EQ((std::vector<float>{0, 3, 3, 0, 0, 0}), out);

    // Band of 1.5 x factor 1 x sigma: the mean is 10 and sigma 30, so 100 is out.
    p.RowSigmaFactor = 1;
    PolyFixture g(2, 1, 1, p);
    std::vector<float> line{0, 0, 0, 0, 0, 0, 0, 0, 0, 100}, mask(10, -1.0f);
    g.inspect.DetectBad(line, 1, 10, mask);
    EXPECT_EQ((std::vector<float>{1, 1, 1, 1, 1, 1, 1, 1, 1, 0}), mask);
}

TEST(CalibrationGainPolyDenoise, FlatAreaIsItsOwnEstimate) {
    PolyFixture f(2, 1, 1);
    std::vector<float> area(7 * 5, 7.25f), out(35, -1.0f);
    std::vector<unsigned char> mask(35, 9);
    f.inspect.DenoiseArea(area, 7, 5, out, mask);
    EXPECT_EQ(area, out);
    EXPECT_EQ(std::vector<unsigned char>(35, 1), mask);
}

// A 60 x 110 panel, one area of 100 rows x 50 columns at (5, 5), noise of +-5 around
// 1000, and a far outlier in each of two doses.
TEST(CalibrationGainPolyDenoise, OutliersKeepTheirValueUnlessEstimatedAtAnEarlierDose) {
    GainPolyParameters p = Parameters();
    p.DenoiseAreas = {ROI(5, 5, 100, 50)};
    PolyFixture f(60, 110, 2, p);
    std::vector<std::pair<int, unsigned short>> noisy;
    for (int i = 0; i < 60 * 110; ++i) noisy.push_back({i, static_cast<unsigned short>(995 + (i * 7 + (i / 60) * 13) % 11)});
    const int first = 40 * 60 + 20, second = 70 * 60 + 30;
    auto with = [&](int pixel) { auto v = noisy; v[pixel].second = 5000; return v; };
    f.Dose(0, with(first));
    f.Dose(0, with(second));
    f.inspect.Denoise();
    const auto mask = Pixels(f.inspect.Mask());
    const auto dose0 = Pixels(f.inspect.Doses()[0]), dose1 = Pixels(f.inspect.Doses()[1]);
    for (int y = 0; y < 110; ++y) {
        for (int x = 0; x < 60; ++x) {
            const int i = y * 60 + x;
            const bool inside = y >= 5 && y < 105 && x >= 5 && x < 55;
            if (!inside) {
                ASSERT_EQ(0, mask[i]);
                ASSERT_EQ(noisy[i].second, dose0[i]);
            } else if (i != first && i != second) {
                ASSERT_EQ(2, mask[i]) << i;
                ASSERT_NEAR(1000.0f, dose0[i], 8.0f) << i;  // the outlier pulls no average
            }
        }
    }
    EXPECT_EQ(1, mask[first]);
    EXPECT_EQ(5000.0f, dose0[first]);
    EXPECT_EQ(1, mask[second]);
    EXPECT_NEAR(1000.0f, dose1[second], 8.0f);
}

TEST(CalibrationGainPolyDenoise, WithoutAreasDosesAreOnlyLinearlyCorrected) {
    PolyFixture f(3, 1, 1);
    f.linear->CompressImage(MakeImage<float>(3, 1, {2.0f, 0.0f, 0.5f}), f.linear->GetGainLinear());
    f.Dose(0, {{0, 300}, {1, 300}, {2, 300}});
    f.inspect.Denoise();
    EXPECT_EQ((std::vector<float>{150, 0, 600}), Pixels(f.inspect.Doses()[0]));

    f.inspect.Coefficients() = {MakeFilled<float>(3, 1, 8.0f), MakeFilled<float>(3, 1, 8.0f), MakeFilled<float>(3, 1, 8.0f)};
    f.inspect.Format();
    EXPECT_EQ((std::vector<float>{4, 0, 16}), Pixels(f.inspect.Coefficients()[0]));
    EXPECT_EQ((std::vector<float>{2, 0, 32}), Pixels(f.inspect.Coefficients()[1]));
    EXPECT_EQ((std::vector<float>{1, 0, 64}), Pixels(f.inspect.Coefficients()[2]));
    f.inspect.Coefficients().clear();  // not pool images
}

TEST(CalibrationGainPolyDenoise, DenoisedReferenceFoldsTheLinearGainBack) {
    GainPolyParameters p = Parameters();
    p.DenoiseAreas = {ROI(0, 0, 10, 12)};
    PolyFixture f(12, 10, 5, p);
    const int pixel = 5 * 12 + 6;
    auto gain = MakeFilled<float>(12, 10, 1.0f);
    gain->GetData()[pixel] = 2.0f;
    f.linear->CompressImage(gain, f.linear->GetGainLinear());
    for (unsigned short level = 100; level <= 500; level += 100) f.Dose(level, {{pixel, static_cast<unsigned short>(2 * level)}});
    f.calibration.CalculateDenoisedGainReference();
    ExpectFit({0.5, 0.0, 0.0}, f, pixel);
    ExpectFit({1.0, 0.0, 0.0}, f, 0);
}

TEST(CalibrationGainPolyDenoise, FailuresOfTheDenoisedRoad) {
    LogCapture log;
    PolyFixture empty(4, 2, 1);
    EXPECT_THROW(empty.calibration.CalculateDenoisedGainReference(), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGainPoly: _DenoisingCalibrationImage failed due to empty calibration stack"));

    PolyFixture missing(4, 2, 2);
    missing.Dose(100);
    log.lines.clear();
    EXPECT_THROW(missing.calibration.CalculateDenoisedGainReference(), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "E CalibrationGainPoly: _DenoisingCalibrationImage failed\n"));
    EXPECT_TRUE(Contains(log.lines, "failed due to wrong number of acquistion"));

    GainPolyParameters p = Parameters();
    p.DenoiseAreas = {ROI(1, 2, 2, 3)};  // leaves the 4 x 2 panel
    PolyFixture off(4, 2, 1, p);
    off.Dose(100);
    EXPECT_THROW(off.calibration.CalculateDenoisedGainReference(), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "_ExtractingUsedArea failed because the area leaves the image"));
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
                const bool apart = u.top + u.height <= v.top || v.top + v.height <= u.top ||
                                   u.left + u.width <= v.left || v.left + v.width <= u.left;
                EXPECT_TRUE(apart) << key << " " << a << " " << b;
            }
        }
    }
}

