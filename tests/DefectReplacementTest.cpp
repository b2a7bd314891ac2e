// Defect replacement on synthetic panels with a known signal: each rule against the
// truth, independence from the flagged pixels' values and from the visiting order,
// the report and the marks, and the refusals.
#include "TestImages.h"

#include "correction/DefectReplacement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

using namespace orvane::test;

namespace {

using Map = ImagePtr<unsigned char>;
using FloatFrame = ImagePtr<float>;

// A plane whose values at whole pixels are exact in float.
double Plane(double x, double y) { return 100.0 + 0.5 * x + 0.25 * y; }

FloatFrame PlaneFrame(int width, int height) { return MakeImageOf<float>(width, height, Plane); }

float& At(const FloatFrame& f, int x, int y) { return f->GetData()[y * f->GetWidth() + x]; }
unsigned char& At(const Map& m, int x, int y) { return m->GetData()[y * m->GetWidth() + x]; }

// Flags the rectangle from (x0, y0) to (x1, y1), both included.
void Flag(const Map& map, int x0, int y0, int x1, int y1) {
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) At(map, x, y) = 1;
}

template <typename T>
ImagePtr<T> Transposed(const ImagePtr<T>& image) {
    return MakeImageOf<T>(image->GetHeight(), image->GetWidth(),
                          [&](int x, int y) { return image->GetData()[x * image->GetWidth() + y]; });
}

FloatFrame Copy(const FloatFrame& frame) {
    return MakeImageOf<float>(frame->GetWidth(), frame->GetHeight(), [&](int x, int y) { return At(frame, x, y); });
}

struct Replaced {
    FloatFrame frame;
    Map marks;
    DefectReplacement::Result result;
};

// Replaces the flagged pixels of a copy of `truth`, each first set to `poison`, with
// marks that start at `marked`. Every good pixel keeps its value bit for bit and is
// marked good.
Replaced Replace(const FloatFrame& truth, const Map& map, float poison, unsigned char marked = 0) {
    Replaced r{Copy(truth), MakeFilled<unsigned char>(map->GetWidth(), map->GetHeight(), marked), {}};
    for (int i = 0; i < map->GetPixelCount(); ++i)
        if (map->GetData()[i] != 0) r.frame->GetData()[i] = poison;
    r.result = DefectReplacement().Replace(r.frame, map, r.marks);
    for (int i = 0; i < map->GetPixelCount(); ++i) {
        if (map->GetData()[i] != 0) continue;
        EXPECT_EQ(truth->GetData()[i], r.frame->GetData()[i]) << "good pixel " << i;
        EXPECT_EQ(r.marks->GetData()[i], DefectReplacement::kMarkGood) << "good pixel " << i;
    }
    return r;
}

}  // namespace

