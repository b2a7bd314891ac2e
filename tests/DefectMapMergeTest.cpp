#include "TestImages.h"

#include "calibration/DefectMapMerge.h"

#include <gtest/gtest.h>

using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;

namespace {

using Store = boost::shared_ptr<ReferenceDM>;
using Bytes = std::vector<unsigned char>;
constexpr int kWidth = 4;
constexpr int kHeight = 3;
const Bytes kTarget{0, 1, 128, 200, 255, 0, 3, 0, 0, 0, 9, 0};

Store StoreOf(int width, int height, std::initializer_list<unsigned char> values) {
    auto store = boost::make_shared<ReferenceDM>(width, height);
    *store->GetDM()->GetBuffer() = *MakeImage<unsigned char>(width, height, values)->GetBuffer();
    return store;
}

// (a + b) mod 256 over the pixels that b has.
Bytes WrappedSum(const Bytes& a, const std::vector<int>& b) {
    Bytes sum(a);
    for (size_t i = 0; i < b.size(); ++i) sum[i] = static_cast<unsigned char>((a[i] + b[i]) % 256);
    return sum;
}

ImageCollector<unsigned short>* ShortPool() {
    return ImageCollectorRegistry::Instance().FindCollector<unsigned short>(kWidth, kHeight);
}

struct MergeFixture {
    MergeFixture() : target(StoreOf(kWidth, kHeight, {0, 1, 128, 200, 255, 0, 3, 0, 0, 0, 9, 0})),
                     merge(target, boost::make_shared<DefectMapFlag>(flagParameters)) {
        merge.Init();
    }
    ~MergeFixture() { merge.Clear(); }
    ImagePtr<unsigned char> Map() { return target->GetDM(); }

