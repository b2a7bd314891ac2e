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

TEST(DefectMapChecker, HandCheckedMapsAreClassifiedAndStayClassified) {
    // Row ends, corners, 3 x 3 and 5 x 5 blocks, a full map, an empty one; any mark size.
    const std::pair<int, Bytes> maps[] = {
        {7, {2, 3, 3, 3, 3, 3, 2,  //
             0, 0, 0, 0, 0, 0, 0,  //
             0, 0, 4, 6, 4, 0, 0,  //
             0, 0, 6, 9, 6, 0, 0,  //
             0, 0, 4, 6, 4, 0, 0,  //
             0, 0, 0, 0, 0, 0, 1}},
        {9, {0, 0, 0,  0,  0,  0, 0, 4, 4,  //
             0, 4, 6,  6,  6,  4, 0, 4, 4,  //
             0, 6, 12, 14, 12, 6, 0, 0, 0,  //
             0, 6, 14, 17, 14, 6, 0, 0, 0,  //
             0, 6, 12, 14, 12, 6, 0, 0, 0,  //
             0, 4, 6,  6,  6,  4, 0, 0, 0,  //
             0, 0, 0,  0,  0,  0, 0, 0, 1}},
        {4, {4, 6, 6, 4, 6, 10, 10, 6, 4, 6, 6, 4}},
        {3, Bytes(6, 0)}};
    for (const auto& [w, classes] : maps) {
        auto map = MakeImage<unsigned char>(w, static_cast<int>(classes.size()) / w);
        for (size_t i = 0; i < classes.size(); ++i) map->GetData()[i] = classes[i] ? 1 + i * 37 % 255 : 0;  // marks of all sizes
        DefectMapChecker checker(map);
        EXPECT_TRUE(checker.IsClassified());
        EXPECT_EQ(classes, Pixels(map)) << w;
        checker.UpdateDefectMap();
        EXPECT_EQ(classes, Pixels(map)) << w;
    }
}

TEST(DefectMapChecker, RandomMapsMatchTheClassesOnCopies) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> mark(1, 255);
    const int sizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {2, 2}, {6, 5}, {32, 24}};
    for (double density : {0.2, 0.6, 0.9}) {
        std::bernoulli_distribution defect(density);
        for (const auto& size : sizes) {
            auto map = MakeImage<unsigned char>(size[0], size[1]);
            for (int i = 0; i < map->GetPixelCount(); ++i) map->GetData()[i] = defect(random) ? mark(random) : 0;
            const Bytes classes = Pass(Pixels(map), size[0], size[1], [](int v) { return v > 0; },
                                       [](int v, int n) { return v ? 1 + n : 0; });
            const Bytes expected = Pass(classes, size[0], size[1], [](int v) { return v >= 9; },
                                        [](int v, int n) { return v < 9 ? v : 9 + n; });
            DefectMapChecker().UpdateDefectMap(map);
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
}
