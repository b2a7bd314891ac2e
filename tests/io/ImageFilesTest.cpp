#include "io/IoTestFiles.h"

#include "io/FxdFile.h"
#include "io/ImageFileFormat.h"
#include "io/ImageFiles.h"
#include "io/RawFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

using namespace orvane::io;
using namespace orvane::test;

TEST(ImageFileFormat, NamesExtensionsAndSignatures) {
    ScratchDirectory scratch;
    for (ImageFileFormat format : {ImageFileFormat::Fxd, ImageFileFormat::Tiff, ImageFileFormat::Hdf5,
                                   ImageFileFormat::Fits, ImageFileFormat::Raw}) {
        EXPECT_EQ(format, ParseFormatName(FormatName(format)));
        EXPECT_EQ(format, FormatOfExtension("a/b" + FormatExtension(format)));
    }
    EXPECT_EQ(ImageFileFormat::Tiff, FormatOfExtension("DARK.TIFF"));
    EXPECT_EQ(ImageFileFormat::Hdf5, FormatOfExtension("scan.nxs"));
    EXPECT_FALSE(FormatOfExtension("notes.txt"));
    EXPECT_THROW(ParseFormatName("png"), std::invalid_argument);

    // The first bytes decide; raw, which has none, goes by its extension.
    const std::pair<std::string, ImageFileFormat> signed_[] = {
        {std::string("II*\0", 4), ImageFileFormat::Tiff}, {std::string("MM\0+", 4), ImageFileFormat::Tiff},
        {"\x89HDF\r\n\x1a\n", ImageFileFormat::Hdf5},     {"SIMPLE  =  T", ImageFileFormat::Fits},
        {"OFXD", ImageFileFormat::Fxd}};
    for (const auto& [bytes, format] : signed_) {
        std::ofstream("misnamed.raw", std::ios::binary) << bytes;
        EXPECT_EQ(format, DetectFormat("misnamed.raw")) << FormatName(format);
    }
    std::ofstream("frames.bin") << "0123";
    EXPECT_EQ(ImageFileFormat::Raw, DetectFormat("frames.bin"));
    std::ofstream("fake.tif") << "0123";
    EXPECT_EQ("fake.tif: is not a tiff file (its first bytes do not say so)", Failure([] { DetectFormat("fake.tif"); }));
    EXPECT_EQ("notes.txt: cannot be opened", Failure([] { DetectFormat("notes.txt"); }));
}

// A writer whose Close succeeded takes no further frame and closes again without a
// change: the file keeps exactly the frames written before.
TEST(SeriesWriter, EveryFormatRefusesAFrameAfterCloseAndClosesOnce) {
    ScratchDirectory scratch;
    for (ImageFileFormat format : {ImageFileFormat::Fxd, ImageFileFormat::Tiff, ImageFileFormat::Hdf5,
                                   ImageFileFormat::Fits, ImageFileFormat::Raw}) {
        const std::string path = "closed" + FormatExtension(format);
        auto writer = CreateSeriesWriter(path, format);
        WriteSeries<unsigned short>(*writer, 5, 3, 2);
        EXPECT_EQ(path + ": is closed: no frame can follow",
                  Failure([&] { writer->WriteImage(*TestFrame<unsigned short>(5, 3, 2)); }));
        writer->Close();
        OpenOptions options;
        if (format == ImageFileFormat::Raw) options.raw = ParseRawLayout("5x3:u16le");
        ExpectSeries<unsigned short>(*OpenSeries(path, options), 5, 3, 2, format != ImageFileFormat::Raw);
    }
}

TEST(FxdFile, SeriesOfEachPixelKindComeBackWithTheirProperties) {
    ScratchDirectory scratch;
    WriteSeries<unsigned short>(*CreateFxdWriter("u16.fxd"), 5, 3, 4);
    WriteSeries<float>(*CreateFxdWriter("f32.fxd"), 2, 7, 2);
    WriteSeries<unsigned char>(*CreateFxdWriter("u8.fxd"), 3, 3, 1);
    ExpectSeries<unsigned short>(*OpenFxdSeries("u16.fxd"), 5, 3, 4, true);
    ExpectSeries<float>(*OpenFxdSeries("f32.fxd"), 2, 7, 2, true);
    ExpectSeries<unsigned char>(*OpenFxdSeries("u8.fxd"), 3, 3, 1, true);

    const auto source = OpenFxdSeries("u16.fxd");
    EXPECT_EQ("u16.fxd: holds 16-bit unsigned pixels, not 32-bit float", Failure([&] { source->ReadImage<float>(0); }));
    EXPECT_EQ("u16.fxd: has 4 frames, no frame 4", Failure([&] { source->ReadImage<unsigned short>(4); }));
    auto writer = CreateFxdWriter("mixed.fxd");
    writer->WriteImage(*TestFrame<unsigned short>(5, 3, 0));
    EXPECT_EQ("mixed.fxd: a frame of 3 x 5 16-bit unsigned cannot join frames of 5 x 3 16-bit unsigned",
              Failure([&] { writer->WriteImage(*TestFrame<unsigned short>(3, 5, 0)); }));
    std::ofstream("cut.fxd") << std::ifstream("u16.fxd").rdbuf();
    std::filesystem::resize_file("cut.fxd", 200);
    EXPECT_EQ(0u, Failure([] { OpenFxdSeries("cut.fxd"); }).find("cut.fxd: is truncated: 200 bytes"));
}

TEST(RawFile, LayoutsFramesFromTheLengthEitherByteOrderAgainstNumpy) {
    ScratchDirectory scratch;
    const RawLayout big = ParseRawLayout("6x4:u16be:100");
    EXPECT_EQ((std::vector<long>{6, 4, 1, 100}), (std::vector<long>{big.width, big.height, big.bigEndian, long(big.headerBytes)}));
    EXPECT_EQ(PixelKind::Float32, ParseRawLayout("3121x3121:f32le").pixel);
    for (const char* bad : {"6x4", "6x4:u16", "6x:u8", "0x4:u8", "100000x100000:u16le", "6x4:u8:-1", "6x4:u8:1k"})
        EXPECT_THROW(ParseRawLayout(bad), std::invalid_argument) << bad;

    // numpy writes big-endian frames after a header; we read them, then write both
    // byte orders, which numpy reads.
    ASSERT_EQ(0, RunPython("raw_interop.py", "write numpy.raw 6 4 3 '>u2' 100"));
    ExpectSeries<unsigned short>(*OpenRawSeries("numpy.raw", big), 6, 4, 3, false);
    ASSERT_EQ(0, RunPython("raw_interop.py", "write float.bin 5 2 2 '<f4' 0"));
    ExpectSeries<float>(*OpenRawSeries("float.bin", ParseRawLayout("5x2:f32le")), 5, 2, 2, false);
    WriteOptions bigEndian;
    bigEndian.bigEndian = true;
    WriteSeries<unsigned short>(*CreateRawWriter("ours.raw", bigEndian), 6, 4, 3);
    WriteSeries<float>(*CreateRawWriter("ours.bin", {}), 5, 2, 2);
    EXPECT_EQ(0, RunPython("raw_interop.py", "check ours.raw 6 4 3 '>u2' 0"));
    EXPECT_EQ(0, RunPython("raw_interop.py", "check ours.bin 5 2 2 '<f4' 0"));

    // A length that is not the header and whole frames.
    EXPECT_EQ("numpy.raw: is 244 bytes: not 99 header bytes and whole frames of 48 bytes (6 x 4 16-bit unsigned)",
              Failure([&] { OpenRawSeries("numpy.raw", ParseRawLayout("6x4:u16be:99")); }));
}
