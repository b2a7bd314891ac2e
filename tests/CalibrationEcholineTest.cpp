#include "TestImages.h"

#include "calibration/CalibrationEcholine.h"
#include "correction/ReferenceFile.h"
#include "interfaces/ReferenceEcholine.h"
#include "parameters/EchoLineParametersSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <utility>

using namespace orvane::test;

namespace {

using Lines = std::set<int>;

std::pair<Lines, Lines> Sets(const ReferenceEcholine& store) { return {store.singleLines, store.doubleLines}; }

// A record that scans the whole of a width x height map: no middle row or column
// inside it, so nothing is left out and nothing is mirrored.
EchoLineParameters WholeMap(int width, int height) {
    EchoLineParameters p;
    p.Area = ROI(0, 0, static_cast<unsigned short>(height), static_cast<unsigned short>(width));
    p.MiddleRow = height;
    p.MiddleColumn = width;
    p.MinimumRun = 30;
    return p;
}

struct EcholineFixture {
    EcholineFixture(const EchoLineParameters& parameters, int width, int height)
        : parameters(parameters),
          store(boost::make_shared<ReferenceEcholine>()),
          defectMap(boost::make_shared<ReferenceDM>(width, height)),
          calibration(this->parameters, store, defectMap) {}

    // Marks `count` pixels of `row` from column `first` on with `value`.
    void Mark(int row, int first, int count, unsigned char value = 1) {
        const ImagePtr<unsigned char> map = defectMap->GetDM();
        std::fill_n(map->GetData() + row * map->GetWidth() + first, count, value);
    }

    // Calculates and fills the store, then compares its sets.
    void Expect(const Lines& singles, const Lines& doubles) {
        calibration.CalculateEcholineReference();
        calibration.FillEcholineReference();
        EXPECT_EQ(std::make_pair(singles, doubles), Sets(*store));
    }

    EchoLineParameters parameters;
    boost::shared_ptr<ReferenceEcholine> store;
    boost::shared_ptr<ReferenceDM> defectMap;
    CalibrationEcholine calibration;
};

}  // namespace

TEST(CalibrationEcholine, RunOfThirtyDefectsOfAnyClassInsideTheAreaMakesAnEchoLineThatLaterCallsKeep) {
    EcholineFixture f(WholeMap(64, 12), 64, 12);
    f.Mark(1, 5, 30);
    f.Mark(3, 5, 29);
    f.Mark(5, 0, 20);
    f.Mark(5, 21, 20);
    for (int i = 0; i < 30; ++i) f.Mark(7, 10 + i, 1, std::vector<unsigned char>{1, 9, 17, 255}[i % 4]);
    f.Mark(10, 34, 30);  // the run is still open at the end of the row
    f.Expect({1, 7, 10}, {});
    // Later calls keep the earlier lines and rebuild the sets; Init and Clear do nothing.
    LogCapture log;
    f.calibration.Init();
    f.calibration.Clear();
    f.Mark(1, 5, 30, 0);
    f.Mark(2, 0, 64);
    f.Expect({7, 10}, {1});
    EXPECT_EQ(Succeeded("CalibrationEcholine : CalculateEcholineReference"), log.lines);
    EXPECT_EQ(f.store, f.calibration.GetEcholineRef());

    EchoLineParameters p = WholeMap(64, 8);
    p.Area = ROI(2, 10, 4, 40);  // rows 2..5, columns 10..49
    EcholineFixture area(p, 64, 8);
    area.Mark(1, 0, 64);
    area.Mark(6, 0, 64);
    area.Mark(2, 0, 40);   // 30 inside
    area.Mark(3, 0, 39);   // 29 inside
    area.Mark(4, 25, 39);  // 25 inside
    area.Mark(5, 20, 30);
    area.Expect({2, 5}, {});
}

// Rows of the Birch map (middle row and column 1560) are scanned in this order:
// 1000, 1003, then 2119 -> 3121 - 2119 - 1 = 1001 and 2120 -> 1000 again; row 1560
// is skipped. The stretches beside the middle column are scanned apart.
TEST(CalibrationEcholine, StretchesBesideTheMiddleColumnAreScannedApartRowsFromTheMiddleOnMirrored) {
    EcholineFixture f(s_EchoLineParametersSet.lookup("Birch"), 3061, 3121);  // the area is columns 60..3060
    for (int row : {1000, 1003, 1560, 2119, 2120}) f.Mark(row, 60, 3001);
    f.Mark(1100, 1540, 41);  // 20 left of column 1560, 1560 itself, 20 right of it
    f.Mark(1110, 1561, 30);
    f.Mark(1120, 1530, 30);  // ends at 1559
    f.Mark(1130, 60, 30);
    f.Mark(1140, 3031, 30);  // ends at 3060
    f.Mark(1150, 1531, 30);  // 29 left of 1560, then 1560
    f.Mark(1160, 1560, 30);  // 1560, then 29 right of it
    f.Expect({1003, 1110, 1120, 1130, 1140}, {1000});
}

TEST(CalibrationEcholine, BlocksArePairedFromTheirLowEnd) {
    struct Case { Lines rows, singles, doubles; };
    const Case cases[] = {{{100, 101}, {}, {100}},
                          {{100, 101, 102}, {102}, {100}},
                          {{100, 101, 102, 103}, {}, {100, 102}},
                          {{100, 102}, {100, 102}, {}}};
    for (const Case& c : cases) {
        EcholineFixture f(WholeMap(40, 110), 40, 110);
        for (int row : c.rows) f.Mark(row, 0, 40);
        SCOPED_TRACE(c.rows.size());
        f.Expect(c.singles, c.doubles);
    }
}

