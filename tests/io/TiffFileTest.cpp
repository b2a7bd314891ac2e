#include "io/IoTestFiles.h"

#include "io/TiffFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <tuple>

using namespace orvane::io;
using namespace orvane::test;

namespace {

void ExpectSeries(const std::string& path, PixelKind kind, int width, int height, int frames, bool withProperties) {
    const auto source = OpenTiffSeries(path);
    switch (kind) {
        case PixelKind::UInt8: orvane::test::ExpectSeries<unsigned char>(*source, width, height, frames, withProperties); break;
        case PixelKind::UInt16: orvane::test::ExpectSeries<unsigned short>(*source, width, height, frames, withProperties); break;
        case PixelKind::Float32: orvane::test::ExpectSeries<float>(*source, width, height, frames, withProperties); break;
    }
}

// Opens `path` and reads every frame.
void ReadAll(const std::string& path) {
    const auto source = OpenTiffSeries(path);
    std::vector<char> pixels(size_t(source->Shape().width) * source->Shape().height * 4);
    boost::property_tree::ptree properties;
    for (int f = 0; f < source->Shape().frames; ++f) source->ReadFrame(f, pixels.data(), properties);
}

}  // namespace

TEST(TiffFile, ReadsWhatTifffileWritesInEachLayout) {
    ScratchDirectory scratch;
    struct Case {
        std::string file, options;
        PixelKind kind;
        int width, height, frames;
    };
    const Case cases[] = {
        {"u16.tif", "'<u2' describe rowsperstrip=3", PixelKind::UInt16, 6, 7, 3},
        {"big-endian.tif", "'>u2' describe rowsperstrip=3", PixelKind::UInt16, 6, 4, 3},
        {"tiled.tif", "'<u2' tile=16", PixelKind::UInt16, 37, 21, 2},
        {"bigtiff.tif", "'>u2' bigtiff describe", PixelKind::UInt16, 5, 3, 2},
        {"float.tif", "'<f4' describe", PixelKind::Float32, 5, 7, 2},
        {"tiled-float.tif", "'>f4' tile=16 compression=zlib", PixelKind::Float32, 20, 17, 2},
        {"u8.tif", "u1", PixelKind::UInt8, 9, 2, 2},
        {"zlib.tif", "'<u2' compression=zlib describe", PixelKind::UInt16, 300, 200, 3},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(0, RunPython("tiff_interop.py", "write " + c.file + " " + std::to_string(c.width) + " " +
                                                      std::to_string(c.height) + " " + std::to_string(c.frames) +
                                                      " " + c.options));
        ExpectSeries(c.file, c.kind, c.width, c.height, c.frames, Contains(c.options, "describe"));
    }
}

TEST(TiffFile, TifffileReadsWhatWeWrite) {
    ScratchDirectory scratch;
    // 300 x 250 16-bit frames, one strip a page. BigTIFF when asked, or when the
    // expected frames pass 3.5 GiB: 130e6 frames of 30 bytes do, 100e6 do not (but
    // pass 2^31 bytes).
    WriteSeries<unsigned short>(*CreateTiffWriter("u16.tif", {}), 300, 250, 3);
    WriteSeries<float>(*CreateTiffWriter("f32.tif", {}), 5, 7, 2);
    WriteOptions big, many, fewer;
    big.bigTiff = true, many.expectedFrames = 130000000, fewer.expectedFrames = 100000000;
    const std::tuple<std::string, WriteOptions, const char*> bigOrNot[] = {
        {"big.tif", big, " bigtiff"}, {"many.tif", many, " bigtiff"}, {"fewer.tif", fewer, ""}};
    for (const auto& [file, options, layout] : bigOrNot) {
        WriteSeries<unsigned short>(*CreateTiffWriter(file, options), 5, 3, 2);
        EXPECT_EQ(0, RunPython("tiff_interop.py", "check " + file + " 5 3 2 u2" + layout)) << file;
    }
    EXPECT_EQ(0, RunPython("tiff_interop.py", "check u16.tif 300 250 3 u2"));
    EXPECT_EQ(0, RunPython("tiff_interop.py", "check f32.tif 5 7 2 f4"));
    ExpectSeries("u16.tif", PixelKind::UInt16, 300, 250, 3, true);
    ExpectSeries("big.tif", PixelKind::UInt16, 5, 3, 2, true);

    auto writer = CreateTiffWriter("mixed.tif", {});
    writer->WriteImage(*TestFrame<unsigned short>(5, 3, 0));
    EXPECT_EQ("mixed.tif: a frame of 5 x 3 32-bit float cannot join frames of 5 x 3 16-bit unsigned",
              Failure([&] { writer->WriteImage(*TestFrame<float>(5, 3, 0)); }));
    EXPECT_EQ("empty.tif: cannot be written without frames", Failure([] { CreateTiffWriter("empty.tif", {})->Close(); }));

    // A description nested deeper than the properties go is not ours: the frame reads
    // without properties (the JSON parser would recurse once per level).
    for (const int depth : {64, 65, 300000}) {
        const std::string options = " describe nest=" + std::to_string(depth);
        ASSERT_EQ(0, RunPython("tiff_interop.py", "write deep.tif 5 3 1 '<u2'" + options));
        const auto frame = OpenTiffSeries("deep.tif")->ReadImage<unsigned short>(0);
        EXPECT_EQ(depth <= 64 ? "7" : "", frame->GetProperties().get("image.time", std::string())) << depth;
    }
}

