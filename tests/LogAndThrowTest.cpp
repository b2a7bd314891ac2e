#include "TestImages.h"

#include <gtest/gtest.h>

#include <memory>

using orvane::test::LogCapture;

namespace {

void InnerFailure() {
    LogAndThrow<CalibrationException>("Inner: step failed", "calibration/Inner.cpp", 12);
}

void OuterOperation() {
    try {
        InnerFailure();
    } catch (...) {
        LogAndThrow<CalibrationException>("Outer: operation failed", "calibration/Outer.cpp", 34);
    }
}

}  // namespace

TEST(LogAndThrow, ThrowsFileLineAndMessageEvenWithoutSink) {
    ASSERT_TRUE(logger::manager().empty_sink());
    try {
        LogAndThrow<ImageFileException>("Writer: no space", "tools/image/ImageFxdFile", 7);
        FAIL() << "no exception";
    } catch (const ImageFileException& e) {
        EXPECT_STREQ("tools/image/ImageFxdFile(7): Writer: no space", e.what());
    }
}

TEST(LogAndThrow, OuterMessageReachesHostAndLogHoldsChainInnerFirst) {
    LogCapture log;
    try {
        OuterOperation();
        FAIL() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_STREQ("calibration/Outer.cpp(34): Outer: operation failed", e.what());
    }
    ASSERT_EQ(2u, log.lines.size());
    EXPECT_EQ("E calibration/Inner.cpp(12): Inner: step failed\n", log.lines[0]);
    EXPECT_EQ("E calibration/Outer.cpp(34): Outer: operation failed\n", log.lines[1]);
}

TEST(LogAndThrow, SourceLocationIsRelativeToTheSourceTree) {
    try {
        LogAndThrow<CalibrationException>("here", __FILE__, __LINE__);
    } catch (const CalibrationException& e) {
        EXPECT_EQ(0, std::string(e.what()).rfind("tests/LogAndThrowTest.cpp(", 0)) << e.what();
    }
}

TEST(Exceptions, CloneAndRaiseKeepTheConcreteType) {
    const ReferenceException original("store refused");
    std::unique_ptr<BaseException> copy(original.Clone());
    EXPECT_STREQ("store refused", copy->what());
    EXPECT_THROW(copy->Raise(), ReferenceException);

    const std::out_of_range standard("extract out of buffer range");
    EXPECT_STREQ("extract out of buffer range", ImageFormatException(standard).what());
}

TEST(Logger, LinesAreComposedOnlyWhileASinkListens) {
    orvane::detail::LogInfo("nobody hears this");
    LogCapture log;
    orvane::detail::LogInfo("CalibrationOffsetDynamic : UpdateSingleOffsetRef");
    orvane::detail::LogError("value ", 42);
    logger::manager().log("");
    ASSERT_EQ(2u, log.lines.size());
    EXPECT_EQ("I CalibrationOffsetDynamic : UpdateSingleOffsetRef\n", log.lines[0]);
    EXPECT_EQ("E value 42\n", log.lines[1]);
}

TEST(Logger, RemovedSinkHearsNothingAndOthersStillDo) {
    std::vector<std::string> first, second;
    const int a = logger::manager().add_sink([&](const std::string& s) { first.push_back(s); });
    const int b = logger::manager().add_sink([&](const std::string& s) { second.push_back(s); });
    orvane::detail::LogInfo("one");
    logger::manager().remove_sink(a);
    orvane::detail::LogInfo("two");
    logger::manager().remove_sink(b);
    EXPECT_EQ(std::vector<std::string>({"I one\n"}), first);
    EXPECT_EQ(std::vector<std::string>({"I one\n", "I two\n"}), second);
    EXPECT_TRUE(logger::manager().empty_sink());
}
