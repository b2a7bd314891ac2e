#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <typeinfo>
#include <vector>

using orvane::test::Pixels;

// The registry is shared by the whole process: every test below uses image formats
// of its own, and starts with every pool emptied, so that no test, nor a repeat of
// it, sees another's pool.

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

// The registered collectors of this format.
template <typename T>
long Registered(int width, int height) {
    const auto& all = ImageCollectorRegistry::Instance().GetCollectors();
    return std::count_if(all.begin(), all.end(), [&](const ImageCollectorBase* c) {
        return c->GetWidth() == width && c->GetHeight() == height && c->GetPixelType() == typeid(T);
    });
}

using Shorts = std::vector<ImagePtr<unsigned short>>;

class Pools : public ::testing::Test {
    void SetUp() override {
        for (ImageCollectorBase* collector : ImageCollectorRegistry::Instance().GetCollectors()) collector->Clear();
    }
};
using Registry = Pools;

}  // namespace

TEST_F(Pools, AcquireTakesTheFreeImageNearestThePoolStartAndOnlyANewOneIsZeroFilled) {
    auto client = Open<unsigned short>(1001, 3);
    client->Reserve(3);
    const Shorts pool = PoolOf(client);
    ASSERT_EQ(3u, pool.size());
    EXPECT_TRUE(InUseOf(client).empty());
    const auto first = client->Acquire(), second = client->Acquire(), third = client->Acquire();
    EXPECT_EQ(pool, (Shorts{first, second, third}));
    EXPECT_EQ(3u, client->GetAcquired());

    second->GetData()[5] = 42;
    second->SetProperty<int>("image.pixelcluster.pos.x", 9);
    client->Release(second);
    client->Release(first);
    EXPECT_EQ(1u, client->GetAcquired());
    EXPECT_EQ((Shorts{third}), InUseOf(client));
    EXPECT_EQ(first, client->Acquire());
    EXPECT_EQ((Shorts{first, third}), InUseOf(client));
    EXPECT_EQ(second, client->Acquire());
    EXPECT_EQ(pool, InUseOf(client));
    EXPECT_EQ(42, second->GetData()[5]);  // a recycled image keeps pixels and properties
    EXPECT_EQ(9, second->GetProperty<int>("image.pixelcluster.pos.x"));

    // Nothing free: a new, zero-filled image is made and appended to both lists.
    const auto fourth = client->Acquire();
    ASSERT_EQ(4u, PoolOf(client).size());
    EXPECT_EQ(fourth, PoolOf(client)[3]);
    EXPECT_EQ(PoolOf(client), InUseOf(client));
    EXPECT_EQ(4u, client->GetAcquired());
    EXPECT_EQ(1001, fourth->GetWidth());
    EXPECT_EQ(std::vector<unsigned short>(3003, 0), Pixels(fourth));
    EXPECT_TRUE(fourth->GetProperties().empty());
}

TEST_F(Pools, ClientsOfOneFormatShareAPoolOfTheLargestReservationNotTheSum) {
    auto a = Open<unsigned short>(1007, 3), b = Open<unsigned short>(1007, 3);
    ASSERT_EQ(a->GetCollector(), b->GetCollector());
    a->Reserve(1);
    b->Reserve(1);
    EXPECT_EQ(1u, PoolOf(a).size());
    const auto imageA = a->Acquire(), imageB = b->Acquire();  // grows on demand
    EXPECT_NE(imageA, imageB);
    EXPECT_EQ(2u, PoolOf(a).size());
    b->Release(imageB);
    a->Release(imageA);
    a->Close();
    EXPECT_EQ((Shorts{imageA}), PoolOf(b));  // b still reserves one; trimmed from the end
    b->Close();
    EXPECT_TRUE(PoolOf(b).empty());
    EXPECT_TRUE(b->GetCollector()->GetCollections().empty());

    auto small = Open<unsigned char>(1009, 2), large = Open<unsigned char>(1009, 2);
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
    EXPECT_EQ((std::vector<ImagePtr<unsigned char>>{held[0]}), PoolOf(small));
    EXPECT_EQ(1u, small->GetCollector()->GetCollections().size());
}

