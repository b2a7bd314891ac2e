// The defect-map steps: the flag tests on rows, columns and bands, the classifier of
// defect neighbourhoods, and the merge of stores into the target map.
#include "TestImages.h"

#include "calibration/DefectMapChecker.h"
#include "calibration/DefectMapFlag.h"
#include "calibration/DefectMapMerge.h"
#include "image/WorkImages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace orvane::test;

namespace {

using P = DMFlagParameters;
const int W = 20, H = 12;

struct Rect { int x0, y0, x1, y1; };  // inclusive

Bytes Draw(Bytes grid, const std::vector<Rect>& rects, unsigned char v) {
    for (const Rect& r : rects)
        for (int y = r.y0; y <= r.y1; ++y)
            for (int x = r.x0; x <= r.x1; ++x) grid[y * W + x] = v;
    return grid;
}

// A W x H map marked 7 on `marks`, flagged with the parameters that `set` writes; it
// must come out as the marks with 1 on `flagged`.
struct Case { const char* what; std::function<void(P&)> set; std::vector<Rect> marks, flagged; };

void ExpectFlags(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        P p;
        c.set(p);
        const Bytes in = Draw(Bytes(W * H), c.marks, 7);
        auto map = MakeImage<unsigned char>(W, H);
        std::copy(in.begin(), in.end(), map->GetData());
        DefectMapFlag(p).UpdateDefectMap(map);
        EXPECT_EQ(Draw(in, c.flagged, 1), Pixels(map)) << c.what;
    }
}

void WholeFrame(P& p, float horizontal, float vertical) { p.TestWholeFrame = true, p.HorizontalRatio = horizontal, p.VerticalRatio = vertical; }

void Retest(P& p, float horizontal, float vertical) { p.RetestWholeFrame = true, p.RetestHorizontalRatio = horizontal, p.RetestVerticalRatio = vertical; }

// A seam row and a seam column, each unless negative.
void Split(P& p, int row, int column) { p.SplitRows = row >= 0, p.SplitColumns = column >= 0, p.SplitRow = row, p.SplitColumn = column; }

// Bands of columns 0..5 and 14..19: 12 columns x 0.125 gives a threshold of 1.
void Drz(P& p) { p.TestDRZLines = true, p.DRZRatio = 0.125f, p.DRZFirstCount = p.DRZSecondCount = 6, p.DRZSecondColumn = 14; }

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

using Store = boost::shared_ptr<ReferenceDM>;
constexpr int kWidth = 4, kHeight = 3;
const Bytes kTarget{0, 1, 128, 200, 255, 0, 3, 0, 0, 0, 9, 0};

Store StoreOf(int width, int height, const Bytes& values) {
    auto store = boost::make_shared<ReferenceDM>(width, height);
    std::copy(values.begin(), values.end(), store->GetDM()->GetData());
    return store;
}

ImageCollector<unsigned short>* ShortPool() {
    return ImageCollectorRegistry::Instance().FindCollector<unsigned short>(kWidth, kHeight);
}

struct MergeFixture {
    MergeFixture() { merge.Init(); }
    ~MergeFixture() { merge.Clear(); }
    ImagePtr<unsigned char> Map() { return target->GetDM(); }
    DMFlagParameters flags;  // flags nothing unless a test sets it
    Store target = StoreOf(kWidth, kHeight, kTarget);
    DefectMapMerge merge{target, boost::make_shared<DefectMapFlag>(flags)};
};

