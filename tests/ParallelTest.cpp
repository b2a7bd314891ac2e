#include "TestImages.h"
#include "tools/FrameAccumulation.h"
#include "tools/Parallel.h"

#include <gtest/gtest.h>

#include <random>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <vector>

TEST(Parallel, EveryItemRunsOnceInPiecesOfTheGrainForAnyThreadCount) {
    for (const int threads : {1, 2, 7}) {
        orvane::SetThreadCount(threads);
        for (const int count : {0, 1, 7, 64, 1001}) {
            for (const int grain : {1, 3, 64, 5000}) {
                std::vector<int> visits(static_cast<size_t>(count), 0);
                orvane::ParallelFor(count, grain, [&](int begin, int end) {
                    EXPECT_TRUE(begin % grain == 0 && end - begin <= grain && begin < end);
                    for (int i = begin; i < end; ++i) ++visits[static_cast<size_t>(i)];
                });
                EXPECT_EQ(visits, std::vector<int>(static_cast<size_t>(count), 1))
                    << threads << " threads, " << count << " items, grain " << grain;
            }
        }
    }
    orvane::SetThreadCount(0);
}

TEST(Parallel, APieceThatThrowsEndsTheLoopWithItsException) {
    orvane::SetThreadCount(3);
    EXPECT_THROW(orvane::ParallelFor(100, 1, [](int begin, int) {
                     if (begin == 41) throw std::runtime_error("piece 41");
                 }),
                 std::runtime_error);
    orvane::SetThreadCount(0);
}

TEST(Parallel, TheCountComesFromTheHostThenTheEnvironmentThenTheCores) {
    ::setenv("ORVANE_THREADS", "5", 1);
    EXPECT_EQ(orvane::ThreadCount(), 5);
    orvane::SetThreadCount(2);
    EXPECT_EQ(orvane::ThreadCount(), 2);
    orvane::SetThreadCount(0);
    for (const char* bad : {"0", "-3", "two", "4x", ""}) {
        ::setenv("ORVANE_THREADS", bad, 1);
        EXPECT_GE(orvane::ThreadCount(), 1) << bad;
        ::unsetenv("ORVANE_THREADS");
        const int cores = orvane::ThreadCount();
        ::setenv("ORVANE_THREADS", bad, 1);
        EXPECT_EQ(orvane::ThreadCount(), cores) << bad;
    }
    ::unsetenv("ORVANE_THREADS");
}

TEST(FrameAccumulation, BlocksOnAnyThreadCountGiveTheSumsOfWholeFramesOneAfterAnother) {
    // 211 x 197 is three blocks of 16384, the last one short; one frame is shorter than
    // the sums (it stops inside the second block) and one longer; the sums start stale.
    using orvane::test::Frame;
    using orvane::test::MakeImageOf;
    std::mt19937 random(3);
    std::uniform_int_distribution<int> level(0, 65535);
    std::vector<Frame> frames;
    for (const int height : {197, 90, 197, 230}) {
        frames.push_back(MakeImageOf<unsigned short>(211, height, [&](int, int) { return level(random); }));
    }
    const auto stale = MakeImageOf<float>(211, 197, [&](int x, int y) { return -0.37f * float(x * y); });
    using Step = std::function<void(std::size_t, ImageBuffer<float>&, ImageBuffer<unsigned short>&)>;
    const Step steps[] = {
        [](std::size_t k, ImageBuffer<float>& s, ImageBuffer<unsigned short>& f) { k == 0 ? s = f : s += f; },
        [](std::size_t, ImageBuffer<float>& s, ImageBuffer<unsigned short>& f) { s = orvane::Max(0.0f, f + s); },
        [](std::size_t k, ImageBuffer<float>& s, ImageBuffer<unsigned short>& f) { s = s * 0.7f - f / float(k + 3); },
    };
    for (const Step& step : steps) {
        const auto expected = MakeImageOf<float>(211, 197, [&](int x, int y) { return stale->GetData()[y * 211 + x]; });
        for (std::size_t k = 0; k < frames.size(); ++k) step(k, *expected->GetBuffer(), *frames[k]->GetBuffer());
        for (const int threads : {1, 2, 7}) {
            orvane::SetThreadCount(threads);
            const auto sums = MakeImageOf<float>(211, 197, [&](int x, int y) { return stale->GetData()[y * 211 + x]; });
            orvane::AccumulateFrames(*sums, frames, step, 16384);
            EXPECT_EQ(0, std::memcmp(expected->GetData(), sums->GetData(), sizeof(float) * 211 * 197))
                << threads << " threads";
        }
    }
    orvane::SetThreadCount(0);
}
