#include "TestImages.h"

#include "calibration/CalibrationAutomaticDefect.h"
#include "tools/Parallel.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

using namespace orvane::test;

namespace {

constexpr int kWidth = 12;
constexpr int kHeight = 10;

struct Spike { int x, y, delta; };

AutomaticDefectParameters Parameters(int minHits = 1, ROI area = ROI(0, 0, kHeight, kWidth), int k = 3,
                                     int high = 100, int low = -100) {
    return AutomaticDefectParameters{area, k, k * k, high, low, minHits};
}

// Load puts `file` into the live map, as a load from disk would; Save keeps a
// snapshot of the map, or throws with failSave.
class RecordingDM : public ReferenceDM {
public:
    RecordingDM(int width, int height) : ReferenceDM(width, height), file(size_t(width * height)) {}
    void Load() override { events += "Load "; std::copy(file.begin(), file.end(), GetDM()->GetData()); }
    void Save() override { events += "Save "; if (failSave) failSave(); saved = Pixels(GetDM()); }
    std::string events;
    Bytes file, saved;
    std::function<void()> failSave;
};

struct AutoFixture {
    explicit AutoFixture(const AutomaticDefectParameters& p, int width = kWidth, int height = kHeight)
        : parameters(p), store(boost::make_shared<RecordingDM>(width, height)),
          calibration(parameters, store, boost::make_shared<DefectMapFlag>(noFlags)) {
        store->SetValid(true);
        calibration.Init();
    }
    // A pair of flat frames of 1000, the second with the spikes added.
    void Feed(std::initializer_list<Spike> spikes) {
        const auto first = MakeFilled<unsigned short>(kWidth, kHeight, 1000);
        const auto second = MakeFilled<unsigned short>(kWidth, kHeight, 1000);
        for (const Spike& s : spikes) second->GetData()[s.y * kWidth + s.x] = static_cast<unsigned short>(1000 + s.delta);
        calibration.ProcessReferenceAndCumul(first, second);
    }
    unsigned char& At(int x, int y) { return store->GetDM()->GetData()[y * kWidth + x]; }
    long Defects() { const Bytes p = Pixels(store->GetDM()); return long(p.size()) - std::count(p.begin(), p.end(), 0); }

