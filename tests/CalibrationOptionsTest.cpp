#include "TestImages.h"

#include "calibration/CalibrationOptions.h"
#include "tools/ImageFxdFile.h"

#include <gtest/gtest.h>

#include <strings.h>

#include <cstring>

extern char** environ;

using namespace orvane::test;
using Names = std::vector<std::string>;

namespace {

const char* const kOffsetVariable = "OPTION_CALIBRATION_OFFSET_SAVE_INTERMEDIARY_SEQUENCE";
const std::string kOffset = "offset_save_intermediary_sequence";
const std::string kDm = "dm_save_intermediary_sequence";

// Each test starts without any variable of the prefix, in any case.
class CalibrationOptions : public ::testing::Test {
protected:
    void SetUp() override {
        std::vector<std::string> names;
        for (char** entry = environ; *entry != nullptr; ++entry)
            if (strncasecmp(*entry, "OPTION_CALIBRATION_", 19) == 0)
                names.emplace_back(*entry, std::strchr(*entry, '='));
        for (const auto& name : names) unsetenv(name.c_str());
    }
};

}  // namespace

TEST_F(CalibrationOptions, SetOnlyByTheOneVariableOfThePrefixHoldingExactlyOne) {
    EXPECT_FALSE(IsCalibrationOptionSet(kOffset));
    setenv(kOffsetVariable, "1", 1);
    setenv("option_calibration_dm_save_intermediary_sequence", "1", 1);  // lower case: not counted
    setenv("OPTION_CALIBRATION_", "1", 1);                                // nor the bare prefix
    EXPECT_TRUE(IsCalibrationOptionSet(kOffset));
    EXPECT_FALSE(IsCalibrationOptionSet(kDm));
    EXPECT_FALSE(IsCalibrationOptionSet("OFFSET_SAVE_INTERMEDIARY_SEQUENCE"));
    for (const char* value : {"2", "true", "", " 1", "1 ", "01"}) {  // read afresh each time
        setenv(kOffsetVariable, value, 1);
        EXPECT_FALSE(IsCalibrationOptionSet(kOffset)) << "value '" << value << "'";
    }
    // Any second variable of the prefix switches every option off.
    setenv(kOffsetVariable, "1", 1);
    setenv("OPTION_CALIBRATION_DM_SAVE_INTERMEDIARY_SEQUENCE", "1", 1);
    EXPECT_FALSE(IsCalibrationOptionSet(kDm));
    EXPECT_FALSE(IsCalibrationOptionSet(kOffset));
    unsetenv(kOffsetVariable);
    setenv("OPTION_CALIBRATION_UNRELATED", "0", 1);
    EXPECT_FALSE(IsCalibrationOptionSet(kDm));
}

// The dynamic offset saves its three stages only with the option; any image is
// one frame, a sequence has the first image's properties, and failures make no file.
TEST_F(CalibrationOptions, DebugImagesOfTheDynamicOffsetAndOfAnyImageOrSequence) {
    ScratchDirectory directory;
    OffsetDynamicParameters parameters{0.125f};
    CalibrationOffsetDynamic calibration(parameters, boost::make_shared<ReferenceOffsetSimple>(3, 1));
    calibration.Init();
    const std::vector<ImagePtr<unsigned short>> frames = {MakeImage<unsigned short>(3, 1, {100, 7, 65535}),
                                                          MakeImage<unsigned short>(3, 1, {101, 7, 65534})};
    frames[1]->SetProperty("image.time", 7);
    calibration.CalculateOffsetReference(frames);
    setenv(kOffsetVariable, "1", 1);
    EXPECT_THROW(calibration.CalculateOffsetReference({}), CalibrationException);  // saves the empty series
    EXPECT_TRUE(directory.Entries().empty());
    calibration.CalculateOffsetReference(frames);
    SaveDebugImage(MakeImage<unsigned char>(1, 1, {200}), "DM6", "mask");
    const std::vector<ImagePtr<float>> images = {MakeImage<float>(2, 1, {0.5f, -1}),
                                                 MakeImage<float>(2, 1, {3, 1e30f})};
    images[0]->SetProperty("image.time", 100);
    images[1]->SetProperty("image.time", 200);
    SaveDebugImage(images, "DM6", "input");
    // A missing image or one of another size fails before the file is made.
    const std::string message = "): Impossible to write image 'DM6-ImageDebug-bad.fxd'";
    for (const auto& other : {ImagePtr<float>(), MakeImage<float>(2, 2)}) {
        const std::string text = ThrownText<ImageFileException>(
            [&] { SaveDebugImage(std::vector<ImagePtr<float>>{images[0], other}, "DM6", "bad"); });
        EXPECT_EQ(text.size() - message.size(), text.rfind(message)) << text;
    }
    EXPECT_THROW(SaveDebugImage(ImagePtr<unsigned char>(), "DM6", "bad"), ImageFileException);
    EXPECT_EQ(Names({"DM6-ImageDebug-input.fxd", "DM6-ImageDebug-mask.fxd", "OffsetDynamic-ImageDebug-Accumulation.fxd",
                     "OffsetDynamic-ImageDebug-Offset.fxd", "OffsetDynamic-ImageDebug-input.fxd"}),
              directory.Entries());

    ImageFxdFileIn one("OffsetDynamic-ImageDebug-Offset.fxd"), sequence("DM6-ImageDebug-input.fxd");
    EXPECT_EQ(std::vector<int>({1, 1, 0}),
              std::vector<int>({one.GetPixelType(), one.GetFrameCount(), one.HasProperties()}));
    EXPECT_EQ(std::vector<unsigned short>({101, 7, 65535}),  // the mean of the frames, rounded half up
              Pixels(one.ReadImage<unsigned short>(0)));
    EXPECT_EQ(2, ImageFxdFileIn("DM6-ImageDebug-mask.fxd").GetPixelType());
    EXPECT_EQ(std::vector<int>({0, 2}), std::vector<int>({sequence.GetPixelType(), sequence.GetFrameCount()}));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Pixels(images[i]), Pixels(sequence.ReadImage<float>(i))) << i;
        EXPECT_EQ(100, sequence.ReadImage<float>(i)->GetProperty<int>("image.time")) << i;
    }
}