// The mean of the good pixels of a plane is the plane at their centroid; each
// expected centroid below is worked out by hand from the planted neighbourhood.
TEST(DefectReplacement, IsolatedPixelsAndSmallGroupsTakeTheMeanOfTheirGoodNeighbours) {
    const int W = 40, H = 30;
    auto map = MakeFilled<unsigned char>(W, H, 0);
    struct Expect { int x, y; double cx, cy; };
    const std::vector<Expect> cases = {
        {10, 10, 10, 10},                  // isolated, inside
        {0, 0, 2.0 / 3, 2.0 / 3},          // corner: (1,0) (0,1) (1,1)
        {20, 0, 20, 3.0 / 5},              // top edge: 2 beside, 3 below
        {39, 15, 192.0 / 5, 15},           // right edge
        {39, 29, 115.0 / 3, 85.0 / 3},     // far corner
        {15, 20, 104.0 / 7, 20},           // horizontal pair, left
        {16, 20, 113.0 / 7, 20},           //   right
        {30, 5, 30, 34.0 / 7},             // vertical pair, top
        {30, 6, 30, 43.0 / 7},             //   bottom
        {5, 25, 34.0 / 7, 174.0 / 7},      // diagonal pair
        {6, 26, 43.0 / 7, 183.0 / 7},
        {20, 12, 98.0 / 5, 58.0 / 5},      // 3 x 3 cluster, corner: 5 good
        {21, 12, 21, 11},                  //   top middle: the row above
        {22, 14, 22 + 2.0 / 5, 14 + 2.0 / 5}};
    for (const Expect& e : cases) At(map, e.x, e.y) = 1;
    Flag(map, 20, 12, 22, 14);
    const auto [frame, marks, r] = Replace(PlaneFrame(W, H), map, 1e9f, 77);
    for (const Expect& e : cases) {
        EXPECT_NEAR(At(frame, e.x, e.y), Plane(e.cx, e.cy), 1e-4) << e.x << "," << e.y;
        EXPECT_EQ(At(marks, e.x, e.y), DefectReplacement::kMarkIsolated) << e.x << "," << e.y;
    }
    // The cluster's centre has no good neighbour; its eight directions meet good
    // pixels two steps away in pairs about it, so the weighted mean is exact.
    EXPECT_NEAR(At(frame, 21, 13), Plane(21, 13), 1e-4);
    EXPECT_EQ(At(marks, 21, 13), DefectReplacement::kMarkCluster);
    EXPECT_EQ((std::vector<int>{11 + 8, 0, 1, 0}),
              (std::vector<int>{r.replacedIsolated, r.replacedInRuns, r.replacedInClusters, r.unreplaced}));
}

// Linear interpolation is exact on a plane; at the frame's edge the one side's value.
TEST(DefectReplacement, LinesAndColumnsInterpolateAcrossTheRun) {
    const int W = 40, H = 30;
    auto map = MakeFilled<unsigned char>(W, H, 0);
    Flag(map, 0, 8, W - 1, 8);    // full line
    Flag(map, 25, 0, 25, H - 1);  // full column, crossing it at (25, 8)
    Flag(map, 3, 15, 12, 16);     // partial line, two rows thick
    Flag(map, 5, 3, 15, 5);       // three rows thick: still a line
    Flag(map, 30, 22, 34, 22);    // exactly minimumRun long
    Flag(map, 30, 0, 38, 0);      // on the top edge
    Flag(map, 0, 20, 0, 27);      // on the left edge
    Flag(map, 2, H - 1, 8, H - 1);  // on the bottom edge
    Flag(map, W - 1, 10, W - 1, 14);  // on the right edge
    Flag(map, 30, 25, 33, 25);    // one short of a run: a small group
    const FloatFrame truth = PlaneFrame(W, H);
    const auto [frame, marks, r] = Replace(truth, map, std::nanf(""));
    int runs = 0;
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            if (At(map, x, y) == 0 || At(marks, x, y) != DefectReplacement::kMarkRun) continue;
            ++runs;
            if (y == 0 && x >= 30) {
                EXPECT_EQ(At(frame, x, y), At(truth, x, 1)) << x << "," << y;
            } else if (y == H - 1 && x < 25) {
                EXPECT_EQ(At(frame, x, y), At(truth, x, H - 2)) << x << "," << y;
            } else if (x == 0 && y >= 20) {
                EXPECT_EQ(At(frame, x, y), At(truth, 1, y)) << x << "," << y;
            } else if (x == W - 1 && y != 8) {
                EXPECT_EQ(At(frame, x, y), At(truth, W - 2, y)) << x << "," << y;
            } else {
                EXPECT_NEAR(At(frame, x, y), Plane(x, y), 1e-4) << x << "," << y;
            }
        }
    }
    // Every flagged pixel is a run pixel but the crossing and the short run.
    EXPECT_EQ(At(marks, 25, 8), DefectReplacement::kMarkCluster);
    EXPECT_NEAR(At(frame, 25, 8), Plane(25, 8), 1e-4);  // four diagonal neighbours
    for (int x = 30; x <= 33; ++x) EXPECT_EQ(At(marks, x, 25), DefectReplacement::kMarkIsolated);
    const int expectedRuns = W + H - 1 - 1 + 20 + 33 + 5 + 9 + 8 + 7 + 5;
    EXPECT_EQ(runs, expectedRuns);
    EXPECT_EQ((std::vector<int>{4, expectedRuns, 1, 0}),
              (std::vector<int>{r.replacedIsolated, r.replacedInRuns, r.replacedInClusters, r.unreplaced}));
}

