// The correction stage: each operation against its stated arithmetic, the chain
// against the operations applied one after another, and a synthetic panel with a
// known offset, gain and planted defects corrected back to its signal.
#include "TestImages.h"

#include "correction/CorrectionChain.h"
#include "correction/OutputConversion.h"
#include "correction/TimeGridBlend.h"
#include "interfaces/CorrectionGainLinear.h"
#include "interfaces/ReferenceException.h"
#include "tools/Parallel.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <cmath>
#include <cstring>
#include <random>

using namespace orvane::test;

namespace {

// 123 x 77 = 9471 pixels: bands of the chain end inside a row, and the last is short.
constexpr int kWidth = 123, kHeight = 77;

// A smooth signal whose interpolation across small gaps is close to exact.
float Signal(int x, int y) { return 3000.0f + 4.0f * static_cast<float>(x) + 2.0f * static_cast<float>(y); }

struct Panel {
    boost::shared_ptr<ReferenceOffsetSimple> offset = boost::make_shared<ReferenceOffsetSimple>(kWidth, kHeight);
    boost::shared_ptr<ReferenceGainLinear> gain = boost::make_shared<ReferenceGainLinear>(kWidth, kHeight);
    boost::shared_ptr<ReferenceGainPoly> poly = boost::make_shared<ReferenceGainPoly>(kWidth, kHeight);
    ImagePtr<unsigned char> map = MakeFilled<unsigned char>(kWidth, kHeight, 0);
    ImagePtr<unsigned short> raw = MakeFilled<unsigned short>(kWidth, kHeight, 0);

    // raw = offset + signal * gain; flagged pixels read 0 or 65535.
    Panel() {
        std::mt19937 random(7);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const int i = y * kWidth + x;
                const auto code = static_cast<unsigned short>(16384 - 3000 + random() % 6000);
                gain->GetGainLinear()->GetData()[i] = code;
                offset->GetOffset()->GetData()[i] = static_cast<unsigned short>(900 + random() % 200);
                const double response = Signal(x, y) * ReferenceGainLinear::DeCompress(code);
                raw->GetData()[i] = static_cast<unsigned short>(offset->GetOffset()->GetData()[i] + std::lround(response));
            }
        }
        auto flag = [this](int x0, int y0, int x1, int y1) {
            for (int y = y0; y <= y1; ++y)
                for (int x = x0; x <= x1; ++x) {
                    map->GetData()[y * kWidth + x] = 1;
                    raw->GetData()[y * kWidth + x] = (x + y) % 2 ? 65535 : 0;
                }
        };
        flag(0, 0, 0, 0), flag(kWidth - 1, kHeight - 1, kWidth - 1, kHeight - 1);  // corners
        flag(40, 10, 41, 10), flag(60, 30, 62, 32);                                 // a pair, a 3 x 3 cluster
        flag(0, 50, kWidth - 1, 50), flag(90, 0, 90, kHeight - 1);                  // a full line and column
        flag(10, 20, 35, 20), flag(110, 40, 110, 76);                               // partial runs, one at the edge
        flag(20, 60, 20, 67);  // a short column across row 64, where a second thread's rows begin
        raw->SetProperty("image.time", 1234);
        const float coefficients[3] = {1.05f, -2e-6f, 3e-11f};
        for (int k = 0; k < 3; ++k) {
            auto c = MakeFilled<float>(kWidth, kHeight, coefficients[k]);
            for (int i = 0; i < kWidth * kHeight; ++i) c->GetData()[i] *= 1.0f + 1e-3f * static_cast<float>(i % 17);
            poly->CompressImage(c, k, poly->GetGainPoly()[static_cast<size_t>(k)]);
        }
    }
};

template <typename T>
bool SameBits(const ImagePtr<T>& a, const ImagePtr<T>& b) {
    return std::memcmp(a->GetData(), b->GetData(), sizeof(T) * static_cast<size_t>(a->GetPixelCount())) == 0;
}

