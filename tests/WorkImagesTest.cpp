#include "TestImages.h"

#include "image/WorkImages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
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

// Calibrations on several threads take their work images from one pool: an image is
// held by one account at a time, and the pool ends with none in use.
TEST(WorkImages, AccountsOnSeveralThreadsShareOnePool) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    std::atomic<int> sharedImages{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread, &sharedImages] {
            for (int round = 0; round < kRounds; ++round) {
                WorkImages<float> images;
                ImagePtr<float> first;
                ImagePtr<float> second;
                images.Open(23, 5, 2, {&first, &second});
                const float mark = static_cast<float>(thread * kRounds + round);
                first->Fill(mark);
                second->Fill(mark);
                std::this_thread::yield();
                if (first == second || first->GetData()[0] != mark || second->GetData()[0] != mark) {
                    ++sharedImages;
                }
                images.Close();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, sharedImages.load());
    const ImageCollector<float>* collector = ImageCollectorRegistry::Instance().FindCollector<float>(23, 5);
    ASSERT_NE(nullptr, collector);
    EXPECT_TRUE(collector->GetInUse().empty() && collector->GetPool().empty());
}
