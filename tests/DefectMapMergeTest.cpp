#include "TestImages.h"

#include "calibration/DefectMapMerge.h"

#include <gtest/gtest.h>

using namespace orvane::test;

namespace {

using Store = boost::shared_ptr<ReferenceDM>;
using Bytes = std::vector<unsigned char>;
constexpr int kWidth = 4;
constexpr int kHeight = 3;
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

TEST(DefectMapMerge, StoresAreAddedWithWrapAroundOverTheSmallerSize) {
    MergeFixture f;
    f.merge.Merge(std::vector<Store>{});
    EXPECT_EQ(Pixels(f.Map()), kTarget);
    f.merge.Merge(f.target);
    EXPECT_EQ(Pixels(f.Map()), (Bytes{0, 2, 0, 144, 254, 0, 6, 0, 0, 0, 18, 0}));  // 256 wraps to 0
    f.merge.Merge(std::vector<Store>{StoreOf(kWidth, kHeight, {1, 1, 1, 56, 0, 0, 0, 0, 0, 0, 0, 250}),
                                     StoreOf(3, 2, {5, 5, 5, 5, 5, 5})});  // 6 pixels in memory order
    EXPECT_EQ(Pixels(f.Map()), (Bytes{6, 8, 6, 205, 3, 5, 6, 0, 0, 0, 18, 250}));
    EXPECT_EQ(FailureText([&] { f.merge.Merge(Store()); }), "DefectMapMerge: Merge failed");
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

TEST(DefectMapMerge, UpdateFlagsThenClassifiesTheTarget) {
    MergeFixture f;
    f.flags.TestWholeFrame = true;
    f.flags.HorizontalRatio = 0.5f;  // 3 of 4 in a row flags it: row 0, not row 1
    f.flags.VerticalRatio = 1.0f;    // no column is flagged
    std::copy_n(Bytes{0, 200, 7, 1, 0, 0, 9, 44, 0, 0, 0, 0}.begin(), 12, f.Map()->GetData());
    f.merge.UpdateDefectMapReference();
    EXPECT_EQ(Pixels(f.Map()), (Bytes{2, 4, 5, 4, 0, 0, 5, 4, 0, 0, 0, 0}));  // 1 + defect neighbours
}

}  // namespace