// The reference rounding: floor(x + 0.5) in double, clamped; NaN stores 0.
unsigned short Rounded(float x) {
    const double r = std::floor(static_cast<double>(x) + 0.5);
    return std::isnan(x) || r < 0 ? 0 : r > 65535 ? 65535 : static_cast<unsigned short>(r);
}

}  // namespace

// Bands and rows are spread over threads: the same bits for any thread count.
TEST(CorrectionChain, EqualsTheOperationsAppliedOneAfterAnotherForAnyThreadCount) {
    Panel panel;
    panel.raw->GetData()[70 * kWidth + 5] = 0;  // good pixels below their offset: clamped
    panel.raw->GetData()[3 * kWidth + 120] = 0;
    for (const char* gainKind : {"none", "linear", "inverted", "poly"}) {
        for (const bool withOffset : {false, true}) {
            SCOPED_TRACE(std::string(gainKind) + (withOffset ? " with offset" : " without offset"));
            panel.gain->SetGainInversion(std::string(gainKind) == "inverted");
            orvane::SetThreadCount(1);  // the reference: one operation after another, on one thread
            auto expected = MakeFilled<float>(kWidth, kHeight, 0.0f);
            auto expectedMarks = MakeFilled<unsigned char>(kWidth, kHeight, 9);
            CorrectionChain chain(kWidth, kHeight);
            if (withOffset) {
                chain.SetOffset(boost::make_shared<OffsetCorrection>(panel.offset));
                OffsetCorrection(panel.offset).Correct(panel.raw, expected);
            } else {
                std::copy(panel.raw->GetData(), panel.raw->GetData() + kWidth * kHeight, expected->GetData());
            }
            if (std::string(gainKind) == "poly") {
                chain.SetGainPoly(panel.poly);
                GainPolyCorrection(panel.poly).Correct(expected);
            } else if (std::string(gainKind) != "none") {
                chain.SetGainLinear(panel.gain);
                CorrectionGainLinear(panel.gain).Correct(expected);
            }
            chain.SetDefects(panel.map);
            const auto replaced = DefectReplacement().Replace(expected, panel.map, expectedMarks);

            auto expected16 = MakeFilled<unsigned short>(kWidth, kHeight, 0);
            const auto expectedClamped = OutputConversion::ToUInt16(expected, expected16);
            EXPECT_EQ(expectedClamped, withOffset ? 2 : 0);
            for (const int threads : {2, 7, 1}) {
                orvane::SetThreadCount(threads);
                SCOPED_TRACE(std::to_string(threads) + " threads");
                auto out = MakeFilled<float>(kWidth, kHeight, 0.0f);
                auto marks = MakeFilled<unsigned char>(kWidth, kHeight, 7);
                const auto result = chain.Correct(panel.raw, out, marks);
                EXPECT_TRUE(SameBits(out, expected));
                EXPECT_TRUE(SameBits(marks, expectedMarks));
                EXPECT_EQ(result.defects.replacedInRuns, replaced.replacedInRuns);
                EXPECT_EQ(out->GetProperty<int>("image.time"), 1234);

                auto out16 = MakeFilled<unsigned short>(kWidth, kHeight, 0);
                EXPECT_EQ(chain.Correct(panel.raw, out16).clamped, expectedClamped);
                EXPECT_TRUE(SameBits(out16, expected16));
            }
            orvane::SetThreadCount(0);
        }
    }
    panel.gain->SetGainInversion(false);
}

