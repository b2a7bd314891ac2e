#include "calibration/DefectMapChecker.h"

#include "TestImages.h"

#include <gtest/gtest.h>

#include <random>

using namespace orvane::test;

namespace {

using Bytes = std::vector<unsigned char>;

// One pass on a copy: value(v, n), n counting the neighbours inside the map that pass isSet.
template <typename IsSet, typename Value>
Bytes Pass(const Bytes& in, int w, int h, IsSet isSet, Value value) {
    Bytes out(in.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int n = 0;
            for (int ny = y - 1; ny <= y + 1; ++ny)
                for (int nx = x - 1; nx <= x + 1; ++nx)
                    n += (nx != x || ny != y) && nx >= 0 && ny >= 0 && nx < w && ny < h && isSet(in[ny * w + nx]);
            out[y * w + x] = static_cast<unsigned char>(value(in[y * w + x], n));
        }
    return out;
}

}  // namespace

// Classified against two passes on copies; classifying again changes nothing.
TEST(DefectMapChecker, RandomMapsMatchTheClassesOnCopiesAndStayClassified) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> mark(1, 255);
    const int sizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {2, 2}, {6, 5}, {32, 24}};
    for (double density : {0.2, 0.6, 0.9, 1.0}) {
        std::bernoulli_distribution defect(density);
        for (const auto& size : sizes) {
            auto map = MakeImage<unsigned char>(size[0], size[1]);
            for (int i = 0; i < map->GetPixelCount(); ++i) map->GetData()[i] = defect(random) ? mark(random) : 0;
            const Bytes classes = Pass(Pixels(map), size[0], size[1], [](int v) { return v > 0; },
                                       [](int v, int n) { return v ? 1 + n : 0; });
            const Bytes expected = Pass(classes, size[0], size[1], [](int v) { return v >= 9; },
                                        [](int v, int n) { return v < 9 ? v : 9 + n; });
            DefectMapChecker checker;
            checker.UpdateDefectMap(map);
            EXPECT_EQ(expected, Pixels(map)) << size[0] << "x" << size[1] << " at " << density;
            checker.UpdateDefectMap();
            EXPECT_EQ(expected, Pixels(map)) << size[0] << "x" << size[1] << " at " << density;
        }
    }
}

TEST(DefectMapChecker, KeepsTheCallersMapAndFlagAndFailsWithoutAMap) {
    const auto map = MakeImage<unsigned char>(2, 1, {9, 9});
    DefectMapChecker checker;
    EXPECT_FALSE(checker.IsClassified());
    checker.SetDefectMap(map, true);
    EXPECT_TRUE(checker.IsClassified());
    EXPECT_EQ(Bytes({9, 9}), Pixels(map));
    const DefectMapChecker copy(checker);
    checker.UpdateDefectMap();
    EXPECT_EQ(map, copy.GetDefectMap());
    EXPECT_EQ(Bytes({2, 2}), Pixels(map));
    checker.UpdateDefectMap(MakeImage<unsigned char>(0, 0));
    EXPECT_TRUE(checker.IsClassified());

    checker.SetDefectMap(ImagePtr<unsigned char>(), true);
    EXPECT_EQ(FailureText([&] { checker.UpdateDefectMap(); }),
              "DefectMapChecker :UpdateDefectMap failed due to undefined defect map");
    EXPECT_FALSE(checker.IsClassified());
    EXPECT_EQ(0, DefectMapChecker::s_ucDefectThreshold);
    const DefectMapChecker constructed(MakeImage<unsigned char>(2, 1, {9, 0}));  // classifies at once
    EXPECT_TRUE(constructed.IsClassified());
    EXPECT_EQ(Bytes({1, 0}), Pixels(constructed.GetDefectMap()));
}
