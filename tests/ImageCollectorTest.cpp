#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <typeinfo>
#include <vector>

using orvane::test::Pixels;

// The registry is shared by the whole process: every test below uses an image
// format of its own so that no test sees another's pool.

namespace {

template <typename T>
boost::shared_ptr<ImageCollection<T>> Open(int width, int height) {
    return ImageCollectorRegistry::Instance().GetCollection<T>(width, height, false);
}

template <typename T>
const std::vector<ImagePtr<T>>& PoolOf(const boost::shared_ptr<ImageCollection<T>>& collection) {
    return collection->GetCollector()->GetPool();
}

template <typename T>
const std::vector<ImagePtr<T>>& InUseOf(const boost::shared_ptr<ImageCollection<T>>& collection) {
    return collection->GetCollector()->GetInUse();
}

template <typename T>
size_t RegisteredWithFormat(int width, int height) {
    const auto& all = ImageCollectorRegistry::Instance().GetCollectors();
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const ImageCollectorBase* c) {
        return c->GetWidth() == width && c->GetHeight() == height && c->GetPixelType() == typeid(T);
    }));
}

}  // namespace

TEST(ImageCollector, AcquireTakesTheFreeImageNearestThePoolStart) {
    auto client = Open<unsigned short>(1001, 3);
    client->Reserve(3);
    const std::vector<ImagePtr<unsigned short>> pool = PoolOf(client);
    ASSERT_EQ(3u, pool.size());
    EXPECT_TRUE(InUseOf(client).empty());

    const auto first = client->Acquire();
    const auto second = client->Acquire();
    const auto third = client->Acquire();
    EXPECT_EQ(pool, (std::vector<ImagePtr<unsigned short>>{first, second, third}));
    EXPECT_EQ(3u, client->GetAcquired());

    client->Release(second);
    client->Release(first);
    EXPECT_EQ(1u, client->GetAcquired());
    EXPECT_EQ((std::vector<ImagePtr<unsigned short>>{third}), InUseOf(client));

    EXPECT_EQ(first, client->Acquire());
    EXPECT_EQ((std::vector<ImagePtr<unsigned short>>{first, third}), InUseOf(client));
    EXPECT_EQ(second, client->Acquire());
    EXPECT_EQ(pool, InUseOf(client));

    // Nothing free: a new image is made and appended to both lists.
    const auto fourth = client->Acquire();
    ASSERT_EQ(4u, PoolOf(client).size());
    EXPECT_EQ(fourth, PoolOf(client)[3]);
    EXPECT_EQ(PoolOf(client), InUseOf(client));
    EXPECT_EQ(4u, client->GetAcquired());
}

TEST(ImageCollector, NewImageIsZeroFilledRecycledImageKeepsPixelsAndProperties) {
    auto client = Open<float>(1003, 2);
    client->Reserve(1);
    auto image = client->Acquire();
    EXPECT_EQ(1003, image->GetWidth());
    EXPECT_EQ(2, image->GetHeight());
    EXPECT_EQ(std::vector<float>(2006, 0.f), Pixels(image));

    image->GetData()[5] = 42.f;
    image->SetProperty<int>("image.pixelcluster.pos.x", 9);
    client->Release(image);

    const auto again = client->Acquire();
    EXPECT_EQ(image, again);
    EXPECT_EQ(42.f, again->GetData()[5]);
    EXPECT_EQ(9, again->GetProperty<int>("image.pixelcluster.pos.x"));

    const auto fresh = client->Acquire();
    EXPECT_NE(image, fresh);
    EXPECT_EQ(std::vector<float>(2006, 0.f), Pixels(fresh));
    EXPECT_TRUE(fresh->GetProperties().empty());
}

TEST(ImageCollector, ClientsOfOneFormatShareThePoolAndGrowOnlyOnDemand) {
    auto a = Open<unsigned short>(1007, 3);
    auto b = Open<unsigned short>(1007, 3);
    ASSERT_EQ(a->GetCollector(), b->GetCollector());
    a->Reserve(1);
    b->Reserve(1);
    EXPECT_EQ(1u, PoolOf(a).size());

    const auto imageA = a->Acquire();
    const auto imageB = b->Acquire();
    EXPECT_NE(imageA, imageB);
    EXPECT_EQ(2u, PoolOf(a).size());

    b->Release(imageB);
    a->Release(imageA);
    a->Close();
    EXPECT_EQ(1u, PoolOf(b).size());  // b still reserves one
    EXPECT_EQ(imageA, PoolOf(b)[0]);  // trimmed from the end
    b->Close();
    EXPECT_TRUE(PoolOf(b).empty());
    EXPECT_TRUE(b->GetCollector()->GetCollections().empty());
}

TEST(ImageCollector, PoolFollowsTheLargestReservationNotTheSum) {
    auto small = Open<unsigned char>(1009, 2);
    auto large = Open<unsigned char>(1009, 2);
    small->Reserve(1);
    large->Reserve(1);
    large->Reserve(2);  // reservations of one client add up
    EXPECT_EQ(3u, large->GetReserved());
    EXPECT_EQ(3u, PoolOf(large).size());

    std::vector<ImagePtr<unsigned char>> held;
    for (int i = 0; i < 3; ++i) held.push_back(large->Acquire());
    for (const auto& image : held) large->Release(image);
    large->Close();

    EXPECT_EQ(0u, large->GetReserved());
    ASSERT_EQ(1u, PoolOf(small).size());
    EXPECT_EQ(held[0], PoolOf(small)[0]);
    EXPECT_EQ(1u, small->GetCollector()->GetCollections().size());
}

