// The `orvane` program run as a user runs it: exit codes, one-line errors that name
// the file, and no half-written output after a failure.
#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;
using namespace orvane::test;

namespace {

struct Outcome {
    int code = -1;
    std::string out, err;  // stdout, stderr
};

// Runs the program with `arguments` (shell words) in the current directory.
Outcome Orvane(const std::string& arguments) {
    const std::string command = std::string(ORVANE_COMMAND) + " " + arguments + " >out.txt 2>err.txt";
    const int status = std::system(command.c_str());
    Outcome run;
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = ReadFile("out.txt");
    run.err = ReadFile("err.txt");
    return run;
}

const char* const kSmall = "Willow.*.m12";  // 342 x 396

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

    struct Case { std::string arguments, mentions; };
    const Case cases[] = {
        {"simulate --model Nope --out x", "Nope"},
        {"calibrate --model Nope --in " + frames + " --out x", "Nope"},
        {"calibrate --model Rowan.*.m8 --in " + frames + " --out x", "dark-000.fxd"},  // frames of another size
        {calibrate + "truncated --out x", "flat-2-001.fxd"},
        {calibrate + "empty --out x", "empty"},
        {calibrate + "missing --out x", "missing"},
        {calibrate + frames + " --out x --only dm6,nonsense", "nonsense"},
        {"calibrate --model Birch", "--in"},
        {"params Birch --roi 1,2,3", "--roi"},
        {"frobnicate", "frobnicate"},
    };
    for (const Case& c : cases) {
        const Outcome run = Orvane(c.arguments);
        EXPECT_EQ(2, run.code) << c.arguments;
        EXPECT_EQ(1, std::count(run.err.begin(), run.err.end(), '\n')) << c.arguments << "\n" << run.err;
        EXPECT_TRUE(Contains(run.err, "orvane: ") && Contains(run.err, c.mentions)) << c.arguments << "\n" << run.err;
        EXPECT_TRUE(EntriesOf("x").empty()) << c.arguments;  // nothing half-written
    }
}
