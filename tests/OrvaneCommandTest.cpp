// The `orvane` program run as a user runs it: exit codes, one-line errors that name
// the file, and no half-written output after a failure.
#include "OrvaneRun.h"
#include "TestImages.h"
#include "io/FxdFile.h"
#include "io/ImageFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace orvane::test;

namespace {

// Each run fails with exit code 2 and one line on stderr that mentions its text, and
// leaves no output folder x nor file y.tif.
struct Refused { std::string arguments, mentions; };
void ExpectRefused(const std::vector<Refused>& cases) {
    for (const Refused& c : cases) {
        const Outcome run = Orvane(c.arguments);
        EXPECT_EQ(2, run.code) << c.arguments << "\n" << run.err;
        EXPECT_EQ(1, std::count(run.err.begin(), run.err.end(), '\n')) << c.arguments << "\n" << run.err;
        EXPECT_TRUE(Contains(run.err, "orvane: ") && Contains(run.err, c.mentions)) << c.arguments << "\n" << run.err;
        EXPECT_TRUE(EntriesOf("x").empty() && !fs::exists("y.tif")) << c.arguments;
    }
}

// Store file -> the pixels of every frame, for each .fxd store in `dir`.
std::map<std::string, std::vector<char>> StorePixels(const std::string& dir) {
    std::map<std::string, std::vector<char>> stores;
    for (const std::string& name : EntriesOf(dir)) {
        if (fs::path(name).extension() != ".fxd") continue;
        const auto source = orvane::io::OpenFxdSeries(dir + "/" + name);
        std::vector<char>& pixels = stores[name];
        for (int f = 0; f < source->Shape().frames; ++f) {
            std::vector<char> frame(std::size_t(source->Shape().width) * source->Shape().height *
                                    orvane::io::BytesPerPixel(source->Shape().pixel));
            boost::property_tree::ptree properties;
            source->ReadFrame(f, frame.data(), properties);
            pixels.insert(pixels.end(), frame.begin(), frame.end());
        }
    }
    return stores;
}

}  // namespace