TEST(DefectMapFlag, RowIsFlaggedOnlyAboveItsThresholdAndCopyFollowsTheCallersRecord) {
    // 1000 x 0.1f is a little above 100 in double, so the threshold is 100.
    P p;
    WholeFrame(p, 0.1f, 1.0f);
    for (int marked : {100, 101}) {
        auto map = MakeImage<unsigned char>(1000, 1);
        for (int i = 0; i < marked; ++i) map->GetData()[i * 9] = i % 2 ? 7 : 255;
        const Bytes before = Pixels(map);
        DefectMapFlag(p).UpdateDefectMap(map);
        EXPECT_EQ(marked == 100 ? before : Bytes(1000, 1), Pixels(map)) << marked;
    }

    P q;
    const DefectMapFlag flag(q);
    DefectMapFlag copy(flag);
    q.TestWholeFrame = true;  // ratios 0
    auto map = MakeImage<unsigned char>(3, 2, {0, 7, 0, 0, 0, 0});
    copy.UpdateDefectMap(map);
    EXPECT_EQ(Bytes({1, 1, 1, 0, 1, 0}), Pixels(map));
    EXPECT_EQ(FailureText([&] { copy.UpdateDefectMap(nullptr); }),
              "DefectMapFlag : UpdateDefectMap failed due to null pointer");

    // A tested area, a DRZ band or a seam outside the map fails before any flag is set;
    // at the map's last row or column it is tested.
    const std::function<void(P&)> outside[] = {
        [](P& p) { p.TestArea = true, p.Area = ROI(1, 0, H, 1); },
        [](P& p) { p.TestArea = true, p.Area = ROI(0, 1, 1, W); },
        [](P& p) { Drz(p), p.DRZSecondColumn = W - 5; },
        [](P& p) { Drz(p), p.DRZFirstColumn = -1; },
        [](P& p) { Split(p, H, -1); },
        [](P& p) { Split(p, -1, W); },
        [](P& p) { Split(p, 0, -1), p.SplitRow = -2; },
    };
    for (const auto& set : outside) {
        P r;
        WholeFrame(r, 0.0f, 0.0f);
        set(r);
        auto full = MakeImage<unsigned char>(W, H);
        full->GetData()[0] = 1;
        EXPECT_EQ(FailureText([&] { DefectMapFlag(r).UpdateDefectMap(full); }),
                  "DefectMapFlag : UpdateDefectMap failed due to an area outside the map");
        EXPECT_EQ(1, std::count(full->GetData(), full->GetData() + W * H, 1));
    }
    P edge;
    edge.TestArea = true, edge.Area = ROI(H - 1, W - 1, 1, 1);
    auto last = MakeImage<unsigned char>(W, H);
    last->GetData()[W * H - 1] = 5;
    DefectMapFlag(edge).UpdateDefectMap(last);
    EXPECT_EQ(1, last->GetData()[W * H - 1]);
    Split(edge, H - 1, W - 1);
    EXPECT_NO_THROW(DefectMapFlag(edge).UpdateDefectMap(last));
}

TEST(DefectMapFlag, ThresholdsAreasSeamsBandsAndRetest) {
    // Rows 0..6 hold 11 marks in columns 0..10: rows above 20 x 0.5, columns above 12 x 0.5.
    const std::vector<Rect> block{{0, 0, 10, 6}};
    // Column 3 is flagged after the DRZ test, so row 9 keeps its single band mark.
    const std::vector<Rect> drz{{3, 0, 3, 6}, {15, 9, 15, 9}, {0, 4, 0, 4}, {19, 4, 19, 4}};
    ExpectFlags({
        {"all tests on an empty map", [](P& p) {
             WholeFrame(p, 0.0f, 0.0f), Retest(p, 0.0f, 0.0f), Drz(p), Split(p, 5, 9), p.TestArea = true, p.Area = ROI(1, 1, 10, 18);
         }, {}, {}},
        // Rows: ratio 0; columns: 12 x 0.08 = 0.96, truncated to 0.
        {"threshold below one", [](P& p) { WholeFrame(p, 0.0f, 0.08f); }, {{5, 3, 5, 3}}, {{0, 3, W - 1, 3}, {5, 0, 5, H - 1}}},
        {"area of height 0", [](P& p) { p.TestArea = true; p.Area = ROI(2, 3, 0, 5); }, {{0, 0, W - 1, H - 1}}, {}},
        {"area of width 0", [](P& p) { p.TestArea = true; p.Area = ROI(2, 3, 4, 0); }, {{0, 0, W - 1, H - 1}}, {}},
        // Rows 2..6, columns 4..11: rows 8 x 0.25 = 2, columns 5 x 0.5 -> 2 (not 5 x 0.25 -> 1).
        {"area", [](P& p) { p.TestArea = true, p.Area = ROI(2, 4, 5, 8), p.AreaHorizontalRatio = 0.25f, p.AreaVerticalRatio = 0.5f; }, {{5, 3, 7, 3}, {2, 3, 2, 3}, {15, 3, 15, 3}, {9, 4, 9, 6}, {9, 8, 9, 8}, {5, 5, 5, 5}, {0, 10, W - 1, 10}},
         {{4, 3, 11, 3}, {9, 2, 9, 6}}},
        // Seams belong to no segment.
        {"seam row", [](P& p) { WholeFrame(p, 0.0f, 1.0f); Split(p, 5, -1); },
         {{4, 2, 4, 2}, {2, 5, 2, 5}, {17, 9, 17, 9}}, {{0, 2, W - 1, 2}, {0, 9, W - 1, 9}}},
        // Left segment columns 0..7 (8 x 0.25 = 2), right 9..19 (11 x 0.25 -> 2).
        {"seam column", [](P& p) { WholeFrame(p, 0.25f, 1.0f); Split(p, -1, 8); },
         {{0, 1, 2, 1}, {8, 1, 8, 1}, {12, 1, 12, 1}, {10, 4, 12, 4}, {6, 6, 8, 6}}, {{0, 1, 7, 1}, {9, 4, W - 1, 4}}},
        // Row block 1 is rows 0..4 (5 x 0.5 -> 2); block 2 is not tested without a seam column.
        {"column test without seam column", [](P& p) { WholeFrame(p, 1.0f, 0.5f); Split(p, 5, -1); },
         {{3, 7, 3, 9}, {6, 0, 6, 2}, {6, 8, 6, 8}}, {{6, 0, 6, 4}}},
        // With both seams, block 2 (rows 6..11) is walked for 5 rows with threshold 2,
        {"column test with both seams", [](P& p) { WholeFrame(p, 1.0f, 0.5f); Split(p, 5, 10); },
         {{3, 6, 3, 8}, {14, 7, 14, 9}, {3, 11, 3, 11}, {14, 11, 14, 11}}, {{3, 6, 3, 10}, {14, 6, 14, 10}}},
        // and a block 2 shorter than block 1 (7 rows, threshold 3) only to the map's end.
        {"short row block 2", [](P& p) { WholeFrame(p, 1.0f, 0.5f); Split(p, 7, 10); }, {{2, 8, 2, H - 1}}, {{2, 8, 2, H - 1}}},
        // The first pass sees the input, the DRZ test its flags at once, the retest all flags.
        {"first pass", [](P& p) { WholeFrame(p, 0.5f, 0.5f); }, block, {{0, 0, W - 1, 6}, {0, 0, 10, H - 1}}},
        {"retest", [](P& p) { WholeFrame(p, 0.5f, 0.5f); Retest(p, 1.0f, 0.5f); }, block, {{0, 0, W - 1, H - 1}}},
        {"retest ratios", [](P& p) { WholeFrame(p, 1.0f, 1.0f); Retest(p, 0.5f, 1.0f); }, block, {{0, 0, W - 1, 6}}},
        {"DRZ bands as one unit per row", Drz, {{2, 1, 2, 1}, {19, 1, 19, 1}, {4, 3, 4, 3}, {6, 3, 13, 3}},
         {{0, 1, 5, 1}, {14, 1, 19, 1}}},
        {"DRZ between the tests and their flagging", [](P& p) { WholeFrame(p, 0.5f, 0.5f); Drz(p); },
         drz, {{3, 0, 3, H - 1}, {0, 4, 5, 4}, {14, 4, 19, 4}}},
        {"retest sees the DRZ flags", [](P& p) { WholeFrame(p, 0.5f, 0.5f); Drz(p); Retest(p, 0.5f, 1.0f); },
         drz, {{3, 0, 3, H - 1}, {0, 4, W - 1, 4}}},
    });
}