TEST_F(Pools, TrimWaitsWhileImagesAreInUseSkipsDeadCollectionsAndCloseWithoutReservation) {
    auto a = Open<float>(1013, 2), b = Open<float>(1013, 2);
    a->Reserve(1);
    b->Reserve(1);
    const auto imageA = a->Acquire(), imageB = b->Acquire();
    auto passer = Open<float>(1013, 2);
    passer->Reserve(1);
    passer->Close();  // needs 1, but 2 are in use
    EXPECT_EQ(2u, PoolOf(a).size());
    b->Release(imageB);
    passer = Open<float>(1013, 2);
    passer->Reserve(1);
    passer->Close();
    EXPECT_EQ((std::vector<ImagePtr<float>>{imageA}), PoolOf(a));
    a->Release(imageA);

    auto keeper = Open<unsigned short>(1019, 2);
    keeper->Reserve(1);
    const auto x = keeper->Acquire(), y = keeper->Acquire();  // grows the pool to 2 on demand
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

    auto survivor = Open<float>(1021, 2);
    Open<float>(1021, 2)->Reserve(3);  // dies without Close: its reservation must not count any more
    EXPECT_EQ(3u, PoolOf(survivor).size());
    survivor->Reserve(1);
    survivor->Close();
    EXPECT_TRUE(PoolOf(survivor).empty());
}

TEST_F(Registry, OwnCollectorServesOneCollectionOutsideTheRegistry) {
    auto& registry = ImageCollectorRegistry::Instance();
    auto own = registry.GetCollection<float>(1031, 2, true);
    ImageCollector<float>* registered = registry.FindCollector<float>(1031, 2);
    ASSERT_NE(nullptr, registered);
    EXPECT_NE(registered, own->GetCollector());
    EXPECT_EQ(registered, Open<float>(1031, 2)->GetCollector());
    auto ownToo = registry.GetCollection<float>(1031, 2, true);
    EXPECT_NE(own->GetCollector(), ownToo->GetCollector());
    EXPECT_EQ(1, (Registered<float>(1031, 2)));

    own->Reserve(2);
    EXPECT_EQ(1031, own->Acquire()->GetWidth());
    EXPECT_EQ(2u, PoolOf(own).size());
    EXPECT_TRUE(registered->GetPool().empty());
    EXPECT_TRUE(registered->GetInUse().empty());
    own->GetCollector()->Clear();
    EXPECT_TRUE(PoolOf(own).empty());
    EXPECT_TRUE(InUseOf(own).empty());
    EXPECT_TRUE(own->GetCollector()->GetCollections().empty());
}

TEST_F(Registry, FindsTheCollectorByWidthHeightAndPixelType) {
    const auto base = Open<unsigned short>(1033, 11), same = Open<unsigned short>(1033, 11);
    const std::vector<const void*> distinct{base->GetCollector(), Open<unsigned short>(11, 1033)->GetCollector(),
                                            Open<unsigned short>(1033, 12)->GetCollector(),
                                            Open<float>(1033, 11)->GetCollector(),
                                            Open<unsigned char>(1033, 11)->GetCollector()};
    EXPECT_EQ(base->GetCollector(), same->GetCollector());
    for (size_t i = 0; i < distinct.size(); ++i)
        for (size_t j = i + 1; j < distinct.size(); ++j) EXPECT_NE(distinct[i], distinct[j]) << i << " " << j;
    EXPECT_EQ((std::vector<long>{1, 1, 1, 1, 1}),
              (std::vector<long>{Registered<unsigned short>(1033, 11), Registered<unsigned short>(11, 1033),
                                 Registered<unsigned short>(1033, 12), Registered<float>(1033, 11),
                                 Registered<unsigned char>(1033, 11)}));
    EXPECT_EQ(distinct[3], ImageCollectorRegistry::Instance().FindCollector<float>(1033, 11));
    EXPECT_EQ(distinct[1], ImageCollectorRegistry::Instance().FindCollector<unsigned short>(11, 1033));
}