TEST(DefectReplacement, ClustersAndWideRunsUseInverseDistanceWeightsWithinReach) {
    // By hand: only (0,0) = 10 and (4,2) = 40 are good. From the centre, (4,2) is two
    // steps right (d = 2) and (0,0) two steps up-left (d = 2 sqrt 2).
    {
        auto map = MakeFilled<unsigned char>(5, 5, 1);
        At(map, 0, 0) = 0;
        At(map, 4, 2) = 0;
        auto frame = MakeFilled<float>(5, 5, std::nanf(""));
        At(frame, 0, 0) = 10.0f;
        At(frame, 4, 2) = 40.0f;
        auto marks = MakeFilled<unsigned char>(5, 5, 0);
        DefectReplacement().Replace(frame, map, marks);
        const double w1 = 1 / 2.0, w2 = 1 / (2 * std::sqrt(2.0));
        EXPECT_FLOAT_EQ(At(frame, 2, 2), static_cast<float>((40 * w1 + 10 * w2) / (w1 + w2)));
        EXPECT_EQ(At(marks, 2, 2), DefectReplacement::kMarkCluster);
        EXPECT_EQ(At(frame, 1, 1), 10.0f);  // (0,0) is the one good pixel on its eight lines
    }
    // A 40 x 40 block and a line four rows thick on a constant frame. Inside the
    // block, pixels more than reach = 16 steps from its border in all eight
    // directions (x and y in 26..33) stay as they were.
    const int W = 60, H = 62;
    auto map = MakeFilled<unsigned char>(W, H, 0);
    Flag(map, 10, 10, 49, 49);
    Flag(map, 5, 54, 20, 57);
    const auto [frame, marks, r] = Replace(MakeFilled<float>(W, H, 37.5f), map, -7.0f);
    EXPECT_EQ((std::vector<int>{0, 0, 40 * 40 - 64 + 16 * 4, 64}),
              (std::vector<int>{r.replacedIsolated, r.replacedInRuns, r.replacedInClusters, r.unreplaced}));
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            if (At(map, x, y) == 0) continue;
            const bool far = x >= 26 && x <= 33 && y >= 26 && y <= 33;
            EXPECT_EQ(At(marks, x, y), far ? DefectReplacement::kMarkUnreplaced : DefectReplacement::kMarkCluster);
            EXPECT_NEAR(At(frame, x, y), far ? -7.0f : 37.5f, 1e-4) << x << "," << y;
        }
    }
}

