#include "TestImages.h"

#include "interfaces/ReferenceDM.h"

#include <gtest/gtest.h>

using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::ScratchDirectory;

TEST(ReferenceDM, MergeWithoutExternalMapChangesNothing) {
    ReferenceDM store(3, 1);
    store.GetDM()->GetData()[1] = 5;
    auto image = MakeImage<unsigned char>(3, 1, {7, 7, 7});
    EXPECT_FALSE(store.LoadMergeDM(image));
    EXPECT_EQ((std::vector<unsigned char>{7, 7, 7}), Pixels(image));
    EXPECT_EQ((std::vector<unsigned char>{0, 5, 0}), Pixels(store.GetDM()));
    EXPECT_FALSE(store.IsMerged());
}

TEST(ReferenceDM, MergeAddsACopyOfTheExternalMapWithWrapAround) {
    ReferenceDM store(3, 1);
    const ImagePtr<unsigned char> live = store.GetDM();
    *live->GetBuffer() = *MakeImage<unsigned char>(3, 1, {200, 0, 1})->GetBuffer();
    auto external = MakeImage<unsigned char>(3, 1, {100, 3, 0});
    external->SetProperty("origin", "factory");
    store.SetExternalDM(external);
    external->GetData()[1] = 99;  // the store kept its own copy

    auto image = MakeImage<unsigned char>(3, 1);
    EXPECT_TRUE(store.LoadMergeDM(image));
    EXPECT_EQ((std::vector<unsigned char>{100, 3, 0}), Pixels(image));
    EXPECT_EQ("factory", image->GetProperty<std::string>("origin"));
    EXPECT_EQ((std::vector<unsigned char>{44, 3, 1}), Pixels(live));  // 300 keeps its low byte
    EXPECT_TRUE(store.IsMerged());

    EXPECT_THROW(store.SetExternalDM(MakeImage<unsigned char>(1, 3)), ReferenceException);
    EXPECT_THROW(store.LoadMergeDM(MakeImage<unsigned char>(2, 1)), ReferenceException);
    store.SetExternalDM(nullptr);
    EXPECT_FALSE(store.HasExternalDM());
}

TEST(ReferenceDM, SaveAndLoadKeepMapExternalMapAndFlags) {
    ScratchDirectory directory;
    {
        ReferenceDM saved(2, 2, "dm.fxd");
        *saved.GetDM()->GetBuffer() = *MakeImage<unsigned char>(2, 2, {1, 0, 9, 17})->GetBuffer();
        saved.SetExternalDM(MakeImage<unsigned char>(2, 2, {0, 4, 0, 0}));
        saved.SetMerged(true);
        saved.SetValid(true);
        saved.Save();
    }
    ReferenceDM loaded(2, 2, "dm.fxd");
    loaded.Load();
    EXPECT_EQ((std::vector<unsigned char>{1, 0, 9, 17}), Pixels(loaded.GetDM()));
    EXPECT_TRUE(loaded.IsMerged());
    EXPECT_TRUE(loaded.IsValid());
    auto image = MakeImage<unsigned char>(2, 2);
    ASSERT_TRUE(loaded.LoadMergeDM(image));
    EXPECT_EQ((std::vector<unsigned char>{0, 4, 0, 0}), Pixels(image));

    // A store without an external map saves one image; loading it drops the old one.
    ReferenceDM plain(2, 2, "dm.fxd");
    plain.Save();
    loaded.Load();
    EXPECT_FALSE(loaded.HasExternalDM());
    EXPECT_FALSE(loaded.IsMerged());
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 0, 0}), Pixels(loaded.GetDM()));

    ReferenceDM otherSize(4, 1, "dm.fxd");
    EXPECT_THROW(otherSize.Load(), ReferenceException);
}