// Classified against two passes on copies; classifying again changes nothing.
TEST(DefectMapChecker, RandomMapsMatchTheClassesOnCopiesAndTheCallersMapIsKept) {
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

    // The checker keeps the caller's map and flag, and fails without a map.
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
    const DefectMapChecker constructed(MakeImage<unsigned char>(2, 1, {9, 0}));  // classifies at once
    EXPECT_TRUE(constructed.IsClassified());
    EXPECT_EQ(Bytes({1, 0}), Pixels(constructed.GetDefectMap()));
}

TEST(DefectMapMerge, StoresAreAddedWithWrapAroundAndUpdateFlagsAndClassifies) {
    MergeFixture f;
    f.merge.Merge(std::vector<Store>{});
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    f.merge.Merge(f.target);
    EXPECT_EQ(Pixels(f.Map()), (Bytes{0, 2, 0, 144, 254, 0, 6, 0, 0, 0, 18, 0}));  // 256 wraps to 0
    f.merge.Merge(std::vector<Store>{StoreOf(kWidth, kHeight, {1, 1, 1, 56, 0, 0, 0, 0, 0, 0, 0, 250}),
                                     StoreOf(3, 2, {5, 5, 5, 5, 5, 5})});  // 6 pixels in memory order
    EXPECT_EQ(Pixels(f.Map()), (Bytes{6, 8, 6, 205, 3, 5, 6, 0, 0, 0, 18, 250}));
    EXPECT_EQ(FailureText([&] { f.merge.Merge(Store()); }), "DefectMapMerge: Merge failed");

    // Updating flags the target, then classifies it.
    f.flags.TestWholeFrame = true;
    f.flags.HorizontalRatio = 0.5f;  // 3 of 4 in a row flags it: row 0, not row 1
    f.flags.VerticalRatio = 1.0f;    // no column is flagged
    std::copy_n(Bytes{0, 200, 7, 1, 0, 0, 9, 44, 0, 0, 0, 0}.begin(), 12, f.Map()->GetData());
    f.merge.UpdateDefectMapReference();
    EXPECT_EQ(Pixels(f.Map()), (Bytes{2, 4, 5, 4, 0, 0, 5, 4, 0, 0, 0, 0}));  // 1 + defect neighbours
}