// Only good pixels are read: the flagged pixels' values, a second run and the
// visiting order (a transposed panel is visited column by column) change nothing.
TEST(DefectReplacement, ResultDependsOnlyOnGoodPixelsNotOnValuesOrOrder) {
    const int W = 97, H = 61;
    auto map = MakeFilled<unsigned char>(W, H, 0);
    std::mt19937 random(7);
    for (int i = 0; i < 120; ++i) {
        const int x = static_cast<int>(random() % W), y = static_cast<int>(random() % H);
        At(map, x, y) = static_cast<unsigned char>(1 + random() % 255);
        if (i % 4 == 0) At(map, std::min(x + 1, W - 1), y) = 3;
    }
    Flag(map, 0, 30, W - 1, 30);
    Flag(map, 50, 0, 51, 40);
    Flag(map, 10, 10, 16, 14);
    Flag(map, 80, 50, 82, 52);
    Flag(map, 0, 0, 2, 2);
    Flag(map, W - 4, H - 9, W - 1, H - 1);
    const FloatFrame truth = MakeImageOf<float>(
        W, H, [](int x, int y) { return 100 + 10 * std::sin(x / 7.0) + 5 * std::cos(y / 5.0) + x * y / 100.0; });

    std::vector<FloatFrame> results;
    std::vector<Map> planes;
    const DefectReplacement replacement;
    for (float poison : {std::nanf(""), 1e9f, -1e9f, 0.0f}) {
        const Replaced r = Replace(truth, map, poison);
        results.push_back(r.frame), planes.push_back(r.marks);
    }
    for (float v : Pixels(results[0])) ASSERT_TRUE(std::isfinite(v));
    for (size_t k = 1; k < results.size(); ++k) {
        EXPECT_EQ(Pixels(results[k]), Pixels(results[0])) << "poison " << k;
        EXPECT_EQ(Pixels(planes[k]), Pixels(planes[0]));
    }

    const FloatFrame again = Copy(results[0]);
    replacement.Replace(again, map);
    EXPECT_EQ(Pixels(again), Pixels(results[0]));

    ReferenceDM store(W, H);
    *store.GetDM()->GetBuffer() = *map->GetBuffer();
    const FloatFrame viaStore = Copy(truth);
    replacement.Replace(viaStore, store);
    EXPECT_EQ(Pixels(viaStore), Pixels(results[0]));

    // Transposed, rows become columns: the same pixels by the same rules, summed in
    // another order, so equal to within rounding.
    const FloatFrame transposed = Transposed(truth);
    auto transposedMarks = MakeFilled<unsigned char>(H, W, 0);
    const DefectReplacement::Result r = replacement.Replace(transposed, Transposed(map), transposedMarks);
    EXPECT_EQ(Pixels(Transposed(transposedMarks)), Pixels(planes[0]));
    const std::vector<float> back = Pixels(Transposed(transposed)), first = Pixels(results[0]);
    for (size_t i = 0; i < first.size(); ++i) ASSERT_NEAR(back[i], first[i], 1e-4) << "pixel " << i;
    EXPECT_GT(r.replacedIsolated, 0);
    EXPECT_GT(r.replacedInRuns, 0);
    EXPECT_GT(r.replacedInClusters, 0);
}

TEST(DefectReplacement, RefusesNullImagesMismatchedSizesAndBadOptions) {
    const FloatFrame frame = PlaneFrame(8, 6);
    const std::vector<float> before = Pixels(frame);
    auto good = MakeFilled<unsigned char>(8, 6, 1);
    auto wrong = MakeFilled<unsigned char>(6, 8, 1);
    const DefectReplacement replacement;
    const struct { FloatFrame frame; Map map, marks; std::string mentions; } refusals[] = {
        {frame, wrong, nullptr, "defect map of 6 x 8 on a frame of 8 x 6"}, {frame, good, wrong, "marks"},
        {nullptr, good, nullptr, "needs a frame"}, {frame, nullptr, nullptr, "needs a defect map"},
        {frame, good, good, "cannot be the defect map"}};
    for (const auto& r : refusals) {
        const std::string text = ThrownText<ReferenceException>([&] { replacement.Replace(r.frame, r.map, r.marks); });
        EXPECT_NE(text.find(r.mentions), std::string::npos) << text;
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    }
    EXPECT_EQ(Pixels(frame), before);
    EXPECT_EQ(Pixels(good), std::vector<unsigned char>(48, 1));
    ReferenceDM store(6, 8);
    EXPECT_THROW(replacement.Replace(frame, store), ReferenceException);
    for (DefectReplacement::Options o : {DefectReplacement::Options{3, 3, 16}, DefectReplacement::Options{5, 0, 16},
                                         DefectReplacement::Options{5, 3, 0}}) {
        EXPECT_THROW(DefectReplacement{o}, ReferenceException);
    }
}
