#include "TestImages.h"

#include "calibration/CalibrationAutomaticDefect.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <stdexcept>

using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::Pixels;

namespace {

using Bytes = std::vector<unsigned char>;
constexpr int kWidth = 12;
constexpr int kHeight = 10;
const ROI kWhole(0, 0, kHeight, kWidth);

bool Contains(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

AutomaticDefectParameters Parameters(ROI area, int window, int high, int low, int minHits) {
    return AutomaticDefectParameters{area, window, window * window, high, low, minHits};
}

struct Pair {
    ImagePtr<unsigned short> first, second;
};

// Two flat frames of 1000, the second with `spikes` (x, y, delta) added.
Pair Spikes(std::initializer_list<std::array<int, 3>> spikes) {
    Pair pair{MakeFilled<unsigned short>(kWidth, kHeight, 1000),
              MakeFilled<unsigned short>(kWidth, kHeight, 1000)};
    for (const auto& s : spikes) pair.second->GetData()[s[1] * kWidth + s[0]] = static_cast<unsigned short>(1000 + s[2]);
    return pair;
}

// Records Load and Save. Load puts `file` into the live map, as a load from disk
// would; Save keeps a snapshot of the map. Either may be told to throw.
class RecordingDM : public ReferenceDM {
public:
    RecordingDM() : ReferenceDM(kWidth, kHeight), file(size_t(kWidth * kHeight)) {}
    void Load() override {
        events.push_back("Load");
        if (failLoad) failLoad();
        std::copy(file.begin(), file.end(), GetDM()->GetData());
    }
    void Save() override {
        events.push_back("Save");
        if (failSave) failSave();
        saved = Pixels(GetDM());
    }
    std::vector<std::string> events;
    Bytes file, saved;
    std::function<void()> failLoad, failSave;
};

struct AutoFixture {
    explicit AutoFixture(const AutomaticDefectParameters& parameters,
                         boost::shared_ptr<ReferenceDM> dm = boost::make_shared<ReferenceDM>(kWidth, kHeight))
        : parameters(parameters), store(dm),
          calibration(this->parameters, store, boost::make_shared<DefectMapFlag>(flagParameters)) {
        store->SetValid(true);
        calibration.Init();
    }
    void Feed(const Pair& pair) { calibration.ProcessReferenceAndCumul(pair.first, pair.second); }
    unsigned char At(int x, int y) { return store->GetDM()->GetData()[y * store->GetDM()->GetWidth() + x]; }
    long Defects() { const Bytes p = Pixels(store->GetDM()); return long(p.size()) - std::count(p.begin(), p.end(), 0); }

    AutomaticDefectParameters parameters;
    DMFlagParameters flagParameters;  // flags nothing
    boost::shared_ptr<ReferenceDM> store;
    CalibrationAutomaticDefect calibration;
};

TEST(CalibrationAutomaticDefect, MinHitsIsCappedByThePairsSoFar) {
    AutoFixture few(Parameters(kWhole, 3, 100, -100, 5));  // 3 pairs: 3 hits suffice
    few.Feed(Spikes({{{2, 2, 500}}, {{8, 6, 500}}}));
    few.Feed(Spikes({{{2, 2, 500}}, {{8, 6, -500}}}));
    few.Feed(Spikes({{{2, 2, -500}}}));
    LogCapture log;
    few.calibration.UpdateDefectMap();
    EXPECT_EQ(few.At(2, 2), 1);
    EXPECT_EQ(few.Defects(), 1);
    EXPECT_TRUE(Contains(log.lines, "I CalibrationAutomaticDefect : UpdateDefectMap succeed (count=1)\n"));

    AutoFixture many(Parameters(kWhole, 3, 100, -100, 5));  // 6 pairs: 5 hits needed
    for (int pair = 0; pair < 6; ++pair) many.Feed(Spikes({{{2, 2, pair < 5 ? 300 : 0}}, {{8, 6, pair < 4 ? 300 : 0}}}));
    many.calibration.UpdateDefectMap();
    EXPECT_EQ(many.At(2, 2), 1);
    EXPECT_EQ(many.Defects(), 1);
}

TEST(CalibrationAutomaticDefect, DifferenceOnAThresholdIsNoHit) {
    AutoFixture f(Parameters(kWhole, 3, 100, -100, 1));
    f.Feed(Spikes({{{1, 1, 100}}, {{5, 1, 101}}, {{1, 6, -100}}, {{5, 6, -101}}}));
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(f.At(5, 1), 1);
    EXPECT_EQ(f.At(5, 6), 1);
    EXPECT_EQ(f.Defects(), 2);
}

// The hit map of one pair, written out plainly: a window coordinate before the area's
// first index is mirrored about it, one after its last index about the last.
Bytes NaiveHitMap(const std::vector<float>& diff, int width, ROI area, int k, int high, int low) {
    Bytes map(diff.size(), 0);
    auto mirror = [](int p, int n) { return p < 0 ? -p : (p > n - 1 ? (n - 1) - (p - (n - 1)) : p); };
    for (int r = 0; r < area.height; ++r) {
        for (int c = 0; c < area.width; ++c) {
            std::vector<float> window;
            for (int dr = -k / 2; dr <= k / 2; ++dr)
                for (int dc = -k / 2; dc <= k / 2; ++dc)
                    window.push_back(diff[size_t((area.top + mirror(r + dr, area.height)) * width +
                                                 area.left + mirror(c + dc, area.width))]);
            std::sort(window.begin(), window.end());
            const size_t at = size_t((area.top + r) * width + area.left + c);
            const float d = diff[at] - window[(window.size() - 1) / 2];
            map[at] = d > float(high) || d < float(low);
        }
    }
    return map;
}

TEST(CalibrationAutomaticDefect, WindowIsReflectedInsideTheAreaAtEveryEdge) {
    constexpr int width = 19, height = 16;
    // The smallest area for k = 7 (4 x 4), a larger one off the frame's edges, the frame.
    for (const ROI area : {ROI(3, 2, 9, 11), ROI(5, 6, 4, 4), ROI(0, 0, height, width)}) {
        Pair pair{MakeFilled<unsigned short>(width, height, 0), MakeFilled<unsigned short>(width, height, 0)};
        std::vector<float> diff(size_t(width * height));
        unsigned seed = 12345u + area.top;
        for (int i = 0; i < width * height; ++i) {
            const int x = i % width, y = i / width;
            const bool inside = y >= area.top && y < area.top + area.height && x >= area.left &&
                                x < area.left + area.width;
            seed = seed * 1103515245u + 12345u;
            const int a = int((seed >> 8) % 1000u);
            seed = seed * 1103515245u + 12345u;
            const int b = inside ? int((seed >> 8) % 1000u) : 60000;  // poison outside the area
            pair.first->GetData()[i] = static_cast<unsigned short>(a);
            pair.second->GetData()[i] = static_cast<unsigned short>(b);
            diff[size_t(i)] = float(b - a);
        }
        // Asymmetric thresholds also pin the sign: second minus first.
        const Bytes expected = NaiveHitMap(diff, width, area, 7, 250, -300);
        AutoFixture f(Parameters(area, 7, 250, -300, 1), boost::make_shared<ReferenceDM>(width, height));
        f.Feed(pair);
        f.calibration.UpdateDefectMap();
        Bytes found = Pixels(f.store->GetDM());
        for (auto& v : found) v = v != 0;
        EXPECT_EQ(found, expected) << "area " << area.top << "," << area.left;
        // Thresholds near the spread of the data keep the comparison sensitive.
        const long hit = std::count(expected.begin(), expected.end(), 1);
        EXPECT_GT(hit * 4, area.height * area.width);
        EXPECT_LT(hit * 4, 3 * area.height * area.width);
    }
}

TEST(CalibrationAutomaticDefect, PixelsAlreadyInTheMapAreNotCounted) {
    AutoFixture f(Parameters(kWhole, 3, 100, -100, 1));
    f.store->GetDM()->GetData()[2 * kWidth + 2] = 17;
    f.store->GetDM()->GetData()[6 * kWidth + 8] = 3;
    f.Feed(Spikes({{{2, 2, 500}}, {{8, 6, 500}}}));
    LogCapture log;
    f.calibration.UpdateDefectMap();
    EXPECT_TRUE(Contains(log.lines, "UpdateDefectMap succeed (count=0)"));
    EXPECT_EQ(f.At(2, 2), 1);  // reclassified as isolated defects
    EXPECT_EQ(f.At(8, 6), 1);
    EXPECT_EQ(f.Defects(), 2);
}

TEST(CalibrationAutomaticDefect, MergedStoreIsLoadedUpdatedSavedThenMergedAgain) {
    auto store = boost::make_shared<RecordingDM>();
    store->file[0] = 5;                             // the saved, unmerged map
    store->GetDM()->GetData()[5 * kWidth + 5] = 9;  // the live merged map, replaced by Load
    auto external = MakeFilled<unsigned char>(kWidth, kHeight, 0);
    external->GetData()[8 * kWidth + 10] = 7;
    store->SetExternalDM(external);
    store->SetMerged(true);
    AutoFixture f(Parameters(kWhole, 3, 100, -100, 1), store);
    f.Feed(Spikes({{{3, 2, 500}}, {{4, 2, 500}}}));
    f.calibration.UpdateDefectMap();

    EXPECT_EQ(store->events, (std::vector<std::string>{"Load", "Save"}));
    Bytes expected(size_t(kWidth * kHeight), 0);  // loaded, updated, classified, not merged
    expected[0] = 1;
    expected[2 * kWidth + 3] = expected[2 * kWidth + 4] = 2;
    EXPECT_EQ(store->saved, expected);
    expected[8 * kWidth + 10] = 1;  // then merged and classified again
    EXPECT_EQ(Pixels(store->GetDM()), expected);
}

TEST(CalibrationAutomaticDefect, UnmergedStoreIsSavedWithoutLoadOrMerge) {
    auto store = boost::make_shared<RecordingDM>();
    store->SetExternalDM(MakeFilled<unsigned char>(kWidth, kHeight, 4));
    AutoFixture f(Parameters(kWhole, 3, 100, -100, 1), store);
    f.Feed(Spikes({{{3, 2, 500}}}));
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(store->events, std::vector<std::string>{"Save"});
    EXPECT_EQ(f.Defects(), 1);
}

TEST(CalibrationAutomaticDefect, FailuresInsideTheUpdateAreNamedByType) {
    struct Case {
        bool inLoad;
        std::function<void()> raise;
        std::string message;
    };
    const std::vector<Case> cases{
        {false, [] { throw ReferenceException("disk full"); }, "UpdateDefectMap failed to save reference"},
        {true, [] { throw CalibrationException("inner"); }, "UpdateDefectMap failed in DM checker"},
        {true, [] { throw std::runtime_error("inner"); }, "): CalibrationAutomaticDefect : UpdateDefectMap failed"},
    };
    for (const Case& c : cases) {
        auto store = boost::make_shared<RecordingDM>();
        store->SetMerged(c.inLoad);
        (c.inLoad ? store->failLoad : store->failSave) = c.raise;
        AutoFixture f(Parameters(kWhole, 3, 100, -100, 1), store);
        f.Feed(Spikes({{{7, 3, 500}}}));
        try {
            f.calibration.UpdateDefectMap();
            ADD_FAILURE() << "no exception for " << c.message;
        } catch (const CalibrationException& e) {
            const std::string text = e.what();
            EXPECT_EQ(text.substr(text.size() - std::min(text.size(), c.message.size())), c.message);
        }
        if (!c.inLoad) {
            EXPECT_EQ(f.At(7, 3), 1);  // no rollback
        }
    }
}

TEST(CalibrationAutomaticDefect, InvalidStoreIsSkippedWithoutFailure) {
    AutoFixture f(Parameters(kWhole, 3, 100, -100, 1));
    f.store->SetValid(false);
    LogCapture log;
    EXPECT_NO_THROW(f.Feed(Spikes({{{3, 3, 500}}})));
    EXPECT_NO_THROW(f.calibration.UpdateDefectMap());
    EXPECT_TRUE(Contains(log.lines, "I CalibrationAutomaticDefect : ProcessReferenceAndCumul skipped due to invalid reference\n"));
    EXPECT_TRUE(Contains(log.lines, "I CalibrationAutomaticDefect : UpdateDefectMap skipped due to invalid reference\n"));
    EXPECT_EQ(f.Defects(), 0);
    f.store->SetValid(true);  // the skipped pair left no hit behind
    f.Feed(Spikes({}));
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(f.Defects(), 0);
}

TEST(CalibrationAutomaticDefect, SecondInitKeepsHitsAndClearStartsOver) {
    AutoFixture f(Parameters(kWhole, 3, 100, -100, 1));
    f.Feed(Spikes({{{3, 3, 500}}}));
    f.calibration.Init();
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(f.At(3, 3), 1);
    f.calibration.Clear();
    f.calibration.Init();
    f.store->GetDM()->GetData()[3 * kWidth + 3] = 0;
    f.Feed(Spikes({{{8, 7, 500}}}));
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(f.At(8, 7), 1);
    EXPECT_EQ(f.Defects(), 1);
}

TEST(CalibrationAutomaticDefect, UpdateBeforeAnyPairAddsNothing) {
    AutoFixture f(Parameters(kWhole, 3, 100, -100, 5));
    f.calibration.UpdateDefectMap();
    EXPECT_EQ(f.Defects(), 0);
}

TEST(CalibrationAutomaticDefect, CallsBeforeInitAndAreasBeyondTheMapFail) {
    const auto parameters = Parameters(kWhole, 3, 100, -100, 1);
    DMFlagParameters flagParameters;
    auto store = boost::make_shared<ReferenceDM>(kWidth, kHeight);
    store->SetValid(true);
    CalibrationAutomaticDefect idle(parameters, store, boost::make_shared<DefectMapFlag>(flagParameters));
    const Pair pair = Spikes({});
    LogCapture log;
    EXPECT_THROW(idle.ProcessReferenceAndCumul(pair.first, pair.second), CalibrationException);
    ASSERT_GE(log.lines.size(), 2u);  // the inner failure, then the operation's
    EXPECT_TRUE(Contains({log.lines[log.lines.size() - 2]}, "failed due to null pointer"));
    EXPECT_TRUE(Contains({log.lines.back()}, "CalibrationAutomaticDefect : ProcessReferenceAndCumul failed\n"));
    EXPECT_THROW(idle.UpdateDefectMap(), CalibrationException);
    EXPECT_TRUE(Contains({log.lines.back()}, "CalibrationAutomaticDefect : UpdateDefectMap failed due to null pointer\n"));

    for (const auto& bad : {Parameters(ROI(0, 0, kHeight, kWidth + 1), 3, 100, -100, 1),
                            Parameters(ROI(2, 2, 3, 8), 7, 100, -100, 1)}) {  // 3 rows < 7 / 2 + 1
        AutoFixture f(bad);
        EXPECT_THROW(f.Feed(pair), CalibrationException);
    }
}

}  // namespace