TEST(CalibrationEcholine, ScanOutsideTheMapOrMissingObjectsFail) {
    EcholineFixture wider(WholeMap(41, 4), 40, 4);
    wider.Mark(0, 0, 40);
    EXPECT_EQ("CalibrationEcholine: CalculateEcholineReference failed due to an area outside the defect map",
              FailureText([&] { wider.calibration.CalculateEcholineReference(); }));
    wider.calibration.FillEcholineReference();
    EXPECT_EQ(Lines(), wider.store->singleLines);

    EchoLineParameters left = WholeMap(40, 4);
    left.MiddleColumn = -2;  // the right stretch would start at column -1
    for (const EchoLineParameters& p : {WholeMap(40, 5), left}) {  // a taller area, or a stretch before the map
        EXPECT_THROW(EcholineFixture(p, 40, 4).calibration.CalculateEcholineReference(), CalibrationException);
    }

    CalibrationEcholine orphan(left, nullptr, nullptr);
    EXPECT_EQ("CalibrationEcholine: CalculateEcholineReference failed due to null pointer",
              FailureText([&] { orphan.CalculateEcholineReference(); }));
    EXPECT_EQ("CalibrationEcholine: FillEcholineReference failed due to null pointer",
              FailureText([&] { orphan.FillEcholineReference(); }));
}

TEST(EchoLineParametersSet, RowsOfEveryModelAndTheDefaultRowForUnknownOnes) {
    struct Row { const char* key; ROI area; int middleRow, middleColumn; };
    const Row rows[] = {{"Birch", ROI(60, 60, 3001, 3001), 1560, 1560},  {"LarchB", ROI(2, 30, 2874, 2775), 2880, 2880},
                        {"LarchA", ROI(2, 30, 2874, 2775), 2880, 2880},  {"CedarTa", ROI(2, 11, 2874, 2869), 2880, 2880},
                        {"CedarTb", ROI(2, 11, 2874, 2869), 2880, 2880}, {"MapleQ", ROI(29, 50, 2820, 2300), 2880, 2400},
                        {"MapleQa", ROI(6, 25, 2866, 2350), 2880, 2400}, {"MapleQb", ROI(6, 25, 2866, 2350), 2880, 2400},
                        {"Rowan", ROI(19, 0, 1520, 1920), 1560, 1920},   {"", ROI(0, 0, 0, 0), 0, 0}};
    for (const Row& expected : rows) {
        const EchoLineParameters& row = s_EchoLineParametersSet.lookup(expected.key);
        EXPECT_TRUE(expected.area == row.Area) << expected.key;
        EXPECT_EQ(std::vector<int>({expected.middleRow, expected.middleColumn, 30}),
                  std::vector<int>({row.MiddleRow, row.MiddleColumn, row.MinimumRun})) << expected.key;
    }
    EXPECT_EQ(10u, s_EchoLineParametersSet.GetBaseRows().size());
    EXPECT_EQ(&s_EchoLineParametersSet.lookup(""), &s_EchoLineParametersSet.lookup("Willow"));
}

TEST(ReferenceEcholine, SaveAndLoadKeepBothSetsAndTheValidFlagAFailedLoadNothing) {
    ScratchDirectory directory;
    ReferenceEcholine saved("echo.fxd"), loaded("echo.fxd");
    saved.singleLines = {3, 7, 1200}, saved.doubleLines = {10};
    saved.SetValid(true);
    saved.Save();
    loaded.singleLines = {1}, loaded.doubleLines = {2, 4};
    loaded.Load();
    EXPECT_EQ(std::make_pair(Lines{3, 7, 1200}, Lines{10}), Sets(loaded));
    EXPECT_TRUE(loaded.IsValid());

    ReferenceEcholine("echo.fxd").Save();  // empty sets, not valid
    loaded.Load();
    EXPECT_EQ(std::make_pair(Lines(), Lines()), Sets(loaded));
    EXPECT_FALSE(loaded.IsValid());

    ReferenceEcholine memory;  // no path: nothing is written or read
    memory.singleLines = {5};
    memory.Save();
    memory.Load();
    EXPECT_EQ(Lines({5}), memory.singleLines);
    EXPECT_EQ(std::vector<std::string>({"echo.fxd"}), directory.Entries());

    // A failed load leaves the store as it was.
    ReferenceEcholine store("broken.fxd");
    store.singleLines = {8}, store.doubleLines = {20};
    EXPECT_THROW(store.Load(), ReferenceException);  // no file

    ReferenceDM(2, 2, "other.fxd").Save();
    EXPECT_THROW(ReferenceEcholine("other.fxd").Load(), ReferenceException);

    boost::property_tree::ptree settings;
    settings.put("singleLines", "4 x5");
    settings.put("doubleLines", "");
    orvane::detail::WriteReferenceFile<unsigned char>(store, "ReferenceEcholine", {}, settings);
    EXPECT_THROW(store.Load(), ReferenceException);
    EXPECT_EQ(std::make_pair(Lines{8}, Lines{20}), Sets(store));
}