TEST(TiffFile, RefusesBadFilesOnOneLineAndLibtiffStaysSilent) {
    ScratchDirectory scratch;
    const std::pair<std::string, std::string> refused[] = {
        {"mixed", "page 1 is 7 x 3 16-bit unsigned, unlike page 0 (5 x 3 16-bit unsigned)"},
        {"rgb", "has 3 samples per pixel (colour or extra channels); only grey pages of one sample are read"},
        {"palette", "is colour-mapped (a palette); only grey pages are read"},
        {"int16", "holds 16-bit signed integer pixels; only 8/16-bit unsigned and 32-bit float are read"},
        {"uint32", "holds 32-bit unsigned integer pixels; only 8/16-bit unsigned and 32-bit float are read"},
        {"float64", "holds 64-bit float pixels; only 8/16-bit unsigned and 32-bit float are read"},
        {"bilevel", "holds 1-bit (bilevel) pixels; only 8/16-bit unsigned and 32-bit float are read"},
        {"tile", "has tiles of 2048 x 2048 pixels, out of proportion to its 5 x 3 16-bit unsigned frames"},
        {"huge", "frames of 100000 x 3 pixels are beyond what is read (at most 65535 a side and 268435456 pixels)"},
    };
    for (const auto& [kind, problem] : refused) ASSERT_EQ(0, RunPython("tiff_interop.py", "bad " + kind + ".tif " + kind));
    // Cut short: our file has each page's directory after its pixels, so half of it
    // breaks the chain of pages; tifffile's has them before, so its end loses pixels.
    WriteSeries<unsigned short>(*CreateTiffWriter("ours.tif", {}), 300, 250, 3);
    ASSERT_EQ(0, RunPython("tiff_interop.py", "write theirs.tif 300 250 3 u2"));
    for (const char* file : {"ours.tif", "theirs.tif"}) {
        const auto size = std::filesystem::file_size(file);
        std::ofstream(std::string("cut-") + file, std::ios::binary) << std::ifstream(file, std::ios::binary).rdbuf();
        std::filesystem::resize_file(std::string("cut-") + file, file[0] == 'o' ? size / 2 : size - 1000);
    }
    std::ofstream("fake.tif") << "0123456789";

    testing::internal::CaptureStderr();
    for (const auto& [kind, problem] : refused) {
        const std::string file = kind + ".tif";
        EXPECT_EQ(file + ": " + problem, Failure([&] { ReadAll(file); }));
    }
    // libtiff's own words follow ours.
    const std::pair<std::string, std::string> broken[] = {
        {"cut-ours.tif", "has its chain of pages broken after page 0 ("},
        {"cut-theirs.tif", "cannot read frame 2 at strip "},
        {"fake.tif", "is not a readable TIFF file (Not a TIFF"}};
    for (const auto& [file, problem] : broken) {
        const std::string path = file, text = Failure([&] { ReadAll(path); }), lead = file + ": " + problem;
        EXPECT_EQ(lead, text.substr(0, lead.size())) << text;
        EXPECT_EQ(std::string::npos, text.find('\n')) << text;
    }
    EXPECT_EQ("none.tif: cannot be opened", Failure([] { ReadAll("none.tif"); }));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}
