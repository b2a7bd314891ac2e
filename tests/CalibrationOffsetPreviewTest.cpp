#include "TestImages.h"

#include <gtest/gtest.h>

using orvane::test::LogCapture;
using orvane::test::MakeImage;
using orvane::test::Pixels;

TEST(CalibrationOffsetPreview, OffsetBecomesTheFrameWithItsProperties) {
    auto store = boost::make_shared<ReferenceOffsetSimple>(3, 1);
    store->GetOffset()->SetProperty("stale", 1);
    CalibrationOffsetPreview calibration(store);
    auto frame = MakeImage<unsigned short>(3, 1, {0, 65535, 1234});
    frame->SetProperty("image.time", 77);
    LogCapture log;
    calibration.UpdateSingleOffsetRef(frame);
    EXPECT_EQ(Pixels(frame), Pixels(store->GetOffset()));
    EXPECT_EQ(77, store->GetOffset()->GetProperty<int>("image.time"));
    EXPECT_FALSE(store->GetOffset()->GetProperties().get_child_optional("stale"));
    EXPECT_EQ(std::vector<std::string>({"I CalibrationOffsetPreview : UpdateSingleOffsetRef\n",
                                        "I CalibrationOffsetPreview : UpdateSingleOffsetRef succeed\n"}),
              log.lines);
}

TEST(CalibrationOffsetPreview, SmallerFrameChangesOnlyItsPixels) {
    auto store = boost::make_shared<ReferenceOffsetSimple>(2, 2);
    CalibrationOffsetPreview calibration(store);
    calibration.UpdateSingleOffsetRef(MakeImage<unsigned short>(3, 1, {5, 6, 7}));
    EXPECT_EQ(std::vector<unsigned short>({5, 6, 7, 0}), Pixels(store->GetOffset()));
}

TEST(CalibrationOffsetPreview, NullFrameFailsWithTheOperationsMessage) {
    auto store = boost::make_shared<ReferenceOffsetSimple>(2, 2);
    CalibrationOffsetPreview calibration(store);
    LogCapture log;
    try {
        calibration.UpdateSingleOffsetRef(ImagePtr<unsigned short>());
        FAIL() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_NE(std::string::npos,
                  std::string(e.what()).find("calibration/CalibrationOffsetPreview.cpp("));
        EXPECT_NE(std::string::npos,
                  std::string(e.what()).find("): CalibrationOffsetPreview: UpdateSingleOffsetRef failed"));
    }
    ASSERT_EQ(3u, log.lines.size());
    EXPECT_NE(std::string::npos, log.lines[1].find("failed due to null pointer"));
}