TEST(ImageCollector, TrimKeepsThePoolWhileMoreImagesAreInUseThanNeeded) {
    auto a = Open<float>(1013, 2);
    auto b = Open<float>(1013, 2);
    a->Reserve(1);
    b->Reserve(1);
    const auto imageA = a->Acquire();
    const auto imageB = b->Acquire();

    auto passer = Open<float>(1013, 2);
    passer->Reserve(1);
    passer->Close();  // needs 1, but 2 are in use
    EXPECT_EQ(2u, PoolOf(a).size());

    b->Release(imageB);
    auto passer2 = Open<float>(1013, 2);
    passer2->Reserve(1);
    passer2->Close();
    ASSERT_EQ(1u, PoolOf(a).size());
    EXPECT_EQ(imageA, PoolOf(a)[0]);
    a->Release(imageA);
}

TEST(ImageCollector, CloseWithoutReservationDoesNotTrim) {
    auto keeper = Open<unsigned short>(1019, 2);
    keeper->Reserve(1);
    const auto x = keeper->Acquire();
    const auto y = keeper->Acquire();  // grows the pool to 2 on demand
    keeper->Release(x);
    keeper->Release(y);

    auto idle = Open<unsigned short>(1019, 2);
    EXPECT_EQ(2u, keeper->GetCollector()->GetCollections().size());
    idle->Close();
    EXPECT_EQ(2u, PoolOf(keeper).size());
    EXPECT_EQ(1u, keeper->GetCollector()->GetCollections().size());

    auto reserving = Open<unsigned short>(1019, 2);
    reserving->Reserve(1);
    reserving->Close();
    EXPECT_EQ(1u, PoolOf(keeper).size());
}

TEST(ImageCollector, DeadCollectionsAreSkippedByTrim) {
    auto survivor = Open<float>(1021, 2);
    ImageCollector<float>* collector = survivor->GetCollector();
    {
        auto forgotten = Open<float>(1021, 2);
        forgotten->Reserve(3);
    }  // dies without Close: its reservation must not count any more
    EXPECT_EQ(3u, collector->GetPool().size());

    survivor->Reserve(1);
    survivor->Close();
    EXPECT_TRUE(collector->GetPool().empty());
}

TEST(ImageCollectorRegistry, OwnCollectorServesOneCollectionOutsideTheRegistry) {
    auto own = ImageCollectorRegistry::Instance().GetCollection<float>(1031, 2, true);
    ImageCollector<float>* registered = ImageCollectorRegistry::Instance().FindCollector<float>(1031, 2);
    ASSERT_NE(nullptr, registered);
    EXPECT_NE(registered, own->GetCollector());
    EXPECT_EQ(1u, RegisteredWithFormat<float>(1031, 2));

    auto shared = Open<float>(1031, 2);
    EXPECT_EQ(registered, shared->GetCollector());
    auto ownToo = ImageCollectorRegistry::Instance().GetCollection<float>(1031, 2, true);
    EXPECT_NE(own->GetCollector(), ownToo->GetCollector());
    EXPECT_EQ(1u, RegisteredWithFormat<float>(1031, 2));

    own->Reserve(2);
    const auto image = own->Acquire();
    EXPECT_EQ(1031, image->GetWidth());
    EXPECT_EQ(2u, PoolOf(own).size());
    EXPECT_TRUE(registered->GetPool().empty());
    EXPECT_TRUE(registered->GetInUse().empty());

    own->GetCollector()->Clear();
    EXPECT_TRUE(PoolOf(own).empty());
    EXPECT_TRUE(InUseOf(own).empty());
    EXPECT_TRUE(own->GetCollector()->GetCollections().empty());
}

TEST(ImageCollectorRegistry, FindsTheCollectorByWidthHeightAndPixelType) {
    const size_t before = ImageCollectorRegistry::Instance().GetCollectors().size();
    auto base = Open<unsigned short>(1033, 11);
    auto swapped = Open<unsigned short>(11, 1033);
    auto taller = Open<unsigned short>(1033, 12);
    auto otherType = Open<float>(1033, 11);
    auto narrowType = Open<unsigned char>(1033, 11);
    auto same = Open<unsigned short>(1033, 11);

    EXPECT_EQ(before + 5, ImageCollectorRegistry::Instance().GetCollectors().size());
    EXPECT_EQ(base->GetCollector(), same->GetCollector());
    const std::vector<const void*> distinct{base->GetCollector(), swapped->GetCollector(), taller->GetCollector(),
                                            otherType->GetCollector(), narrowType->GetCollector()};
    for (size_t i = 0; i < distinct.size(); ++i) {
        for (size_t j = i + 1; j < distinct.size(); ++j) EXPECT_NE(distinct[i], distinct[j]) << i << " " << j;
    }
    EXPECT_TRUE(typeid(float) == otherType->GetCollector()->GetPixelType());
    EXPECT_EQ(11, swapped->GetCollector()->GetWidth());
    EXPECT_EQ(1033, swapped->GetCollector()->GetHeight());
}