    DMFlagParameters flagParameters;  // flags nothing unless a test sets it
    Store target;
    DefectMapMerge merge;
};

TEST(DefectMapMerge, MergingAMapWithItselfDoublesItAndWraps) {
    MergeFixture f;
    f.merge.Merge(f.target);
    EXPECT_EQ(Pixels(f.Map()), (Bytes{0, 2, 0, 144, 254, 0, 6, 0, 0, 0, 18, 0}));
}

TEST(DefectMapMerge, MergesStoresInOrderAndSmallerOnesByTheirPixelCount) {
    MergeFixture f;
    f.merge.Merge(std::vector<Store>{});
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    f.merge.Merge(std::vector<Store>{StoreOf(kWidth, kHeight, {1, 1, 1, 56, 0, 0, 0, 0, 0, 0, 0, 250}),
                                     StoreOf(3, 2, {5, 5, 5, 5, 5, 5})});  // 6 pixels in memory order
    EXPECT_EQ(Pixels(f.Map()), WrappedSum(WrappedSum(kTarget, {1, 1, 1, 56, 0, 0, 0, 0, 0, 0, 0, 250}),
                                          {5, 5, 5, 5, 5, 5}));
    LogCapture log;
    EXPECT_THROW(f.merge.Merge(Store()), CalibrationException);
    EXPECT_TRUE(!log.lines.empty() && log.lines.back().find("): DefectMapMerge: Merge failed\n") != std::string::npos);
}

TEST(DefectMapMerge, FactoryMapIsAddedByItsLowEightBitsAndGivesItsProperties) {
    MergeFixture f;
    f.Map()->SetProperty("image.time", 5);
    f.merge.MergeFactoryDM([](ImagePtr<unsigned short>& image) {
        const unsigned short values[] = {256, 257, 300, 56, 1, 0, 65535};
        std::copy(std::begin(values), std::end(values), image->GetData());
        image->SetProperty("image.source", "factory");
    });
    EXPECT_EQ(Pixels(f.Map()), WrappedSum(kTarget, {0, 1, 44, 56, 1, 0, 255}));
    EXPECT_EQ(f.Map()->GetProperties().get<std::string>("image.source"), "factory");
    EXPECT_FALSE(f.Map()->GetProperties().get_optional<int>("image.time"));
}

TEST(DefectMapMerge, LoaderGetsAClearedImageAndWritingNothingStillReplacesProperties) {
    MergeFixture f;
    f.Map()->SetProperty("image.time", 5);
    const ImagePtr<unsigned short> pooled = ShortPool()->GetPool().at(0);  // lent again, used
    std::fill(pooled->GetData(), pooled->GetData() + pooled->GetPixelCount(), static_cast<unsigned short>(77));
    pooled->SetProperty("image.stale", 1);
    f.merge.MergeFactoryDM([](ImagePtr<unsigned short>&) {});
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    EXPECT_TRUE(f.Map()->GetProperties().empty());
}

TEST(DefectMapMerge, LoaderMayRepointTheImageAndTheLentOneGoesBack) {
    MergeFixture f;
    const auto own = MakeFilled<unsigned short>(kWidth, kHeight, 2);
    f.merge.MergeFactoryDM([&own](ImagePtr<unsigned short>& image) { image = own; });
    EXPECT_EQ(Pixels(f.Map()), WrappedSum(kTarget, std::vector<int>(12, 2)));
    EXPECT_TRUE(ShortPool()->GetInUse().empty());
}

TEST(DefectMapMerge, EmptyLoaderFailsAndGivesTheImageBack) {
    MergeFixture f;
    try {
        f.merge.MergeFactoryDM(boost::function<void(ImagePtr<unsigned short>&)>());
        FAIL() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_NE(std::string(e.what()).find("): DefectMapMerge: MergeFactory failed"), std::string::npos);
    }
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    EXPECT_TRUE(ShortPool()->GetInUse().empty());
}

TEST(DefectMapMerge, ExternalMapIsMergedThroughTheStore) {
    MergeFixture f;
    f.merge.MergeExternalDM();  // the store has none: nothing happens
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    f.target->SetExternalDM(MakeImage<unsigned char>(kWidth, kHeight, {1, 0, 128, 100}));
    f.merge.MergeExternalDM();
    EXPECT_EQ(Pixels(f.Map()), WrappedSum(kTarget, {1, 0, 128, 100}));
    EXPECT_TRUE(f.target->IsMerged());
}

TEST(DefectMapMerge, PoolIsReservedOnceAndNeededForLentImages) {
    DMFlagParameters none;
    DefectMapMerge merge(StoreOf(kWidth, kHeight, {}), boost::make_shared<DefectMapFlag>(none));
    merge.Clear();  // without Init: nothing
    merge.Init();
    merge.Init();
    ASSERT_NE(ShortPool(), nullptr);
    ASSERT_EQ(ShortPool()->GetCollections().size(), 1u);
    EXPECT_EQ(ShortPool()->GetCollections()[0].lock()->GetReserved(), 1u);
    merge.Clear();
    EXPECT_TRUE(ShortPool()->GetCollections().empty());
    EXPECT_THROW(merge.MergeExternalDM(), CalibrationException);
    EXPECT_THROW(merge.MergeFactoryDM([](ImagePtr<unsigned short>&) {}), CalibrationException);
}

TEST(DefectMapMerge, UpdateFlagsThenClassifiesTheTarget) {
    MergeFixture f;
    f.flagParameters.TestWholeFrame = true;
    f.flagParameters.HorizontalRatio = 0.5f;  // 3 of 4 in a row flags it
    f.flagParameters.VerticalRatio = 1.0f;    // no column is flagged
    // Row 0 holds 3 defects of 4 and is flagged whole; row 1 holds 2 and is not.
    *f.Map()->GetBuffer() = *MakeImage<unsigned char>(kWidth, kHeight, {0, 200, 7, 1, 0, 0, 9, 44})->GetBuffer();
    f.merge.UpdateDefectMapReference();
    // Classes: 1 + the defect neighbours.
    EXPECT_EQ(Pixels(f.Map()), (Bytes{2, 4, 5, 4, 0, 0, 5, 4, 0, 0, 0, 0}));
}

}  // namespace
