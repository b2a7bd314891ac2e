#include "TestImages.h"

#include "calibration/CalibrationOptions.h"
#include "tools/ImageFxdFile.h"

#include <gtest/gtest.h>

#include <strings.h>

#include <cstring>
#include <utility>

extern char** environ;

using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::ScratchDirectory;

namespace {

const char* const kOffsetVariable = "OPTION_CALIBRATION_OFFSET_SAVE_INTERMEDIARY_SEQUENCE";
const char* const kDmVariable = "OPTION_CALIBRATION_DM_SAVE_INTERMEDIARY_SEQUENCE";
const std::string kOffset = "offset_save_intermediary_sequence";
const std::string kDm = "dm_save_intermediary_sequence";

// Every variable of the prefix, in any case, removed for the test and restored after.
class CalibrationOptions : public ::testing::Test {
protected:
    void SetUp() override { saved = TakePrefixed(); }
    void TearDown() override {
        TakePrefixed();
        for (const auto& variable : saved) setenv(variable.first.c_str(), variable.second.c_str(), 1);
    }

private:
    static std::vector<std::pair<std::string, std::string>> TakePrefixed() {
        std::vector<std::pair<std::string, std::string>> taken;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string text = *entry;
            if (strncasecmp(text.c_str(), "OPTION_CALIBRATION_", 19) == 0) {
                const size_t equals = text.find('=');
                taken.emplace_back(text.substr(0, equals), text.substr(equals + 1));
            }
        }
        for (const auto& variable : taken) unsetenv(variable.first.c_str());
        return taken;
    }

    std::vector<std::pair<std::string, std::string>> saved;
};

using CalibrationOptionsFiles = CalibrationOptions;

}  // namespace

TEST_F(CalibrationOptions, OneVariableSetToOneSetsItsOptionOnly) {
    EXPECT_FALSE(IsCalibrationOptionSet(kOffset));
    setenv(kOffsetVariable, "1", 1);
    EXPECT_TRUE(IsCalibrationOptionSet(kOffset));
    EXPECT_FALSE(IsCalibrationOptionSet(kDm));
    EXPECT_FALSE(IsCalibrationOptionSet("OFFSET_SAVE_INTERMEDIARY_SEQUENCE"));
    unsetenv(kOffsetVariable);
    EXPECT_FALSE(IsCalibrationOptionSet(kOffset));  // read afresh
}

TEST_F(CalibrationOptions, ValueMustBeExactlyOne) {
    for (const char* value : {"2", "true", "", " 1", "1 ", "01"}) {
        setenv(kOffsetVariable, value, 1);
        EXPECT_FALSE(IsCalibrationOptionSet(kOffset)) << "value '" << value << "'";
    }
}

TEST_F(CalibrationOptions, AnySecondVariableOfThePrefixDisablesEveryOption) {
    setenv(kDmVariable, "1", 1);
    setenv("OPTION_CALIBRATION_UNRELATED", "0", 1);
    EXPECT_FALSE(IsCalibrationOptionSet(kDm));
    EXPECT_FALSE(IsCalibrationOptionSet("unrelated"));
    unsetenv("OPTION_CALIBRATION_UNRELATED");
    setenv(kOffsetVariable, "1", 1);
    EXPECT_FALSE(IsCalibrationOptionSet(kDm));
    EXPECT_FALSE(IsCalibrationOptionSet(kOffset));
}

TEST_F(CalibrationOptions, LowerCaseVariablesAndTheBarePrefixDoNotCount) {
    setenv("option_calibration_dm_save_intermediary_sequence", "1", 1);
    EXPECT_FALSE(IsCalibrationOptionSet(kDm));
    setenv("OPTION_CALIBRATION_", "1", 1);
    setenv(kOffsetVariable, "1", 1);
    EXPECT_TRUE(IsCalibrationOptionSet(kOffset));
}

