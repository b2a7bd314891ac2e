// Reading one 3121 x 3121 16-bit frame of a series from the page cache, in every
// format, beside a memcpy of the same bytes (counter "vs_memcpy": the frame read
// costs that many memcpys of its bytes). Then what the .fxd checksum costs: writing
// one frame file, and loading an offset store, which verifies it.

#include "interfaces/ReferenceOffsetSimple.h"
#include "io/ImageFiles.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int kSide = 3121;
constexpr int kFrames = 4;
constexpr size_t kBytes = size_t(kSide) * kSide * 2;

// Seconds of one memcpy of a frame's bytes (best of 5).
double MemcpySeconds() {
    std::vector<char> source(kBytes, 1), target(kBytes, 0);
    double best = 1e30;
    for (int run = 0; run < 5; ++run) {
        const auto start = std::chrono::steady_clock::now();
        std::memcpy(target.data(), source.data(), kBytes);
        benchmark::ClobberMemory();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    benchmark::DoNotOptimize(target.data());
    return best;
}

// A series of kFrames frames in `format`, written once into the temporary folder.
std::string SeriesFile(orvane::io::ImageFileFormat format) {
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("orvane-bench-series" + orvane::io::FormatExtension(format))).string();
    std::filesystem::remove(path);
    ImageAcquisition<unsigned short> frame(kSide, kSide);
    for (int i = 0; i < frame.GetPixelCount(); ++i) frame.GetData()[i] = static_cast<unsigned short>(i * 2654435761u >> 16);
    frame.SetProperty("image.time", 60);
    const auto writer = orvane::io::CreateSeriesWriter(path, format, {});
    for (int f = 0; f < kFrames; ++f) writer->WriteImage(frame);
    writer->Close();
    return path;
}

void ReadFrames(benchmark::State& state, orvane::io::ImageFileFormat format) {
    const std::string path = SeriesFile(format);
    orvane::io::OpenOptions options;
    options.raw = orvane::io::RawLayout{kSide, kSide, orvane::io::PixelKind::UInt16, false, 0};
    const auto source = orvane::io::OpenSeries(path, options);
    std::vector<unsigned short> pixels(size_t(kSide) * kSide);
    boost::property_tree::ptree properties;
    for (int f = 0; f < kFrames; ++f) source->ReadFrame(f, pixels.data(), properties);  // into the page cache
    int next = 0;
    for (auto _ : state) {
        source->ReadFrame(next, pixels.data(), properties);
        benchmark::DoNotOptimize(pixels.data());
        next = (next + 1) % kFrames;
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
    state.counters["vs_memcpy"] = benchmark::Counter(MemcpySeconds() * double(state.iterations()),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    std::filesystem::remove(path);
}

void WriteFxdFrame(benchmark::State& state) {
    const std::string path = (std::filesystem::temp_directory_path() / "orvane-bench-frame.fxd").string();
    ImageAcquisition<unsigned short> frame(kSide, kSide);
    for (int i = 0; i < frame.GetPixelCount(); ++i) frame.GetData()[i] = static_cast<unsigned short>(i * 2654435761u >> 16);
    for (auto _ : state) {
        const auto writer = orvane::io::CreateSeriesWriter(path, orvane::io::ImageFileFormat::Fxd, {});
        writer->WriteImage(frame);
        writer->Close();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
    std::filesystem::remove(path);
}

void LoadOffsetStore(benchmark::State& state) {
    const std::string path = (std::filesystem::temp_directory_path() / "orvane-bench-offset.fxd").string();
    ReferenceOffsetSimple store(kSide, kSide, path);
    for (int i = 0; i < kSide * kSide; ++i) store.GetOffset()->GetData()[i] = static_cast<unsigned short>(i);
    store.SetValid(true);
    store.Save();
    for (auto _ : state) store.Load();
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
    std::filesystem::remove(path);
}

}  // namespace

BENCHMARK_CAPTURE(ReadFrames, fxd, orvane::io::ImageFileFormat::Fxd)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadFrames, tiff, orvane::io::ImageFileFormat::Tiff)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadFrames, hdf5, orvane::io::ImageFileFormat::Hdf5)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadFrames, fits, orvane::io::ImageFileFormat::Fits)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadFrames, raw, orvane::io::ImageFileFormat::Raw)->Unit(benchmark::kMillisecond);

BENCHMARK(WriteFxdFrame)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadOffsetStore)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
