#include "TestImages.h"

#include "image/WorkImages.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

using orvane::detail::WorkImages;

TEST(WorkImages, SlotsAreFilledInOrderCloseGivesEverythingBackAndMisuseFails) {
    ImagePtr<float> first;
    ImagePtr<float> second;
    ImageCollector<float>* collector = nullptr;
    {
        WorkImages<float> images;
        EXPECT_FALSE(images.IsOpen());
        EXPECT_THROW(images.Acquire(), std::logic_error);
        images.Open(17, 3, 3, {&first, &second});
        ASSERT_TRUE(images.IsOpen());
        collector = ImageCollectorRegistry::Instance().FindCollector<float>(17, 3);
        ASSERT_NE(nullptr, collector);
        const std::vector<ImagePtr<float>> pool = collector->GetPool();
        ASSERT_EQ(3u, pool.size());
        // Slot order and FillSlots show in the calibrations that read work images by position.

        // An extra image comes and goes without touching the slots; an image of
        // another account is refused, an empty pointer ignored.
        ImagePtr<float> extra = images.Acquire();
        EXPECT_EQ(pool[2], extra);
        ImagePtr<float> stranger = boost::make_shared<ImageAcquisition<float>>(17, 3), none;
        EXPECT_THROW(images.Release(stranger), std::logic_error);
        images.Release(none);
        images.Release(extra);
        EXPECT_FALSE(extra);
        EXPECT_EQ(2u, collector->GetInUse().size());

        images.Close();
        EXPECT_FALSE(images.IsOpen());
        EXPECT_FALSE(first || second);
        EXPECT_TRUE(collector->GetInUse().empty() && collector->GetPool().empty());

        // Reopened, then closed by the destructor alone.
        images.Open(17, 3, 1, {&first});
        EXPECT_EQ(1u, collector->GetInUse().size());
    }
    EXPECT_FALSE(first);
    EXPECT_TRUE(collector->GetInUse().empty() && collector->GetPool().empty());
}