    AutomaticDefectParameters parameters;
    DMFlagParameters noFlags;
    boost::shared_ptr<RecordingDM> store;
    CalibrationAutomaticDefect calibration;
};

TEST(CalibrationAutomaticDefect, OnlyNewPixelsBeyondAThresholdInMinHitsPairsAreAddedAndCounted) {
    for (const int pairs : {3, 6}) {  // MinHits 5: after 3 pairs 3 hits suffice, after 6 5 are needed
        AutoFixture f(Parameters(5));
        const int needed = std::min(pairs, 5);
        for (int p = 0; p < pairs; ++p) f.Feed({{2, 2, p < needed ? 300 : 0}, {8, 6, p < needed - 1 ? -300 : 0}});
        f.calibration.UpdateDefectMap();
        EXPECT_EQ(f.At(2, 2), 1);
        EXPECT_EQ(f.Defects(), 1) << pairs;
    }
    AutoFixture f(Parameters());
    f.At(2, 2) = 17;  // already in the map: reclassified as isolated defects, not counted
    f.At(8, 6) = 3;
    f.Feed({{2, 2, 500}, {8, 6, 500}, {1, 1, 100}, {5, 1, 101}, {1, 6, -100}, {5, 6, -101}});
    LogCapture log;
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(log.lines.back(), "I CalibrationAutomaticDefect : UpdateDefectMap succeed (count=2)\n");
    EXPECT_EQ(f.At(2, 2) + f.At(8, 6) + f.At(5, 1) + f.At(5, 6), 4);
    EXPECT_EQ(f.Defects(), 4);
}

// Rows are spread over threads: the hits are the same for any thread count.
TEST(CalibrationAutomaticDefect, WindowIsReflectedInsideTheAreaAtEveryEdgeForAnyThreadCount) {
    for (const int threads : {1, 2, 7}) {
        orvane::SetThreadCount(threads);
        SCOPED_TRACE(std::to_string(threads) + " threads");
        constexpr int width = 19, height = 37, k = 7;  // asymmetric thresholds pin second - first
        std::mt19937 random(12345);
        std::uniform_int_distribution<int> level(0, 999);
        // The smallest area for k = 7 (4 x 4), a larger one off the frame's edges, the frame.
        for (const ROI area : {ROI(5, 6, 4, 4), ROI(3, 2, 9, 11), ROI(0, 0, height, width)}) {
            const auto first = MakeFilled<unsigned short>(width, height, 1000);
            const auto second = MakeImageOf<unsigned short>(width, height, [&](int x, int y) {  // poison outside the area
                const bool inside = y >= area.top && y < area.top + area.height && x >= area.left && x < area.left + area.width;
                return inside ? 1000 + level(random) : 60000;
            });
            const auto diff = [&](int i) { return float(second->GetData()[i] - first->GetData()[i]); };
            // Naive hits, a coordinate outside the area mirrored about its first or last index.
            const auto mirror = [](int p, int n) { return p < 0 ? -p : (p > n - 1 ? (n - 1) - (p - (n - 1)) : p); };
            Bytes expected(size_t(width * height), 0);
            for (int r = 0; r < area.height; ++r) {
                for (int c = 0; c < area.width; ++c) {
                    std::vector<float> window;
                    for (int dr = -k / 2; dr <= k / 2; ++dr)
                        for (int dc = -k / 2; dc <= k / 2; ++dc)
                            window.push_back(diff((area.top + mirror(r + dr, area.height)) * width + area.left +
                                                  mirror(c + dc, area.width)));
                    std::sort(window.begin(), window.end());
                    const int at = (area.top + r) * width + area.left + c;
                    const float d = diff(at) - window[window.size() / 2];
                    expected[size_t(at)] = d > 250.0f || d < -300.0f;
                }
            }
            AutoFixture f(Parameters(1, area, k, 250, -300), width, height);
            f.calibration.ProcessReferenceAndCumul(first, second);
            f.calibration.UpdateDefectMap();
            Bytes found = Pixels(f.store->GetDM());
            for (auto& v : found) v = v != 0;
            EXPECT_EQ(found, expected) << "area " << area.top << "," << area.left;
            const long hit = std::count(expected.begin(), expected.end(), 1);  // a sensitive share of the area
            EXPECT_TRUE(hit * 4 > area.height * area.width && hit * 4 < 3 * area.height * area.width) << hit;
        }
    }
    orvane::SetThreadCount(0);
}

TEST(CalibrationAutomaticDefect, MergedStoreIsLoadedUpdatedSavedThenMergedAgain) {
    for (const bool merged : {true, false}) {
        AutoFixture f(Parameters());
        f.store->file[0] = 5;  // the saved, unmerged map
        f.At(5, 5) = 9;        // the live map, replaced by Load when merged
        auto external = MakeFilled<unsigned char>(kWidth, kHeight, 0);
        external->GetData()[8 * kWidth + 10] = 7;
        f.store->SetExternalDM(external);
        f.store->SetMerged(merged);
        f.Feed({{3, 2, 500}, {4, 2, 500}});
        f.calibration.UpdateDefectMap();
        Bytes expected(size_t(kWidth * kHeight), 0);  // updated and classified
        expected[2 * kWidth + 3] = expected[2 * kWidth + 4] = 2;
        expected[merged ? 0 : 5 * kWidth + 5] = 1;
        EXPECT_EQ(f.store->events, merged ? "Load Save " : "Save ");
        EXPECT_EQ(f.store->saved, expected);
        expected[8 * kWidth + 10] = merged;  // then merged and classified again
        EXPECT_EQ(Pixels(f.store->GetDM()), expected) << merged;
    }
}

TEST(CalibrationAutomaticDefect, HitsNeedAValidPairAndLastFromInitToClearFailuresNameTheirCause) {
    AutoFixture f(Parameters());
    f.calibration.UpdateDefectMap();  // before any pair
    f.store->SetValid(false);
    LogCapture log;
    f.Feed({{5, 5, 500}});  // neither throws
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(log.lines, (std::vector<std::string>{
                             "I CalibrationAutomaticDefect : ProcessReferenceAndCumul skipped due to invalid reference\n",
                             "I CalibrationAutomaticDefect : UpdateDefectMap skipped due to invalid reference\n"}));
    f.store->SetValid(true);
    f.Feed({{3, 3, 500}});
    f.calibration.Init();  // keeps the hits
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(f.At(3, 3), 1);
    EXPECT_EQ(f.Defects(), 1);
    f.calibration.Clear();  // without work images both operations fail
    LogCapture failures;
    EXPECT_EQ(FailureText([&] { f.Feed({}); }), "CalibrationAutomaticDefect : ProcessReferenceAndCumul failed");
    EXPECT_NE(failures.lines.at(1).find("): CalibrationAutomaticDefect : ProcessReferenceAndCumul failed due to null pointer\n"),
              std::string::npos);  // logged between the call and the operation's failure
    EXPECT_EQ(FailureText([&] { f.calibration.UpdateDefectMap(); }),
              "CalibrationAutomaticDefect : UpdateDefectMap failed due to null pointer");
    f.calibration.Init();
    f.At(3, 3) = 0;
    f.Feed({{8, 7, 500}});
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(f.At(8, 7), 1);
    EXPECT_EQ(f.Defects(), 1);

    // Failures in an update are named by their cause.
    const std::pair<std::function<void()>, std::string> inUpdate[] = {
        {[] { throw ReferenceException("disk full"); }, "failed to save reference"},
        {[] { throw CalibrationException("inner"); }, "failed in DM checker"},
        {[] { throw std::runtime_error("inner"); }, "failed"}};
    for (const auto& c : inUpdate) {
        AutoFixture g(Parameters());
        g.store->failSave = c.first;
        g.Feed({{7, 3, 500}});
        EXPECT_EQ(FailureText([&] { g.calibration.UpdateDefectMap(); }), "CalibrationAutomaticDefect : UpdateDefectMap " + c.second);
        EXPECT_EQ(g.At(7, 3), 1);  // no rollback
    }
    // An area beyond the map, and one of 3 rows for k = 7 (fewer than 7 / 2 + 1).
    for (const auto& bad : {Parameters(1, ROI(0, 0, kHeight, kWidth + 1)), Parameters(1, ROI(2, 2, 3, 8), 7)}) {
        EXPECT_THROW(AutoFixture(bad).Feed({}), CalibrationException);
    }
}

}  // namespace