// One simulated series serves every run.
TEST(OrvaneCommand, SimulateCalibrateParamsAndBadInput) {
    ScratchDirectory scratch;
    const Outcome simulate = Orvane(std::string("simulate --model '") + kSmall + "' --out frames --darks 4 --doses 3 --frames 3");
    ASSERT_EQ(0, simulate.code) << simulate.err;
    const std::string frames = (scratch.Path() / "frames").string();
    const std::string calibrate = "calibrate --model '" + std::string(kSmall) + "' --in ";
    const std::vector<std::string> written = EntriesOf(frames);
    for (const char* name : {"dark-000.fxd", "dark-003.fxd", "flat-1-000.fxd", "flat-3-002.fxd", "truth"})
        EXPECT_TRUE(std::binary_search(written.begin(), written.end(), name)) << name;
    EXPECT_EQ(4u + 3u * 3u + 1u, written.size());  // nothing else, no staging folder left

    // Every step with rows runs: the frame holds the dm-gain rows' X0/Y0-swapped area.
    const Outcome run = Orvane(calibrate + frames + " --out result");
    ASSERT_EQ(0, run.code) << run.err;
    const std::vector<std::string> files = EntriesOf("result");
    for (const char* name : {"report.html", "summary.json", "orvane.log", "offset-dynamic.fxd"})
        EXPECT_TRUE(std::binary_search(files.begin(), files.end(), name)) << name;
    for (const std::string& name : files) EXPECT_NE('.', name[0]) << name;  // no staging folder left
    // The model has no rows for some steps.
    EXPECT_TRUE(Contains(run.out, "offset-dynamic") && Contains(run.out, "skipped")) << run.out;
    EXPECT_TRUE(Contains(run.err, "s] ")) << run.err;  // progress lines with elapsed time

    // Params prints every record resolved for the key.
    const Outcome params = Orvane("params Hazel.A1.m1 --roi 0,0,1500,1560");
    ASSERT_EQ(0, params.code) << params.err;
    EXPECT_TRUE(Contains(params.out, "s_defectMapParametersSet.lookup(\"Hazel.A1.m1\")\n  X0 = 120\n  Y0 = 70\n"))
        << params.out;
    // The flag zoom row on this region: 60 + max((1500 - 1420) / 2, 3) = 100.
    EXPECT_TRUE(Contains(params.out, "s_DMFlagZoomParametersSet.get(\"Hazel.A1.m1\", ROI(0, 0, 1500, 1560))"));
    EXPECT_TRUE(Contains(params.out, "  Area = top 100, left 120, height 1420, width 1560\n"));
    std::size_t sets = 0;  // one title per set
    for (std::size_t at = params.out.find("ParametersSet."); at != std::string::npos;
         at = params.out.find("ParametersSet.", at + 1))
        ++sets;
    EXPECT_EQ(16u, sets);

    // Bad input is one line naming the file, with exit code 2 and no output.
    fs::create_directory("empty");
    fs::create_directory("truncated");
    for (const auto& entry : fs::directory_iterator(frames)) {
        if (entry.is_regular_file()) fs::copy_file(entry.path(), fs::path("truncated") / entry.path().filename());
    }
    fs::resize_file("truncated/flat-2-001.fxd", 1000);

    ExpectRefused({
        {"simulate --model Nope --out x", "Nope"},
        {"calibrate --model Nope --in " + frames + " --out x", "Nope"},
        {"calibrate --model Rowan.*.m8 --in " + frames + " --out x", "dark-000.fxd"},  // frames of another size
        {calibrate + "truncated --out x", "flat-2-001.fxd"},
        {calibrate + "empty --out x", "empty"},
        {calibrate + "missing --out x", "missing"},
        {calibrate + frames + " --out x --only dm6,nonsense", "nonsense"},
        {"calibrate --model Birch", "--in"},
        {"--threads 0 calibrate --model Birch --in " + frames + " --out x", "--threads"},
        {calibrate + frames + " --out x --only ,", "--only"},
        {"simulate --model " + std::string(kSmall) + " --out " + frames, "not empty"},  // frames beside frames
        {"params Birch --roi 1,2,3", "--roi"},
        {"params Birch --roi 1,2,3,4,", "--roi"},
        {"params Birch --roi ''", "--roi"},
        {"params Birch --size 0,0", "--size"},
        {"params Nope --size 10,10", "Nope"},
        {"frobnicate", "frobnicate"},
    });

    // A run whose steps fail says which and exits 3: here, darks without flats.
    fs::create_directory("darks");
    for (const char* name : {"dark-000.fxd", "dark-001.fxd"}) fs::copy_file(frames + "/" + name, std::string("darks/") + name);
    const Outcome darksOnly = Orvane(calibrate + "darks --out darks-result");
    EXPECT_EQ(3, darksOnly.code);
    EXPECT_TRUE(Contains(darksOnly.err, "orvane: finished, but these steps failed: gain-linear")) << darksOnly.err;
    // A folder where a file of the output goes: one line, and the target as it was.
    fs::create_directories("blocked/summary.json");
    const Outcome blocked = Orvane(calibrate + frames + " --out blocked");
    EXPECT_EQ(2, blocked.code);
    EXPECT_EQ("orvane: blocked/summary.json: is in the way: a folder where the output puts a file\n",
              blocked.err.substr(blocked.err.find("orvane: ")));
    EXPECT_EQ(std::vector<std::string>{"summary.json"}, EntriesOf("blocked"));
    // --replace replaces what a simulation folder held, whole.
    std::ofstream(frames + "/stale.fxd") << "old";
    ASSERT_EQ(0, Orvane(std::string("simulate --model '") + kSmall + "' --out frames --darks 2 --doses 1 --frames 2 --replace").code);
    EXPECT_EQ(2u + 2u + 1u, EntriesOf(frames).size());
}