TEST(CorrectionChain, RestoresTheSignalOfAPanelWithPlantedDefects) {
    Panel panel;
    CorrectionChain chain(kWidth, kHeight);
    chain.SetOffset(boost::make_shared<OffsetCorrection>(panel.offset));
    chain.SetGainLinear(panel.gain);
    chain.SetDefects(panel.map);
    auto out = MakeFilled<unsigned short>(kWidth, kHeight, 0);
    auto marks = MakeFilled<unsigned char>(kWidth, kHeight, 0);
    const auto result = chain.Correct(panel.raw, out, marks);
    EXPECT_EQ(result.clamped, 0);
    EXPECT_EQ(result.defects.unreplaced, 0);
    for (int y = 60; y <= 67; ++y) {  // one column run, whichever thread takes its rows
        EXPECT_EQ(marks->GetData()[y * kWidth + 20], DefectReplacement::kMarkRun) << "row " << y;
    }
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const int i = y * kWidth + x;
            SCOPED_TRACE("pixel " + std::to_string(x) + ", " + std::to_string(y));
            EXPECT_EQ(marks->GetData()[i] != 0, panel.map->GetData()[i] != 0);
            // Good pixels carry the rounding of the raw frame only; runs interpolate the
            // plane; a 3 x 3 mean at a corner or next to a pair is one-sided, and
            // clusters are distance-weighted: both lean by up to a step of the slope.
            const double tolerances[] = {1.0, 6.5, 2.0, 12.0};
            const int mark = marks->GetData()[i];
            const double tolerance = mark < 4 ? tolerances[mark] : 0.0;
            EXPECT_NEAR(out->GetData()[i], Signal(x, y), tolerance);
        }
    }
}

TEST(CorrectionChain, PolynomialGainAndOutputFollowTheirStatedArithmetic) {
    Panel panel;
    auto image = MakeFilled<float>(kWidth, kHeight, 0.0f);
    for (int i = 0; i < kWidth * kHeight; ++i) image->GetData()[i] = static_cast<float>(i % 4001) - 7.25f;
    auto corrected = MakeFilled<float>(kWidth, kHeight, 0.0f);
    std::copy(image->GetData(), image->GetData() + kWidth * kHeight, corrected->GetData());
    GainPolyCorrection(panel.poly).Correct(corrected);
    std::vector<ImagePtr<float>> c;
    for (int k = 0; k < 3; ++k) {
        c.push_back(MakeFilled<float>(kWidth, kHeight, 0.0f));
        panel.poly->DeCompressImage(k, panel.poly->GetGainPoly()[static_cast<size_t>(k)], c.back());
    }
    for (int i = 0; i < kWidth * kHeight; ++i) {
        const double x = image->GetData()[i];
        const double y = ((double{c[2]->GetData()[i]} * x + c[1]->GetData()[i]) * x + c[0]->GetData()[i]) * x;
        ASSERT_EQ(corrected->GetData()[i], static_cast<float>(y)) << "pixel " << i;
    }

    const float edges[] = {-1e9f, -0.5000001f, -0.5f, -0.25f, 0.0f, 0.49999997f, 0.5f, 1.5f, 2.5f, 1e-30f,
                           8388607.5f, 65534.5f, 65535.49f, 65535.5f, 1e9f, kNaN, kInf, -kInf};
    auto in = MakeFilled<float>(static_cast<int>(std::size(edges)), 1, 0.0f);
    std::copy(std::begin(edges), std::end(edges), in->GetData());
    auto out = MakeFilled<unsigned short>(in->GetWidth(), 1, 1);
    long expectedClamped = 0;
    for (const float x : edges) expectedClamped += std::isnan(x) || x < -0.5f || x >= 65535.5f;
    EXPECT_EQ(OutputConversion::ToUInt16(in, out), expectedClamped);
    for (int i = 0; i < in->GetWidth(); ++i) EXPECT_EQ(out->GetData()[i], Rounded(edges[i])) << "value " << edges[i];
}

