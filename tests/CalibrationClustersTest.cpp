#include "TestImages.h"

#include "calibration/CalibrationClusters.h"
#include "interfaces/ReferenceClusters.h"
#include "parameters/CalibrationClustersParametersSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <utility>

using namespace orvane::test;

namespace {

using Change = std::function<int(int x, int y)>;

constexpr int kWidth = 30;

// An upper stripe over columns 8..17, rows 0..9, and a lower one over columns 14..29
// from the middle row (height - 1) / 2, which the upper search must not visit, to the
// end; each 300 and more. The opening and closing keep such stripes; the neighbour
// erosion drops their first and last column, but not one at the frame's edge. So the
// search (x from 4 while x < 26) finds (9..16, 0) and (15..25, last row). Columns 5
// and 20 carry single-column changes that the opening removes; they are border
// columns of the strips at x = 9 and x = 16 and test the saturation.
int Stripes(int x, int y, int height) {
    if (y < 10 && x == 5) return y < 5 ? -1000 : -999;
    if (y < 10 && x == 20) return y < 5 ? 64535 : 64534;
    if (y < 10 && x >= 8 && x < 18) return 300 + 7 * ((y * y) % 5);
    if (y >= (height - 1) / 2 && x >= 14) return 300 + 5 * ((y * 3) % 4);
    return 0;
}

int Base(int x, int y) {
    return x == 20 ? y : 1000 + 17 * x + y;
}

struct ClustersFixture {
    explicit ClustersFixture(int height, const Change& stripes = nullptr, std::vector<int> deltaTimes = {0, 10, 20})
        : height(height), change(stripes ? stripes : [height](int x, int y) { return Stripes(x, y, height); }),
          grid(boost::make_shared<ReferenceOffsetTimeGrid>(kWidth, height, deltaTimes)),
          store(boost::make_shared<ReferenceClusters>()),
          calibration(parameters, store, grid) {
        const int last = grid->GetNbReferences() - 1;
        *grid->GetAt(0)->GetBuffer() = *MakeImageOf<unsigned short>(kWidth, height, Base)->GetBuffer();
        *grid->GetAt(last)->GetBuffer() = *MakeImageOf<unsigned short>(
            kWidth, height, [&](int x, int y) { return Base(x, y) + (last > 0 ? change(x, y) : 0); })->GetBuffer();
        if (last == 2) *grid->GetAt(1)->GetBuffer() = *grid->GetAt(1)->GetBuffer() + 40000.0f;
        grid->GetAt(0)->SetProperty("image.time", 5);
        grid->GetAt(last)->SetProperty("image.time", 9);
    }

    // The cluster of a place worked out plainly: the strip column by column, rows
    // below the frame taken as its last row, sorted windows, fresh sums.
    std::vector<unsigned short> ExpectedCluster(Coordinates place) const {
        const int h = height / 2, columns = 2 * parameters.PatchMargin + 3;
        const int left = place.x - parameters.PatchMargin - 1, top = place.y < h ? 0 : h + 1;
        std::vector<unsigned short> cluster(static_cast<size_t>(columns * h));
        for (int c = 0; c < columns; ++c) {
            std::vector<float> strip, median, average;
            for (int r = 0; r < h; ++r) strip.push_back(change(left + c, std::min(top + r, height - 1)));
            for (int r = 0; r < h; ++r) {
                std::vector<float> s = WindowSamples(strip, r, parameters.MedianSize);
                std::sort(s.begin(), s.end());
                median.push_back(s[(s.size() - 1) / 2]);
            }
            for (int r = 0; r < h; ++r) {
                const std::vector<float> s = WindowSamples(median, r, parameters.AverageSize);
                average.push_back(static_cast<float>(std::accumulate(s.begin(), s.end(), 0.0) / s.size()));
            }
            for (int r = 0; r < h; ++r) {
                const bool border = c == 0 || c == columns - 1;
                const float flat = border ? strip[r] : static_cast<float>(static_cast<double>(strip[r]) - average[r]);
                const float lifted = static_cast<float>(flat + 1000.0);
                cluster[static_cast<size_t>(r * columns + c)] =
                    lifted <= 0.0f ? 0 : lifted >= 65535.0f ? 65535 : static_cast<unsigned short>(lifted);
            }
        }
        return cluster;
    }

    int height;
    Change change;
    CalibrationClustersParameters parameters{3, 5, 3, 60.0f};  // margin, median, average, threshold: strips of 9
    boost::shared_ptr<ReferenceOffsetTimeGrid> grid;
    boost::shared_ptr<ReferenceClusters> store;
    CalibrationClusters calibration;
};

}  // namespace

