#ifndef ORVANE_APPS_DETECTORSIMULATOR_H
#define ORVANE_APPS_DETECTORSIMULATOR_H

#include "apps/orvane/GroundTruth.h"
#include "apps/orvane/Progress.h"
#include "image/ImageAcquisition.h"
#include "image/ROI.h"
#include "io/ImageFileFormat.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {
namespace app {

struct SimulationOptions {
    std::string model;        // a key of KnownModels()
    int width = 0;            // frame size; 0 = the model's
    int height = 0;
    std::uint32_t seed = 1;
    int darkFrames = 10;
    int doses = 5;
    int framesPerDose = 10;
    // How the frames are written: .fxd frame files (dark-000.fxd, flat-1-000.fxd, ...);
    // TIFF, FITS or raw stacks (dark.tif, flat-1.tif, ...); or one HDF5 file
    // series.h5 with the datasets /dark, /flat-1, ...
    io::ImageFileFormat format = io::ImageFileFormat::Fxd;
    // Where defects are planted (whole rows and columns cross the frame); empty: the
    // whole frame.
    ROI plantArea{};
};

// A synthetic flat-panel detector: per-pixel dark level with temperature and time
// drift, per-pixel gain with low-frequency shading and a mild per-pixel non-linearity,
// temporal noise, planted defects of every DefectKind, echo rows, runs of defective
// pixels along rows (echo lines) and local offset changes during the darks (clusters).
// Deterministic for a given seed: frame k is the same whichever order frames are made.
class DetectorSimulator {
public:
    explicit DetectorSimulator(const SimulationOptions& options);

    const SimulationOptions& Options() const { return options; }  // frame size filled in
    const GroundTruth& Truth() const { return truth; }
    ImagePtr<unsigned short> Dark(int index) const;
    ImagePtr<unsigned short> Flat(int dose, int index) const;  // dose 1..doses
    // The same frames, noise, drift and echo included, as if no pixel had a planted
    // defect: every pixel has the dark level and response it had before its defect
    // was planted. What a defective pixel would have read, to judge its replacement.
    ImagePtr<unsigned short> DarkWithoutDefects(int index) const;
    ImagePtr<unsigned short> FlatWithoutDefects(int dose, int index) const;
    // What each pixel reads above its dark level at `dose` (1..doses), without noise:
    // its response less its quadratic loss, the echo of the row above included. What
    // a gain fitted to the panel's response is to make flat.
    ImagePtr<float> ExpectedSignal(int dose) const;
    // The temperature of dark frame `index` ("image.temperature" holds it to 0.01).
    float DarkTemperature(int index) const;
    // What a dark frame at `temperature` reads on average: each pixel's dark level with
    // its drift and, on a hot pixel, its dark current; the local offset changes of the
    // late darks left out. What an offset for that temperature is to match.
    ImagePtr<float> DarkLevel(float temperature) const;
    // The standard deviation of a dark frame's noise on a pixel without a defect.
    static float ReadNoise();

private:
    // Dark frame `index` or flat `index` of `dose`, checked (std::out_of_range).
    ImagePtr<unsigned short> DarkFrame(int index, bool defects) const;
    ImagePtr<unsigned short> FlatFrame(int dose, int index, bool defects) const;
    // Acquisition `acquisition` (darks first, then the flats dose by dose), lit with
    // the nominal signal `signal` (0 for a dark frame); without the planted defects
    // when `defects` is false.
    ImagePtr<unsigned short> Frame(int acquisition, float signal, bool defects) const;
    // The dark level and the (normalised) response of pixel p in column x, row y before
    // a defect is planted on it.
    float BaseLevel(std::size_t p, int x) const;
    float BaseResponse(std::size_t p, int x, int y) const;

    SimulationOptions options;
    GroundTruth truth;
    // Per pixel: the response before the echo (the truth gain adds it), and the
    // quadratic loss, defects included. Full frames of floats: on huge pages.
    orvane::detail::PixelVector<float> response;
    orvane::detail::PixelVector<float> curvature;
    std::vector<std::size_t> defectPixels;    // every pixel with a planted defect, in order
    std::vector<std::size_t> defectRowStart;  // row y's are defectPixels[start[y] ... start[y + 1] - 1]
    std::vector<unsigned char> echoRows;  // 1 for a row that echoes the row above
    std::vector<float> doseSignals;       // nominal signal of each dose, lowest first
    std::uint64_t nonlinearityKey = 0;    // stream of the per-pixel non-linearity
    std::uint64_t offsetKey = 0;          // streams of the fixed patterns
    std::uint64_t gainKey = 0;
    std::vector<float> column;            // column pattern of the dark level
    std::vector<float> shadeX, tilt;      // shading along a row, per column
    std::vector<float> shadeY;            // shading down a column, per row
    float responseScale = 1.0f;           // normalises the truth gain to mean 1
};

// Writes every dark and flat frame of `options` (or of `simulator`) and the ground
// truth into `dir` (created if missing), reporting a stage per series and a step per
// frame.
void WriteSimulatedSeries(const SimulationOptions& options, const std::string& dir, Progress& progress);
void WriteSimulatedSeries(const DetectorSimulator& simulator, const std::string& dir, Progress& progress);

}  // namespace app
}  // namespace orvane

#endif
