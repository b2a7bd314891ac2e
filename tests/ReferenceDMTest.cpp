#include "TestImages.h"

#include "interfaces/ReferenceDM.h"

#include <gtest/gtest.h>

using namespace orvane::test;
using Bytes = std::vector<unsigned char>;

TEST(ReferenceDM, MergeAddsACopyOfTheExternalMapWithWrapAround) {
    ReferenceDM store(3, 1);
    const ImagePtr<unsigned char> live = store.GetDM();
    std::copy_n(Bytes{200, 0, 1}.begin(), 3, live->GetData());
    auto image = MakeImage<unsigned char>(3, 1, {7, 7, 7});
    EXPECT_FALSE(store.LoadMergeDM(image));  // no external map yet: nothing changes
    EXPECT_EQ(Bytes({7, 7, 7}), Pixels(image));
    EXPECT_EQ(Bytes({200, 0, 1}), Pixels(live));
    EXPECT_FALSE(store.IsMerged());
    EXPECT_THROW(store.LoadMergeDM(MakeImage<unsigned char>(3, 2)), ReferenceException);

    auto external = MakeImage<unsigned char>(3, 1, {100, 3, 0});
    external->SetProperty("origin", "factory");
    store.SetExternalDM(external);
    external->GetData()[1] = 99;  // the store kept its own copy
    EXPECT_TRUE(store.LoadMergeDM(image));
    EXPECT_EQ(Bytes({100, 3, 0}), Pixels(image));
    EXPECT_EQ("factory", image->GetProperty<std::string>("origin"));
    EXPECT_EQ(Bytes({44, 3, 1}), Pixels(live));  // 300 keeps its low byte
    EXPECT_TRUE(store.IsMerged());

    EXPECT_THROW(store.SetExternalDM(MakeImage<unsigned char>(3, 2)), ReferenceException);
    store.SetExternalDM(nullptr);
    EXPECT_FALSE(store.HasExternalDM());
}

TEST(ReferenceDM, SaveAndLoadKeepMapExternalMapAndFlags) {
    ScratchDirectory directory;
    ReferenceDM saved(2, 2, "dm.fxd"), loaded(2, 2, "dm.fxd");
    std::copy_n(Bytes{1, 0, 9, 17}.begin(), 4, saved.GetDM()->GetData());
    saved.SetExternalDM(MakeImage<unsigned char>(2, 2, {0, 4, 0, 0}));
    saved.SetMerged(true);
    saved.SetValid(true);
    saved.Save();
    loaded.Load();
    EXPECT_EQ(Bytes({1, 0, 9, 17}), Pixels(loaded.GetDM()));
    EXPECT_TRUE(loaded.IsMerged() && loaded.IsValid());
    auto image = MakeImage<unsigned char>(2, 2);
    ASSERT_TRUE(loaded.LoadMergeDM(image));
    EXPECT_EQ(Bytes({0, 4, 0, 0}), Pixels(image));

    // A store without an external map saves one image; loading it drops the old one.
    ReferenceDM(2, 2, "dm.fxd").Save();
    loaded.Load();
    EXPECT_FALSE(loaded.HasExternalDM());
    EXPECT_FALSE(loaded.IsMerged());
    EXPECT_EQ(Bytes({0, 0, 0, 0}), Pixels(loaded.GetDM()));
    EXPECT_THROW(ReferenceDM(4, 1, "dm.fxd").Load(), ReferenceException);
}
