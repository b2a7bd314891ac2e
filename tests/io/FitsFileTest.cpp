#include "io/IoTestFiles.h"

#include "io/FitsFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

using namespace orvane::io;
using namespace orvane::test;

namespace {

template <typename T>
void WriteSeries(const std::string& path, int width, int height, int frames, int expectedFrames = 0) {
    WriteOptions options;
    options.expectedFrames = expectedFrames;
    orvane::test::WriteSeries<T>(*CreateFitsWriter(path, options), width, height, frames);
}

// Every frame of the file is the test frame, with its properties or with none.
template <typename T>
void ExpectSeries(const std::string& path, int width, int height, int frames, bool withProperties = true) {
    orvane::test::ExpectSeries<T>(*OpenFitsSeries(path), width, height, frames, withProperties);
}

std::string Fits(const std::string& action, const std::string& path, const std::string& kind, int width, int height,
                 int frames, bool keys = true) {
    const std::string arguments = action + " " + path + " " + kind + " " + std::to_string(width) + " " +
                                  std::to_string(height) + " " + std::to_string(frames) + (keys ? " 1" : " 0");
    return RunPython("fits_interop.py", arguments) == 0 ? "agree" : path + " disagrees";
}

}  // namespace

TEST(FitsFile, AstropyFilesAreReadToTheBitWithTheirKeywords) {
    ScratchDirectory scratch;
    ASSERT_EQ("agree", Fits("write", "u16.fits", "u16", 5, 3, 4));  // BITPIX 16 + BZERO 32768
    ASSERT_EQ("agree", Fits("write", "f32.fits", "f32", 7, 2, 1));  // 2-D
    ASSERT_EQ("agree", Fits("write", "u8.fits", "u8", 3, 4, 2, false));
    ExpectSeries<unsigned short>("u16.fits", 5, 3, 4);
    ExpectSeries<float>("f32.fits", 7, 2, 1);
    ExpectSeries<unsigned char>("u8.fits", 3, 4, 2, false);
}

TEST(FitsFile, OurFilesAreReadByAstropyToTheBit) {
    ScratchDirectory scratch;
    std::ofstream("u16.fits") << std::string(100000, 'x');  // replaced whole
    WriteSeries<unsigned short>("u16.fits", 5, 3, 4);        // grows a plane at a time
    WriteSeries<float>("f32.fits", 7, 2, 1);                 // one frame: 2-D
    WriteSeries<unsigned char>("u8.fits", 3, 4, 2, 5);       // fewer frames than expected
    WriteSeries<unsigned short>("long.fits", 2, 2, 130);     // keywords past the room kept for them
    EXPECT_EQ("agree", Fits("check", "u16.fits", "u16", 5, 3, 4));
    EXPECT_EQ("agree", Fits("check", "f32.fits", "f32", 7, 2, 1));
    EXPECT_EQ("agree", Fits("check", "u8.fits", "u8", 3, 4, 2));
    EXPECT_EQ("agree", Fits("check", "long.fits", "u16", 2, 2, 130));
    ExpectSeries<unsigned short>("long.fits", 2, 2, 130);

    // A frame without properties has no keywords; properties that no keyword holds are refused.
    const auto bare = TestFrame<unsigned char>(3, 4, 0);
    bare->GetProperties().clear();
    const auto writer = CreateFitsWriter("bare.fits", {});
    writer->WriteImage(*bare);
    writer->Close();
    EXPECT_EQ("agree", Fits("check", "bare.fits", "u8", 3, 4, 1, false));
    const auto mixed = CreateFitsWriter("mixed.fits", {});
    mixed->WriteImage(*TestFrame<unsigned short>(5, 3, 0));
    EXPECT_EQ("mixed.fits: a frame of 3 x 5 16-bit unsigned cannot join frames of 5 x 3 16-bit unsigned",
              Failure([&] { mixed->WriteImage(*TestFrame<unsigned short>(3, 5, 0)); }));
    const auto late = TestFrame<unsigned short>(5, 3, 1);
    late->SetProperty("image.time", "12:30");
    EXPECT_EQ("mixed.fits: frame 1 has image.time '12:30', not a whole number", Failure([&] { mixed->WriteImage(*late); }));
}

