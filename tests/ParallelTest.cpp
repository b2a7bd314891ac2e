#include "tools/Parallel.h"

#include <gtest/gtest.h>

#include <cstdlib>
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