TEST(TimeGridBlend, BlendsTheTwoEntriesAroundATemperatureAndTime) {
    auto grid = boost::make_shared<ReferenceOffsetTimeGrid>(3, 1, std::vector<int>{0, 5, 10});
    const int times[3] = {100, 400, 700};
    const float temperatures[3] = {30.0f, 32.0f, 32.0f};
    for (int i = 0; i < 3; ++i) {
        auto entry = grid->GetAt(i);
        entry->SetProperty("image.time", times[i]);
        entry->SetProperty("image.temperature", temperatures[i]);
        for (int p = 0; p < 3; ++p) entry->GetData()[p] = static_cast<unsigned short>(1000 + 10 * i + p * (i + 1));
    }
    const TimeGridBlend blend(grid);
    struct Case { float temperature; long time; int lower, upper; double share; };
    for (const Case& c : {Case{31.0f, 200, 0, 1, 0.5},    // temperatures differ: the share follows temperature
                          Case{30.5f, 400, 0, 1, 0.25},   // the time picks the segment, up to its end
                          Case{40.0f, 550, 1, 2, 0.5},    // equal temperatures: the share follows time
                          Case{20.0f, 0, 0, 1, 0.0},      // before the first entry: that entry
                          Case{33.0f, 9000, 1, 2, 1.0}}) {  // after the last: the last, never beyond
        SCOPED_TRACE(std::to_string(c.temperature) + " at " + std::to_string(c.time));
        const auto weights = blend.WeightsAt(c.temperature, c.time);
        EXPECT_EQ(weights.lower, c.lower);
        EXPECT_EQ(weights.upper, c.upper);
        EXPECT_DOUBLE_EQ(weights.share, c.share);
        const auto offset = blend.OffsetAt(c.temperature, c.time);
        for (int p = 0; p < 3; ++p) {
            const double a = grid->GetAt(c.lower)->GetData()[p], b = grid->GetAt(c.upper)->GetData()[p];
            EXPECT_EQ(offset->GetData()[p], static_cast<float>((1.0 - weights.share) * a + weights.share * b));
        }
    }
    grid->GetAt(2)->GetProperties().clear();
    EXPECT_TRUE(Contains(ThrownText<ReferenceException>([&] { blend.WeightsAt(31.0f, 200); }),
                         "the entry of delta time 10 has no readable"));
}

TEST(CorrectionChain, RefusesReferencesAndFramesOfAnotherSize) {
    Panel panel;
    CorrectionChain chain(kWidth, kHeight);
    const auto small = boost::make_shared<ReferenceOffsetSimple>(kWidth, kHeight - 1);
    EXPECT_TRUE(Contains(ThrownText<ReferenceException>([&] { chain.SetOffset(boost::make_shared<OffsetCorrection>(small)); }),
                         "CorrectionChain: cannot correct a 123 x 77 frame with an offset of 123 x 76"));
    EXPECT_THROW(chain.SetGainLinear(boost::make_shared<ReferenceGainLinear>(kHeight, kWidth)), ReferenceException);
    EXPECT_THROW(chain.SetGainPoly(boost::make_shared<ReferenceGainPoly>(kWidth, 1)), ReferenceException);
    EXPECT_THROW(chain.SetDefects(MakeFilled<unsigned char>(1, kHeight, 0)), ReferenceException);
    EXPECT_THROW(GainPolyCorrection(boost::make_shared<ReferenceGainPoly>(kWidth, kHeight, 0)), ReferenceException);

    chain.SetOffset(boost::make_shared<OffsetCorrection>(panel.offset));
    auto out = MakeFilled<float>(kWidth, kHeight, 5.0f);
    EXPECT_THROW(chain.Correct(MakeFilled<unsigned short>(kWidth + 1, kHeight, 0), out), ReferenceException);
    EXPECT_THROW(chain.Correct(panel.raw, out, MakeFilled<unsigned char>(2, 2, 0)), ReferenceException);
    EXPECT_THROW(OffsetCorrection(panel.offset).Correct(panel.raw, MakeFilled<float>(2, 2, 0.0f)), ReferenceException);
    EXPECT_EQ(Pixels(out), std::vector<float>(kWidth * kHeight, 5.0f));
}