// Every cluster is checked against the plain computation.
TEST(CalibrationClusters, StripesOfOddAndEvenHeightGiveOnePlacePerColumnAndHalf) {
    for (int height : {21, 20}) {
        SCOPED_TRACE(height);
        ClustersFixture f(height);
        f.calibration.Init();
        f.calibration.CalculateClustersReference();
        std::vector<Coordinates> places, expected;
        std::map<std::pair<int, int>, std::vector<unsigned short>> clusters;
        for (const auto& cluster : f.store->GetClusters()) {
            const Coordinates place{cluster->GetProperty<int>("image.pixelcluster.pos.x"),
                                    cluster->GetProperty<int>("image.pixelcluster.pos.y")};
            SCOPED_TRACE(testing::Message() << "place " << place.x << ", " << place.y);
            EXPECT_EQ(f.ExpectedCluster(place), Pixels(cluster));  // of height / 2 x 9 pixels
            EXPECT_EQ(5, cluster->GetProperty<int>("image.time"));
            EXPECT_EQ(65536, cluster->GetProperty<int>("info.quantlevels"));
            places.push_back(place);
            clusters[{place.x, place.y}] = Pixels(cluster);
        }
        for (int x = 9; x < 26; ++x) {
            if (x <= 16) expected.push_back({x, 0});
            if (x >= 15) expected.push_back({x, height - 1});
        }
        ASSERT_EQ(expected, places);
        // The border columns keep the raw change: -1000 and -999 lift to 0 and 1,
        // 64535 and 64534 to 65535 and 65534. Pixel (c, r) is r * 9 + c.
        const auto &left = clusters[{9, 0}], &right = clusters[{16, 0}];
        EXPECT_EQ((std::vector<int>{0, 1, 65535, 65534}), (std::vector<int>{left[0], left[9 * 9], right[8], right[9 * 9 + 8]}));
        // Strip row 9 of a lower strip is frame row 11 + 9 = 20: below the frame of
        // height 20, which repeats its last row instead.
        EXPECT_EQ(1000 + Stripes(21, height - 1, height), (clusters[{25, height - 1}][9 * 9]));
    }
}

TEST(CalibrationClusters, WorkImagesComeFromThePoolOnceAndGoBackNoChangeAboveTheThresholdGivesNoCluster) {
    ClustersFixture f(17, [](int, int) { return 59; });
    EXPECT_EQ("CalibrationClusters: CalculateClustersReference failed because Init has not run",
              FailureText([&] { f.calibration.CalculateClustersReference(); }));
    f.calibration.Init();
    ImageCollector<float>* frames = ImageCollectorRegistry::Instance().FindCollector<float>(kWidth, 17);
    ASSERT_NE(nullptr, frames);
    EXPECT_EQ(3u, frames->GetInUse().size());
    f.calibration.Init();
    EXPECT_EQ(3u, frames->GetInUse().size());
    ClustersFixture single(21, [](int, int) { return 5000; }, {0});
    single.calibration.Init();
    for (ClustersFixture* none : {&f, &single}) {
        LogCapture log;
        none->calibration.CalculateClustersReference();
        EXPECT_TRUE(none->store->GetClusters().empty());
        EXPECT_EQ(Succeeded("CalibrationClusters : CalculateClustersReference"), log.lines);
    }

    f.parameters.PatchMargin = 4;
    EXPECT_EQ("CalibrationClusters: CalculateClustersReference failed because PatchMargin changed after Init",
              FailureText([&] { f.calibration.CalculateClustersReference(); }));
    f.parameters.PatchMargin = -1;
    EXPECT_EQ("CalibrationClusters: Init failed because PatchMargin is out of range",
              FailureText([&] { f.calibration.Init(); }));
    f.calibration.Clear();
    EXPECT_TRUE(frames->GetInUse().empty() && frames->GetCollections().empty());
}

TEST(CalibrationClustersParametersSet, HoldsBirchAndNoDefaultRow) {
    const CalibrationClustersParameters& birch = s_clustersCalibrationParametersSet.lookup("Birch.x.m1");
    EXPECT_EQ((std::vector<float>{10, 81, 81, 60}), (std::vector<float>{float(birch.PatchMargin), float(birch.MedianSize),
                                                                        float(birch.AverageSize), birch.Threshold}));
    EXPECT_EQ(0, s_clustersCalibrationParametersSet.lookup("Maple").MedianSize);
}

TEST(ReferenceClusters, AddClusterKeepsItsOwnCopyOfOneSizeAndSavedClustersLoadBack) {
    ScratchDirectory scratch;
    ReferenceClusters saved("clusters.fxd");
    auto cluster = MakeImage<unsigned short>(3, 2, {1, 2, 3, 4, 5, 65535});
    cluster->SetProperty("image.pixelcluster.pos.x", 7);
    saved.AddCluster(cluster);
    cluster->Fill(1000);
    cluster->SetProperty("image.pixelcluster.pos.x", 8);
    saved.AddCluster(cluster);
    EXPECT_THROW(saved.AddCluster(MakeImage<unsigned short>(2, 3)), ReferenceException);
    EXPECT_THROW(saved.AddCluster(ImagePtr<unsigned short>()), ReferenceException);
    EXPECT_THROW(saved.Load(), ReferenceException);  // no file yet: a failed load changes nothing
    ASSERT_EQ(2u, saved.GetClusters().size());
    EXPECT_NE(cluster, saved.GetClusters()[1]);
    EXPECT_EQ(std::vector<unsigned short>({1, 2, 3, 4, 5, 65535}), Pixels(saved.GetClusters()[0]));
    EXPECT_EQ(7, saved.GetClusters()[0]->GetProperty<int>("image.pixelcluster.pos.x"));
    saved.SetValid(true);
    saved.Save();

    ReferenceClusters loaded("clusters.fxd");
    loaded.AddCluster(MakeFilled<unsigned short>(5, 5, 1));
    loaded.Load();
    ASSERT_EQ(2u, loaded.GetClusters().size());
    EXPECT_EQ(std::vector<unsigned short>({1, 2, 3, 4, 5, 65535}), Pixels(loaded.GetClusters()[0]));
    EXPECT_EQ(std::vector<unsigned short>(6, 1000), Pixels(loaded.GetClusters()[1]));
    EXPECT_EQ(8, loaded.GetClusters()[1]->GetProperty<int>("image.pixelcluster.pos.x"));
    EXPECT_TRUE(loaded.IsValid());

    ReferenceClusters("clusters.fxd").Save();  // no cluster: the load empties the store
    loaded.Load();
    EXPECT_TRUE(loaded.GetClusters().empty());
}