TEST(DefectMapMerge, FactoryMapIsAddedByItsLowEightBitsAndGivesItsProperties) {
    MergeFixture f;
    f.Map()->SetProperty("image.time", 5);
    const ImagePtr<unsigned short> lent = ShortPool()->GetPool().at(0);  // used before: must be cleared
    std::fill(lent->GetData(), lent->GetData() + lent->GetPixelCount(), static_cast<unsigned short>(77));
    lent->SetProperty("image.stale", 1);
    f.merge.MergeFactoryDM([](ImagePtr<unsigned short>&) {});  // writes nothing
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    EXPECT_TRUE(f.Map()->GetProperties().empty());

    f.merge.MergeFactoryDM([](ImagePtr<unsigned short>& image) {
        const unsigned short values[] = {256, 257, 300, 56, 1, 0, 65535};
        std::copy(std::begin(values), std::end(values), image->GetData());
        image->SetProperty("image.source", "factory");
    });
    EXPECT_EQ(Pixels(f.Map()), (Bytes{0, 2, 172, 0, 0, 0, 2, 0, 0, 0, 9, 0}));  // + 0, 1, 44, 56, 1, 0, 255
    EXPECT_EQ(f.Map()->GetProperties().get<std::string>("image.source"), "factory");

    // The loader may repoint the image; the lent one goes back, also after a failure.
    const auto own = MakeFilled<unsigned short>(kWidth, kHeight, 2);
    f.merge.MergeFactoryDM([&own](ImagePtr<unsigned short>& image) { image = own; });
    EXPECT_EQ(FailureText([&] { f.merge.MergeFactoryDM({}); }), "DefectMapMerge: MergeFactory failed");
    EXPECT_EQ(Pixels(f.Map()), (Bytes{2, 4, 174, 2, 2, 2, 4, 2, 2, 2, 11, 2}));
    EXPECT_TRUE(ShortPool()->GetInUse().empty());
}

TEST(DefectMapMerge, ExternalMapIsMergedThroughTheStoreWithAPooledImage) {
    MergeFixture f;
    f.merge.Init();  // once only
    ASSERT_EQ(ShortPool()->GetCollections().size(), 1u);
    EXPECT_EQ(ShortPool()->GetCollections()[0].lock()->GetReserved(), 1u);
    f.merge.MergeExternalDM();  // the store has none: nothing happens
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    f.target->SetExternalDM(MakeImage<unsigned char>(kWidth, kHeight, {1, 0, 128, 100}));
    f.merge.MergeExternalDM();
    EXPECT_EQ(Pixels(f.Map()), (Bytes{1, 1, 0, 44, 255, 0, 3, 0, 0, 0, 9, 0}));
    EXPECT_TRUE(f.target->IsMerged());

    f.merge.Clear();  // a second Clear, by the fixture, does nothing
    EXPECT_TRUE(ShortPool()->GetCollections().empty());
    EXPECT_THROW(f.merge.MergeExternalDM(), CalibrationException);
    EXPECT_THROW(f.merge.MergeFactoryDM([](ImagePtr<unsigned short>&) {}), CalibrationException);
}

}  // namespace

// Merges on several threads, beside calibrations' work images of the same format,
// borrow pooled images one at a time: each merge adds its own loader's values, and
// the pool ends with no image in use.
TEST(DefectMapMerge, MergesOnSeveralThreadsShareThePoolWithWorkImages) {
    static constexpr int kThreads = 4, kRounds = 400, kW = 29, kH = 7;
    const DMFlagParameters flags;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread, &flags, &wrong] {
            for (int round = 0; round < kRounds; ++round) {
                const auto mark = static_cast<unsigned short>(1 + (thread * kRounds + round) % 250);
                if (thread % 2 == 1) {
                    ImagePtr<unsigned short> image;  // a slot outlives its account
                    orvane::detail::WorkImages<unsigned short> images;
                    images.Open(kW, kH, 1, {&image});
                    image->Fill(mark);
                    std::this_thread::yield();
                    wrong += image->GetData()[kW * kH - 1] != mark;
                    continue;
                }
                auto store = boost::make_shared<ReferenceDM>(kW, kH);
                DefectMapMerge merge(store, boost::make_shared<DefectMapFlag>(flags));
                merge.Init();
                merge.MergeFactoryDM([mark](ImagePtr<unsigned short>& image) {
                    image->Fill(mark);
                    std::this_thread::yield();
                });
                wrong += store->GetDM()->GetData()[kW * kH - 1] != mark;
                merge.Clear();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, wrong.load());
    const ImageCollector<unsigned short>* pool =
        ImageCollectorRegistry::Instance().FindCollector<unsigned short>(kW, kH);
    ASSERT_NE(nullptr, pool);
    EXPECT_TRUE(pool->GetInUse().empty());
}