// The same simulated series in every format calibrates to the same references; the
// references also come out in the other formats; bad files are one line, exit 2.
TEST(OrvaneCommand, EveryFormatOfTheSeriesGivesTheSameReferences) {
    ScratchDirectory scratch;
    const std::string simulate = "simulate --model '" + std::string(kSmall) + "' --darks 4 --doses 3 --frames 3";
    const std::string calibrate = "calibrate --model '" + std::string(kSmall) + "' --only offset-dynamic,gain-linear,dm6,dm-dark,dm-merge";
    const std::string raw = " --raw 396x396:u16le";
    std::map<std::string, std::vector<char>> expected;  // store file -> the pixels of every frame
    for (const char* format : {"fxd", "tiff", "fits", "hdf5", "raw"}) {
        SCOPED_TRACE(format);
        const std::string frames = std::string("frames-") + format, out = std::string("refs-") + format;
        ASSERT_EQ(0, Orvane(simulate + " --out " + frames + " --format " + format).code);
        // The HDF5 series is one file, series.h5, found in its folder.
        const Outcome run = Orvane(calibrate + " --in " + frames + " --out " + out + (std::string(format) == "raw" ? raw : ""));
        ASSERT_EQ(0, run.code) << run.err;
        const auto stores = StorePixels(out);
        if (expected.empty()) expected = stores;
        EXPECT_EQ(5u, stores.size());
        EXPECT_TRUE(expected == stores);
    }

    // The frames and every calibration of the model are the same on one thread and on three.
    ASSERT_EQ(0, Orvane("--threads 3 " + simulate + " --out frames-threads").code);
    for (const std::string& name : EntriesOf("frames-fxd")) {
        if (fs::is_regular_file("frames-fxd/" + name)) {
            EXPECT_EQ(ReadFile("frames-fxd/" + name), ReadFile("frames-threads/" + name)) << name;
        }
    }
    for (const char* threads : {"1", "3"}) {
        const Outcome run = Orvane(std::string("--threads ") + threads + " calibrate --model '" + kSmall +
                                   "' --in frames-fxd --out threads-" + threads);
        ASSERT_EQ(0, run.code) << run.err;
    }
    const auto oneThread = StorePixels("threads-1");
    EXPECT_GE(oneThread.size(), 5u);
    EXPECT_TRUE(oneThread == StorePixels("threads-3"));

    // The references in the other formats, read by their own libraries' readers.
    for (const char* format : {"tiff", "fits", "hdf5"}) {
        const Outcome run = Orvane(calibrate + " --in frames-fxd --out export-" + format + " --format " + format);
        ASSERT_EQ(0, run.code) << run.err;
    }
    for (const char* file : {"export-tiff/defect-map.tif", "export-tiff/gain-linear.tif", "export-fits/offset-dynamic.fits"})
        EXPECT_TRUE(fs::exists(file)) << file;
    const std::string check = std::string(ORVANE_TEST_PYTHON) +
                              " -c \"import h5py, sys; f = h5py.File('export-hdf5/references.h5', 'r'); "
                              "m = f['pixel_mask']; sys.exit(0 if m.dtype == 'uint32' and m.shape == (396, 396) "
                              "and f['gain-linear'].dtype == 'float32' and (m[()] != 0).sum() > 0 else 1)\"";
    EXPECT_EQ(0, std::system(check.c_str()));

    // convert takes a series between formats; bad files fail in one line.
    ASSERT_EQ(0, Orvane("convert frames-tiff/dark.tif dark.fits").code);
    const auto tiff = orvane::io::OpenSeries("frames-tiff/dark.tif"), fits = orvane::io::OpenSeries("dark.fits");
    EXPECT_EQ(Pixels(tiff->ReadImage<unsigned short>(3)), Pixels(fits->ReadImage<unsigned short>(3)));
    fs::create_directory("floats");
    ASSERT_EQ(0, Orvane("convert export-tiff/gain-linear.tif floats/dark.tif").code);
    ExpectRefused({
        {calibrate + " --in frames-raw --out x --raw 396x395:u16le", "dark.raw"},
        {calibrate + " --in frames-raw --out x", "--raw"},
        {calibrate + " --in floats --out x", "32-bit float"},
        {calibrate + " --in frames-hdf5/series.h5 --out x --raw 1x1:u8:z", "--raw"},
        {"convert frames-hdf5/series.h5 y.tif --dataset /nope", "/nope"},
        {"convert frames-tiff/dark.tif y.png", "y.png"},
        {"simulate --model Birch --out x --format png", "png"},
    });
}
