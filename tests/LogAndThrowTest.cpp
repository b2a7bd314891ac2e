#include "TestImages.h"

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <stdexcept>

using orvane::test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

struct Counted {  // counts how often it is written to a stream
    int* writes;
};
std::ostream& operator<<(std::ostream& stream, const Counted& counted) { return stream << ++*counted.writes; }

}  // namespace

TEST(LogAndThrow, ThrowsFileLineAndMessageLogsTheChainInnerFirstAndCopiesKeepTheType) {
    try {  // composed also without a sink
        LogAndThrow<ImageFileException>("Writer: no space", "tools/image/ImageFxdFile", 7);
    } catch (const ImageFileException& e) {
        EXPECT_STREQ("tools/image/ImageFxdFile(7): Writer: no space", e.what());
    }
    LogCapture log;
    try {
        try {
            LogAndThrow<CalibrationException>("Inner: step failed", "calibration/Inner.cpp", 12);
        } catch (...) {
            LogAndThrow<CalibrationException>("Outer: operation failed", "calibration/Outer.cpp", 34);
        }
    } catch (const CalibrationException& e) {
        EXPECT_STREQ("calibration/Outer.cpp(34): Outer: operation failed", e.what());
    }
    ASSERT_EQ(Lines({"E calibration/Inner.cpp(12): Inner: step failed\n",
                     "E calibration/Outer.cpp(34): Outer: operation failed\n"}),
              log.lines);
    EXPECT_THROW(LogAndThrow<CalibrationException>("here", __FILE__, __LINE__), CalibrationException);
    EXPECT_EQ(0, log.lines.back().rfind("E tests/LogAndThrowTest.cpp(", 0)) << "source directory not stripped";

    // Copies raise their concrete type.
    std::unique_ptr<BaseException> copy(ReferenceException("store refused").Clone());
    EXPECT_STREQ("store refused", copy->what());
    EXPECT_THROW(copy->Raise(), ReferenceException);
    EXPECT_STREQ("extract out of buffer range",
                 ImageFormatException(std::out_of_range("extract out of buffer range")).what());
}

TEST(Logger, LinesAreComposedOnlyWhileASinkListensAndReachTheSinksInOrder) {
    int writes = 0;
    Lines heard;
    orvane::detail::LogInfo("nobody hears this ", Counted{&writes});
    const int first = logger::manager().add_sink([&](const std::string& s) { heard.push_back("1 " + s); });
    const int second = logger::manager().add_sink([&](const std::string& s) { heard.push_back("2 " + s); });
    orvane::detail::LogInfo("CalibrationOffsetDynamic : UpdateSingleOffsetRef");
    logger::manager().log("");
    logger::manager().remove_sink(second);
    orvane::detail::LogError("value ", Counted{&writes});
    logger::manager().remove_sink(first);
    EXPECT_EQ(Lines({"1 I CalibrationOffsetDynamic : UpdateSingleOffsetRef\n",
                     "2 I CalibrationOffsetDynamic : UpdateSingleOffsetRef\n", "1 E value 1\n"}),
              heard);
    EXPECT_EQ(1, writes);
    EXPECT_TRUE(logger::manager().empty_sink());
}