TEST_F(CalibrationOptionsFiles, OneImageIsOneFrameWithoutProperties) {
    ScratchDirectory directory;
    auto image = MakeImage<unsigned short>(3, 2, {1, 2, 3, 4, 5, 65535});
    image->SetProperty("image.time", 7);
    SaveDebugImage(image, "OffsetDynamic", "Offset");
    SaveDebugImage(MakeImage<unsigned char>(1, 1, {200}), "DM6", "mask");
    EXPECT_EQ(std::vector<std::string>({"DM6-ImageDebug-mask.fxd", "OffsetDynamic-ImageDebug-Offset.fxd"}),
              directory.Entries());

    ImageFxdFileIn file("OffsetDynamic-ImageDebug-Offset.fxd");
    EXPECT_EQ(1, file.GetPixelType());
    EXPECT_EQ(1, file.GetFrameCount());
    EXPECT_FALSE(file.HasProperties());
    EXPECT_EQ(Pixels(image), Pixels(file.ReadImage<unsigned short>(0)));
    EXPECT_EQ(2, ImageFxdFileIn("DM6-ImageDebug-mask.fxd").GetPixelType());
}

TEST_F(CalibrationOptionsFiles, SequenceFramesAllCarryTheFirstImagesProperties) {
    ScratchDirectory directory;
    std::vector<ImagePtr<float>> images = {MakeImage<float>(2, 1, {0.5f, -1.0f}),
                                           MakeImage<float>(2, 1, {3.25f, 1e30f}),
                                           MakeImage<float>(2, 1, {-0.0f, 7.0f})};
    images[0]->SetProperty("image.time", 100);
    images[1]->SetProperty("image.time", 200);
    SaveDebugImage(images, "DM6", "input");

    ImageFxdFileIn file("DM6-ImageDebug-input.fxd");
    ASSERT_EQ(3, file.GetFrameCount());
    EXPECT_EQ(0, file.GetPixelType());
    for (int i = 0; i < 3; ++i) {
        const ImagePtr<float> frame = file.ReadImage<float>(i);
        EXPECT_EQ(0, std::memcmp(images[i]->GetData(), frame->GetData(), 2 * sizeof(float))) << i;
        EXPECT_EQ(100, frame->GetProperty<int>("image.time")) << i;
    }
}

TEST_F(CalibrationOptionsFiles, EmptySequenceWritesNothing) {
    ScratchDirectory directory;
    SaveDebugImage(std::vector<ImagePtr<unsigned short>>(), "OffsetDynamic", "input");
    EXPECT_TRUE(directory.Entries().empty());
}

TEST_F(CalibrationOptionsFiles, DynamicOffsetSavesItsThreeStagesOnlyWithTheOption) {
    ScratchDirectory directory;
    OffsetDynamicParameters parameters{0.125f};
    auto store = boost::make_shared<ReferenceOffsetSimple>(3, 1);
    CalibrationOffsetDynamic calibration(parameters, store);
    calibration.Init();
    const std::vector<ImagePtr<unsigned short>> frames = {
        MakeImage<unsigned short>(3, 1, {100, 7, 65535}), MakeImage<unsigned short>(3, 1, {101, 7, 65534})};
    calibration.CalculateOffsetReference(frames);
    EXPECT_TRUE(directory.Entries().empty());

    setenv(kOffsetVariable, "1", 1);
    EXPECT_THROW(calibration.CalculateOffsetReference({}), CalibrationException);
    EXPECT_TRUE(directory.Entries().empty());
    calibration.CalculateOffsetReference(frames);
    EXPECT_EQ(std::vector<std::string>({"OffsetDynamic-ImageDebug-Accumulation.fxd",
                                        "OffsetDynamic-ImageDebug-Offset.fxd",
                                        "OffsetDynamic-ImageDebug-input.fxd"}),
              directory.Entries());

    ImageFxdFileIn input("OffsetDynamic-ImageDebug-input.fxd");
    ASSERT_EQ(2, input.GetFrameCount());
    EXPECT_EQ(Pixels(frames[1]), Pixels(input.ReadImage<unsigned short>(1)));
    // The sum of the two frames, then their mean rounded half up.
    EXPECT_EQ(std::vector<float>({201.0f, 14.0f, 131069.0f}),
              Pixels(ImageFxdFileIn("OffsetDynamic-ImageDebug-Accumulation.fxd").ReadImage<float>(0)));
    EXPECT_EQ(std::vector<unsigned short>({101, 7, 65535}),
              Pixels(ImageFxdFileIn("OffsetDynamic-ImageDebug-Offset.fxd").ReadImage<unsigned short>(0)));
}
