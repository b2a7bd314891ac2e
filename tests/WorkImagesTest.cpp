#include "TestImages.h"

#include "image/WorkImages.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

using orvane::detail::WorkImages;

// Each test uses an image format of its own: the registry is shared by the process.

TEST(WorkImages, SlotsAreFilledInOrderAndCloseGivesEverythingBack) {
    ImagePtr<float> first;
    ImagePtr<float> second;
    ImageCollector<float>* collector = nullptr;
    {
        WorkImages<float> images;
        EXPECT_FALSE(images.IsOpen());
        images.Open(17, 3, 3, {&first, &second});
        ASSERT_TRUE(images.IsOpen());
        collector = ImageCollectorRegistry::Instance().FindCollector<float>(17, 3);
        ASSERT_NE(nullptr, collector);
        const std::vector<ImagePtr<float>> pool = collector->GetPool();
        ASSERT_EQ(3u, pool.size());
        EXPECT_EQ(pool[0], first);
        EXPECT_EQ(pool[1], second);

        first->Fill(7.0f);
        images.FillSlots(-1.0f);
        EXPECT_EQ(-1.0f, first->GetData()[50]);
        EXPECT_EQ(-1.0f, second->GetData()[0]);

        // An extra image comes and goes without touching the slots.
        ImagePtr<float> extra = images.Acquire();
        EXPECT_EQ(pool[2], extra);
        images.Release(extra);
        EXPECT_FALSE(extra);
        EXPECT_EQ(2u, collector->GetInUse().size());

        images.Close();
        EXPECT_FALSE(images.IsOpen());
        EXPECT_FALSE(first);
        EXPECT_FALSE(second);
        EXPECT_TRUE(collector->GetInUse().empty());
        EXPECT_TRUE(collector->GetPool().empty());

        // Reopened, then closed by the destructor alone.
        images.Open(17, 3, 1, {&first});
        EXPECT_EQ(1u, collector->GetInUse().size());
    }
    EXPECT_FALSE(first);
    EXPECT_TRUE(collector->GetInUse().empty());
    EXPECT_TRUE(collector->GetPool().empty());
}

TEST(WorkImages, ReleaseOfAnotherImageAndAcquireWhenClosedFail) {
    WorkImages<unsigned char> images;
    EXPECT_THROW(images.Acquire(), std::logic_error);
    images.Open(19, 3, 1);
    ImagePtr<unsigned char> stranger = boost::make_shared<ImageAcquisition<unsigned char>>(19, 3);
    EXPECT_THROW(images.Release(stranger), std::logic_error);
    ImagePtr<unsigned char> none;
    images.Release(none);  // an empty pointer is ignored
    ImagePtr<unsigned char> taken = images.Acquire();
    images.Release(taken);
    EXPECT_TRUE(ImageCollectorRegistry::Instance().FindCollector<unsigned char>(19, 3)->GetInUse().empty());
}
