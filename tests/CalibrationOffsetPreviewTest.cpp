#include "TestImages.h"

#include <gtest/gtest.h>

using namespace orvane::test;

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

    auto square = boost::make_shared<ReferenceOffsetSimple>(2, 2);  // a smaller frame changes only its pixels
    CalibrationOffsetPreview(square).UpdateSingleOffsetRef(MakeImage<unsigned short>(3, 1, {5, 6, 7}));
    EXPECT_EQ(std::vector<unsigned short>({5, 6, 7, 0}), Pixels(square->GetOffset()));
}

TEST(CalibrationOffsetPreview, NullFrameFailsWithTheOperationsMessage) {
    CalibrationOffsetPreview calibration(boost::make_shared<ReferenceOffsetSimple>(2, 2));
    LogCapture log;
    std::string text;
    try {
        calibration.UpdateSingleOffsetRef(ImagePtr<unsigned short>());
    } catch (const CalibrationException& e) {
        text = e.what();
    }
    EXPECT_NE(std::string::npos, text.find("calibration/CalibrationOffsetPreview.cpp("));
    const std::string message = "): CalibrationOffsetPreview: UpdateSingleOffsetRef failed";
    EXPECT_EQ(text.size() - message.size(), text.rfind(message)) << text;
    ASSERT_EQ(3u, log.lines.size());
    EXPECT_NE(std::string::npos, log.lines[1].find("failed due to null pointer"));
}
