#include "io/IoTestFiles.h"

#include "io/Hdf5File.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <tuple>

using namespace orvane::io;
using namespace orvane::test;

namespace {

// Adds a dataset of test frames to a file with h5py (hdf5_interop.py write <arguments>).
void H5py(const std::string& arguments) { ASSERT_EQ(0, RunPython("hdf5_interop.py", "write " + arguments)) << arguments; }

}  // namespace

TEST(Hdf5File, ReadsEachLayoutAndTypeThatH5pyWrites) {
    ScratchDirectory scratch;
    H5py("plain.h5 /stack '<u2' 4x6x5 attrs");
    ExpectSeries<unsigned short>(*OpenHdf5Series("plain.h5", ""), 5, 6, 4, true);
    // Chunks that straddle frames, rows and columns.
    H5py("chunked.h5 /stack '<u2' 5x9x11 chunks=2,5,7 gzip shuffle");
    ExpectSeries<unsigned short>(*OpenHdf5Series("chunked.h5", "/stack"), 11, 9, 5, false);
    H5py("single.h5 /frame '<f4' 7x3");
    ExpectSeries<float>(*OpenHdf5Series("single.h5", "frame"), 3, 7, 1, false);
    H5py("big.h5 /stack '>u2' 3x4x5 chunks=1,4,5 gzip");
    ExpectSeries<unsigned short>(*OpenHdf5Series("big.h5", ""), 5, 4, 3, false);
    H5py("bytes.h5 /stack u1 2x3x8");
    ExpectSeries<unsigned char>(*OpenHdf5Series("bytes.h5", ""), 8, 3, 2, false);

    // Darks and whites side by side, and a 1-D dataset that is no series.
    H5py("scan.h5 /exchange/data_dark '<u2' 2x4x6");
    H5py("scan.h5 /exchange/data_white '<u2' 3x4x6 chunks=1,4,6 gzip shuffle");
    H5py("scan.h5 /exchange/theta '<f4' 3");
    EXPECT_EQ((std::vector<std::string>{"/exchange/data_dark", "/exchange/data_white"}), Hdf5ImageDatasets("scan.h5"));
    const auto dark = OpenHdf5Series("scan.h5", "/exchange/data_dark");
    EXPECT_EQ("scan.h5:/exchange/data_dark", dark->Name());
    ExpectSeries<unsigned short>(*dark, 6, 4, 2, false);
    ExpectSeries<unsigned short>(*OpenHdf5Series("scan.h5", "exchange/data_white"), 6, 4, 3, false);
    EXPECT_EQ("scan.h5: has 2 datasets of 2 or 3 dimensions (/exchange/data_dark, /exchange/data_white): name "
              "the one to read",
              Failure([] { OpenHdf5Series("scan.h5", ""); }));
}

TEST(Hdf5File, WritesStacksThatH5pyReadsBesideOtherDatasets) {
    ScratchDirectory scratch;
    WriteSeries<unsigned short>(*CreateHdf5Writer("ours.h5", {}), 7, 5, 3);
    WriteOptions white;
    white.dataset = "/exchange/data_white";
    WriteSeries<float>(*CreateHdf5Writer("ours.h5", white), 4, 6, 2);
    EXPECT_EQ(0, RunPython("hdf5_interop.py", "check ours.h5 /data u2 3x5x7 attrs"));
    EXPECT_EQ(0, RunPython("hdf5_interop.py", "check ours.h5 /exchange/data_white f4 2x6x4 attrs"));
    ExpectSeries<float>(*OpenHdf5Series("ours.h5", "/exchange/data_white"), 4, 6, 2, true);
    EXPECT_EQ("ours.h5: already has a dataset '/data'", Failure([] { CreateHdf5Writer("ours.h5", {}); }));

    // A property that a frame lacks is written for no frame; the others are.
    auto writer = CreateHdf5Writer("partial.h5", {});
    const auto first = TestFrame<unsigned char>(5, 3, 0);
    first->GetProperties().get_child("image").erase("temperature");
    writer->WriteImage(*first);
    writer->WriteImage(*TestFrame<unsigned char>(5, 3, 1));
    EXPECT_EQ("partial.h5: a frame of 3 x 5 8-bit unsigned cannot join frames of 5 x 3 8-bit unsigned",
              Failure([&] { writer->WriteImage(*TestFrame<unsigned char>(3, 5, 0)); }));
    writer->Close();
    const auto partial = OpenHdf5Series("partial.h5", "");
    EXPECT_EQ(67, partial->ReadImage<unsigned char>(1)->GetProperty<int>("image.time"));
    EXPECT_FALSE(partial->ReadImage<unsigned char>(1)->GetProperties().get_optional<double>("image.temperature"));
}

TEST(Hdf5File, RefusesWhatItCannotReadInOneLine) {
    ScratchDirectory scratch;
    // Each dataset of odd.h5, as h5py writes it, and why it is refused.
    const std::tuple<std::string, const char*, std::string> refused[] = {
        {"/signed", "'<i2' 2x3x4", "holds 16-bit signed integers, not 8/16-bit unsigned integers or 32-bit floats"},
        {"/wide", "'<u4' 3x4", "holds 32-bit unsigned integers, not 8/16-bit unsigned integers or 32-bit floats"},
        {"/double", "'<f8' 3x4", "holds 64-bit floats, not 8/16-bit unsigned integers or 32-bit floats"},
        {"/cube", "'<u2' 2x2x3x4", "has 4 dimensions, not 2 (one frame) or 3 (frames x rows x columns)"},
        {"/bitshuffled", "'<u2' 2x3x4 chunks=1,3,4 filter=32008",
         "is compressed with filter 32008 (unnamed), which this HDF5 build lacks"},
        {"/huge", "'<u2' 1x100000x100000 chunks=1,100,100 empty",
         "frames of 100000 x 100000 pixels are beyond what is read (at most 65535 a side and 268435456 pixels)"}};
    for (const auto& [dataset, layout, problem] : refused) {
        H5py("odd.h5 " + dataset + " " + layout);
        const std::string name = dataset;  // a lambda cannot capture a structured binding before C++20
        EXPECT_EQ("odd.h5:" + name + ": " + problem, Failure([&] { OpenHdf5Series("odd.h5", name); }));
    }
    EXPECT_EQ("odd.h5: has no dataset '/x'", Failure([] { OpenHdf5Series("odd.h5", "x"); }));
    H5py("flat.h5 /theta '<f4' 3");
    EXPECT_EQ("flat.h5: has no dataset of 2 or 3 dimensions", Failure([] { OpenHdf5Series("flat.h5", ""); }));

    std::filesystem::copy_file("odd.h5", "cut.h5");
    std::filesystem::resize_file("cut.h5", 1500);
    EXPECT_EQ(0u, Failure([] { OpenHdf5Series("cut.h5", "/wide"); }).find("cut.h5: cannot be opened as HDF5: truncated"));
    std::ofstream("text.h5") << "no HDF5 here";
    EXPECT_EQ("text.h5: is not an HDF5 file (its first bytes do not say so)", Failure([] { OpenHdf5Series("text.h5", ""); }));
    EXPECT_EQ("text.h5: is not an HDF5 file (its first bytes do not say so)", Failure([] { CreateHdf5Writer("text.h5", {}); }));
    EXPECT_EQ("missing.h5: cannot be opened", Failure([] { OpenHdf5Series("missing.h5", ""); }));
}