TEST(FitsFile, RefusesWhatItDoesNotReadInOneLine) {
    ScratchDirectory scratch;
    for (const char* kind : {"i16", "i32", "f64", "scaled", "naxis4", "extension", "huge", "u16"})
        ASSERT_EQ("agree", Fits("write", std::string(kind) + ".fits", kind, 5, 3, 2));
    std::ofstream("text.fits") << "SIMPLE  = but not a FITS header at all\n";
    for (const auto& [name, length] : {std::pair<std::string, int>{"cut-data.fits", 2890}, {"cut-header.fits", 1000}}) {
        std::filesystem::copy_file("u16.fits", name);
        std::filesystem::resize_file(name, length);
    }
    const std::string kinds = ": read are 8-bit unsigned, 16-bit unsigned (BITPIX 16, BZERO 32768) and 32-bit float";
    const std::pair<std::string, std::string> refusals[] = {
        {"i16.fits", "i16.fits: holds 16-bit signed pixels (BITPIX 16, BZERO 0, BSCALE 1)" + kinds},
        {"i32.fits", "i32.fits: holds 32-bit signed pixels (BITPIX 32, BZERO 0, BSCALE 1)" + kinds},
        {"f64.fits", "f64.fits: holds 64-bit float pixels (BITPIX -64, BZERO 0, BSCALE 1)" + kinds},
        {"scaled.fits", "scaled.fits: holds scaled 16-bit signed pixels (BITPIX 16, BZERO 100, BSCALE 1)" + kinds},
        {"naxis4.fits", "naxis4.fits: has NAXIS 4: only 2-D images and 3-D cubes are read"},
        {"extension.fits", "extension.fits: has no image in its primary HDU (images in extensions are not read)"},
        {"huge.fits", "huge.fits: frames of 100000 x 100000 pixels are beyond what is read (at most 65535 a side and "
                      "268435456 pixels)"},
        {"cut-data.fits", "cut-data.fits: is truncated: 2890 bytes, its image needs 2940"},
        {"cut-header.fits", "cut-header.fits: cannot be read as FITS: "},
        {"text.fits", "text.fits: cannot be read as FITS: "}};
    testing::internal::CaptureStderr();
    for (const auto& [path, message] : refusals) {
        const std::string file = path;  // a lambda cannot capture a structured binding before C++20
        const std::string text = Failure([&] { OpenFitsSeries(file); });
        if (message.back() == ' ') {  // cfitsio's own reason follows
            EXPECT_EQ(message, text.substr(0, message.size()));
            EXPECT_GT(text.size(), message.size());
        } else {
            EXPECT_EQ(message, text);
        }
        EXPECT_EQ(std::string::npos, text.find('\n')) << text;
    }
    EXPECT_EQ("", testing::internal::GetCapturedStderr());

    // A frame's time as a string without its closing quote, or as a long run of
    // characters that are no number: one line, where cfitsio's own conversion would
    // overrun a buffer.
    WriteSeries<unsigned short>("keys.fits", 5, 3, 1);
    const std::string bytes = ReadFile("keys.fits");
    const size_t card = bytes.find("TIME0001= ");
    ASSERT_NE(std::string::npos, card);
    for (const std::string& value : {"'   7" + std::string(65, ' '), std::string(59, '\f') + " S   67 / t"}) {
        std::string changed = bytes;
        changed.replace(card + 10, 70, value + std::string(70 - value.size(), ' '));
        std::ofstream("bad-key.fits", std::ios::binary | std::ios::trunc) << changed;
        const std::string text = Failure([] { OpenFitsSeries("bad-key.fits")->ReadImage<unsigned short>(0); });
        EXPECT_EQ(0u, text.find("bad-key.fits: has a keyword TIME0001 that ")) << text;
        EXPECT_EQ(std::string::npos, text.find('\n')) << text;
    }
}
