// The simulated panel, per pixel p and acquisition k (darks first, then the flats
// dose by dose; temperature 30 + 0.05 k degrees, time 10 k seconds):
//   dark  = offset[p] + 2 counts per degree above 30 + noise (sigma 6, x20 if noisy)
//   flat  = dark + s (1 - a s), s = dose * response[p], noise sigma sqrt(36 + s / 4)
// offset: 1000 + fixed pattern (sigma 20) + column pattern (sigma 8), hot pixels
// 2000..8000 higher with a dark current that doubles every 6 degrees, dark regions
// at 200; response: a smooth shading (about 0.9 at the edges to 1.05 in the middle)
// times a per-pixel spread of 2 %, 1..4 % for dead and cluster pixels, 30..42 % for
// weak pixels, 50 % for defective rows and columns, which also saturate 15 times
// faster than the ~3 % loss (a) of a normal pixel at 32000. Flickering pixels read
// 12000 more in the last flat of each dose. An echo row adds 3 % of the signal of the
// row above. Local offset changes of 20..160 counts stand in the last third of the
// darks.
#include "apps/orvane/DetectorSimulator.h"

#include "apps/orvane/FrameSeries.h"
#include "apps/orvane/InputError.h"
#include "apps/orvane/ModelGeometry.h"
#include "io/ImageFiles.h"
#include "tools/Parallel.h"
#include "tools/VectorClones.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace orvane {
namespace app {

namespace {

// Noise and fixed patterns come from a counter-based hash of (seed, stream, pixel),
// so any frame can be made on its own, in any order, with the same result.
constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15ull;

inline std::uint64_t Mix(std::uint64_t z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Streams of hashes; the frames use kFrameStreams + their acquisition number.
enum Stream : std::uint64_t {
    kOffsetStream = 1,
    kColumnStream,
    kGainStream,
    kNonlinearityStream,
    kDefectStream,
    kPlacementStream,
    kChangeStream,
    kFrameStreams = 16
};

std::uint64_t StreamKey(std::uint32_t seed, std::uint64_t stream) {
    return Mix(Mix(seed + kGolden) ^ (stream * 0xD1B54A32D192ED03ull));
}

inline std::uint64_t Hash(std::uint64_t key, std::size_t index) { return Mix(key + (index + 1) * kGolden); }

// Uniform in [0, 1).
inline float Uniform(std::uint64_t h) { return static_cast<float>(h >> 40) * (1.0f / 16777216.0f); }

// Approximately standard normal: the sum of four 16-bit uniforms, centred and scaled
// (tails end at +-3.46 sigma, which real read-out noise hardly exceeds either).
inline float Normal(std::uint64_t h) {
    const auto sum = static_cast<std::int32_t>((h & 0xFFFFu) + ((h >> 16) & 0xFFFFu) + ((h >> 32) & 0xFFFFu) +
                                               (h >> 48));
    return static_cast<float>(sum - 131070) * (1.7320508f / 65536.0f);
}

constexpr float kDarkLevel = 1000.0f;
constexpr float kFixedPatternSigma = 20.0f;
constexpr float kColumnPatternSigma = 8.0f;
constexpr float kReadNoiseSigma = 6.0f;
constexpr float kDarkVariance = kReadNoiseSigma * kReadNoiseSigma;
constexpr float kNoisyFactor = 20.0f;
constexpr float kCountsPerDegree = 2.0f;
constexpr float kNonlinearity = 1.0e-6f;  // relative loss per count of signal: ~3 % at 32000
constexpr float kEcho = 0.03f;
constexpr float kLineNonlinearity = 15.0f;  // defective rows and columns also saturate early
constexpr float kHotDoublingDegrees = 6.0f;  // the dark current of a hot pixel doubles every 6 degrees
constexpr float kDarkRegionLevel = 200.0f;   // dark level of a dark region, fixed pattern aside
constexpr float kFlickerJump = 12000.0f;     // what a flickering pixel adds in its bright frame

bool IsLineKind(unsigned char kind) {
    return kind >= static_cast<unsigned char>(DefectKind::Line) &&
           kind <= static_cast<unsigned char>(DefectKind::PartialColumn);
}

// The quadratic loss coefficient of pixel p: the signal s reads s * (1 - a * s).
inline float Curvature(std::uint64_t key, std::size_t p, unsigned char kind) {
    const float a = kNonlinearity * (0.9f + 0.2f * Uniform(Hash(key, p)));
    return IsLineKind(kind) ? a * kLineNonlinearity : a;
}

// The dark level a hot pixel has above its neighbours at the reference temperature.
inline float HotExcess(std::uint64_t key, std::size_t p) { return 2000.0f + 6000.0f * Uniform(Hash(key, p)); }

// A pixel's level as the frame stores it: rounded half up and clamped to 16 bits.
// Written as std::max and std::min compare, without their calls, so that loops using
// it vectorise.
inline unsigned short Counts(float level) {
    const float rounded = level + 0.5f;
    const float low = 0.0f < rounded ? rounded : 0.0f;
    return static_cast<unsigned short>(low < 65535.0f ? low : 65535.0f);
}

// Pixels first ... end - 1 of a frame lit with `signal` (0 for a dark), none of them
// defective or in an echo row: level, signal less its quadratic loss, and noise. A
// loop of its own so that it runs on vector registers; integer hashes and IEEE
// operations give the same bits at any width.
ORVANE_VECTOR_CLONES
void PlainPixels(std::size_t first, std::size_t end, float signal, const float* response, const float* curvature,
                 const float* offset, float drift, std::uint64_t noiseKey, unsigned short* out) {
    const auto store = [&](std::size_t p, float s) {
        const float level = offset[p] + drift + s;
        const float sigma = std::sqrt(kDarkVariance + 0.25f * s);
        out[p] = Counts(level + sigma * Normal(Hash(noiseKey, p)));
    };
    if (signal > 0.0f) {
        for (std::size_t p = first; p < end; ++p) {
            const float lit = signal * response[p];
            store(p, lit * (1.0f - curvature[p] * lit));
        }
    } else {
        for (std::size_t p = first; p < end; ++p) store(p, 0.0f);
    }
}

float Temperature(int acquisition) { return 30.0f + 0.05f * static_cast<float>(acquisition); }

// Deterministic choices for placing defects.
class Placer {
public:
    explicit Placer(std::uint64_t key) : state(key) {}
    int Below(int n) { return n <= 0 ? 0 : static_cast<int>(Mix(state += kGolden) % static_cast<std::uint64_t>(n)); }
    int Between(int low, int high) { return low + Below(high - low + 1); }

private:
    std::uint64_t state;
};

// Plants the defects into `kinds` (all None on entry) inside `area`, keeping them
// `border` pixels from its edges and one good pixel apart; whole rows and columns
// cross the frame.
class DefectPlanter {
public:
    DefectPlanter(unsigned char* kinds, int width, int height, const ROI& area, std::uint64_t key)
        : kinds(kinds), width(width), height(height), left(area.left), top(area.top),
          right(area.left + area.width), bottom(area.top + area.height), placer(key),
          border(std::max(1, std::min(64, std::min(area.width, area.height) / 8))) {}

    void Plant(GroundTruth& truth, std::vector<unsigned char>& echoRows) {
        const long pixels = static_cast<long>(right - left) * (bottom - top);
        const bool large = std::min(right - left, bottom - top) >= 256;
        const int wholeLines = large ? 2 : 1;
        const int partials = large ? 3 : 1;
        std::vector<int> lineRows;
        for (int i = 0; i < wholeLines; ++i) {
            const int y = Spaced(lineRows, top, bottom);
            if (y < 0) break;
            for (int x = 0; x < width; ++x) Mark(x, y, DefectKind::Line);
        }
        std::vector<int> lineColumns;
        for (int i = 0; i < wholeLines; ++i) {
            const int x = Spaced(lineColumns, left, right);
            if (x < 0) break;
            for (int y = 0; y < height; ++y) Mark(x, y, DefectKind::Column);
        }
        // Echo rows: not a defective row nor next to one, and apart from each other.
        // Nothing else is planted on them, so that a dead pixel stays dark.
        std::vector<int> echoes;
        for (int i = 0, tries = 0; i < partials && tries < 1000; ++tries) {
            const int y = placer.Between(top + border, bottom - border - 1);
            bool ok = true;
            for (int row : lineRows) ok = ok && std::abs(row - y) > 1;
            for (int row : echoes) ok = ok && std::abs(row - y) > 1;
            if (!ok) continue;
            echoes.push_back(y);
            ++i;
        }
        std::sort(echoes.begin(), echoes.end());
        for (int y : echoes) echoRows[static_cast<std::size_t>(y)] = 1;
        blockedRows = &echoRows;
        truth.echoLines = echoes;

        const int innerWidth = right - left - 2 * border, innerHeight = bottom - top - 2 * border;
        // Runs at most a quarter of the inner frame, so that small frames find room.
        for (int i = 0; i < partials; ++i) {
            const int length = std::min(placer.Between(100, 300), innerWidth / 4);
            PlaceBlock(length, 1, DefectKind::PartialLine);
        }
        for (int i = 0; i < partials; ++i) {
            const int length = std::min(placer.Between(100, 300), innerHeight / 4);
            PlaceBlock(1, length, DefectKind::PartialColumn);
        }
        // Shorter runs along one or two adjacent rows in each half of the panel, each
        // within one half of the columns: the echo-line step finds them as single and
        // double lines, those of the lower half under mirrored numbers. Only panels
        // of the echo-line tables' sizes get them: on a small one, the flagging rules
        // would take every column whole once that many rows are flagged.
        for (int lowerHalf = 0; lowerHalf < 2 && std::min(width, height) >= 1024; ++lowerHalf) {
            for (int rows = 1; rows <= 2; ++rows) {
                const int length = std::min(placer.Between(40, 90), innerWidth / 4);
                const bool rightHalf = placer.Below(2) == 1;
                const int x0 = rightHalf ? width / 2 + 1 : left + border;
                const int x1 = rightHalf ? right - border - length : width / 2 - 1 - length;
                const int y0 = lowerHalf ? height / 2 + 2 : top + border;
                const int y1 = lowerHalf ? bottom - border - rows : height / 2 - 2 - rows;
                PlaceBlockIn(length, rows, DefectKind::PartialLine, x0, x1, y0, y1);
            }
        }
        const int clusters = std::max(1, static_cast<int>(pixels / 2000000));
        for (int i = 0; i < clusters; ++i) {
            const int w = placer.Between(3, 5), h = placer.Between(3, 5);
            ROI box;
            if (PlaceBlock(w, h, DefectKind::Cluster, &box)) truth.clusters.push_back(box);
        }
        // Small blocks of low dark level, which only the darks show: offset-corrected
        // flats of them are normal. Small enough that on a small panel the flagging
        // rules, which take a row or column whole at 5 % of its pixels, do not take
        // theirs together with the rows already flagged.
        const int regions = std::max(1, static_cast<int>(pixels / 3000000));
        for (int i = 0; i < regions; ++i) PlaceBlock(8, 6, DefectKind::DarkRegion);
        PlacePoints(std::max(1L, pixels / 5000), DefectKind::Hot);
        PlacePoints(std::max(1L, pixels / 5000), DefectKind::Dead);
        PlacePoints(std::max(1L, pixels / 10000), DefectKind::Noisy);
        PlacePoints(std::max(1L, pixels / 10000), DefectKind::WeakResponse);
        PlacePoints(std::max(1L, pixels / 10000), DefectKind::Flicker);
    }

private:
    void Mark(int x, int y, DefectKind kind) {
        unsigned char& pixel = kinds[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
        if (pixel == static_cast<unsigned char>(DefectKind::None)) pixel = static_cast<unsigned char>(kind);
    }

    // A row (or column) of [first, end) inside the border, at least 2 away from the
    // ones in `taken`.
    int Spaced(std::vector<int>& taken, int first, int end) {
        for (int tries = 0; tries < 1000; ++tries) {
            const int v = placer.Between(first + border, end - border - 1);
            bool ok = true;
            for (int t : taken) ok = ok && std::abs(t - v) > 1;
            if (ok) {
                taken.push_back(v);
                return v;
            }
        }
        return -1;
    }

    // Whether the block and a one-pixel ring around it are all good pixels.
    bool Free(int x0, int y0, int w, int h) const {
        for (int y = std::max(0, y0 - 1); y <= std::min(height - 1, y0 + h); ++y) {
            if (blockedRows && (*blockedRows)[static_cast<std::size_t>(y)] && y >= y0 && y < y0 + h) return false;
            for (int x = std::max(0, x0 - 1); x <= std::min(width - 1, x0 + w); ++x) {
                if (kinds[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] != 0) return false;
            }
        }
        return true;
    }

    bool PlaceBlock(int w, int h, DefectKind kind, ROI* box = nullptr) {
        return PlaceBlockIn(w, h, kind, left + border, right - border - w, top + border, bottom - border - h, box);
    }

    // A w x h block of `kind` with its top left corner in [xLow, xHigh] x [yLow, yHigh].
    bool PlaceBlockIn(int w, int h, DefectKind kind, int xLow, int xHigh, int yLow, int yHigh, ROI* box = nullptr) {
        if (w < 1 || h < 1 || xHigh < xLow || yHigh < yLow) {
            return false;
        }
        for (int tries = 0; tries < 200; ++tries) {
            const int x0 = placer.Between(xLow, xHigh);
            const int y0 = placer.Between(yLow, yHigh);
            if (!Free(x0, y0, w, h)) continue;
            for (int y = y0; y < y0 + h; ++y) {
                for (int x = x0; x < x0 + w; ++x) Mark(x, y, kind);
            }
            if (box) {
                *box = ROI(static_cast<unsigned short>(y0), static_cast<unsigned short>(x0),
                           static_cast<unsigned short>(h), static_cast<unsigned short>(w));
            }
            return true;
        }
        return false;
    }

    void PlacePoints(long count, DefectKind kind) {
        for (long placed = 0, tries = 0; placed < count && tries < 20 * count + 100; ++tries) {
            if (PlaceBlock(1, 1, kind)) ++placed;
        }
    }

    unsigned char* kinds;
    int width;
    int height;
    int left, top, right, bottom;  // the area defects go into
    Placer placer;
    int border;
    const std::vector<unsigned char>* blockedRows = nullptr;  // rows nothing more goes on
};

// Local offset changes, alternately in the upper and the lower half of the panel, each
// apart in its columns from every other change of its half: the cluster search keeps
// only the first change it meets in a column of a half. Every fourth is weaker than
// the level at which the cluster step cuts the change (60 counts), the others stand
// well above it, yet low enough that the darks' mean does not make their pixels hot.
// All are larger than the 7 x 4 opening that cleans the change.
std::vector<OffsetChange> PlantOffsetChanges(int width, int height, std::uint64_t key) {
    std::vector<OffsetChange> changes;
    constexpr int kMargin = 32;  // beyond the columns the cluster search skips
    if (width < 2 * kMargin + 64 || height < 2 * kMargin + 64) return changes;
    const int count = std::max(4, static_cast<int>(static_cast<long>(width) * height / 1200000));
    Placer placer(key);
    std::vector<std::pair<int, int>> spans[2];  // columns taken, per half
    for (int i = 0, tries = 0; i < count && tries < 100 * count; ++tries) {
        const int lowerHalf = i % 2;
        const int w = placer.Between(8, 30), h = placer.Between(5, 14);
        const int x = placer.Between(kMargin, width - kMargin - w);
        const int y = lowerHalf ? placer.Between(height / 2 + 8, height - kMargin - h)
                                : placer.Between(kMargin, height / 2 - 8 - h);
        bool apart = true;
        for (const auto& span : spans[lowerHalf]) apart = apart && (x + w + 4 <= span.first || span.second + 4 <= x);
        if (!apart) continue;
        spans[lowerHalf].emplace_back(x, x + w);
        OffsetChange change;
        change.box = ROI(static_cast<unsigned short>(y), static_cast<unsigned short>(x), static_cast<unsigned short>(h),
                         static_cast<unsigned short>(w));
        change.amplitude = static_cast<float>(i % 4 == 3 ? placer.Between(20, 40) : placer.Between(100, 160));
        changes.push_back(change);
        ++i;
    }
    return changes;
}

std::vector<float> DoseSignals(int doses) {
    if (doses == 5) return {4000.0f, 8000.0f, 16000.0f, 24000.0f, 32000.0f};
    std::vector<float> signals;
    for (int d = 1; d <= doses; ++d) signals.push_back(32000.0f * static_cast<float>(d) / static_cast<float>(doses));
    return signals;
}

}  // namespace

DetectorSimulator::DetectorSimulator(const SimulationOptions& given) : options(given) {
    const ModelGeometry geometry = FindModel(options.model);
    if (options.width < 0 || options.height < 0) throw std::invalid_argument("negative frame size");
    if (options.width == 0) options.width = geometry.width;
    if (options.height == 0) options.height = geometry.height;
    if (options.width < 16 || options.height < 16 || options.width > 16384 || options.height > 16384) {
        throw std::invalid_argument("frame size must lie between 16 x 16 and 16384 x 16384");
    }
    if (options.darkFrames < 1 || options.doses < 0 || options.framesPerDose < 1) {
        throw std::invalid_argument("need a dark frame and a frame per dose");
    }
    const int width = options.width, height = options.height;
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);

    truth.model = options.model;
    truth.width = width;
    truth.height = height;
    truth.darkFrames = options.darkFrames;
    truth.framesPerDose = options.framesPerDose;
    truth.offset = boost::make_shared<ImageAcquisition<float>>(width, height);
    truth.gain = boost::make_shared<ImageAcquisition<float>>(width, height);
    truth.defects = boost::make_shared<ImageAcquisition<unsigned char>>(width, height);
    response.assign(count, 0.0f);
    curvature.assign(count, 0.0f);
    echoRows.assign(static_cast<std::size_t>(height), 0);
    doseSignals = DoseSignals(options.doses);
    nonlinearityKey = StreamKey(options.seed, kNonlinearityStream);

    unsigned char* kinds = truth.defects->GetData();
    const ROI whole(0, 0, static_cast<unsigned short>(height), static_cast<unsigned short>(width));
    const ROI& area = options.plantArea.width > 0 && options.plantArea.height > 0 ? options.plantArea : whole;
    if (area.left + area.width > width || area.top + area.height > height) {
        throw std::invalid_argument("the area to plant defects in leaves the frame");
    }
    DefectPlanter(kinds, width, height, area, StreamKey(options.seed, kPlacementStream)).Plant(truth, echoRows);
    truth.offsetChanges = PlantOffsetChanges(width, height, StreamKey(options.seed, kChangeStream));

    // Separable shading: a cosine bump (1.05 in the middle, 0.9 at the edges) and a tilt.
    const std::uint64_t columnKey = StreamKey(options.seed, kColumnStream);
    column.resize(static_cast<std::size_t>(width));
    shadeX.resize(column.size());
    tilt.resize(column.size());
    shadeY.resize(static_cast<std::size_t>(height));
    const float halfPi = 1.5707963f;
    for (int x = 0; x < width; ++x) {
        const float xn = (static_cast<float>(x) + 0.5f) / static_cast<float>(width) * 2.0f - 1.0f;
        column[static_cast<std::size_t>(x)] = kColumnPatternSigma * Normal(Hash(columnKey, static_cast<std::size_t>(x)));
        shadeX[static_cast<std::size_t>(x)] = std::cos(halfPi * xn);
        tilt[static_cast<std::size_t>(x)] = 0.02f * xn;
    }
    for (int y = 0; y < height; ++y) {
        const float yn = (static_cast<float>(y) + 0.5f) / static_cast<float>(height) * 2.0f - 1.0f;
        shadeY[static_cast<std::size_t>(y)] = std::cos(halfPi * yn);
    }

    offsetKey = StreamKey(options.seed, kOffsetStream);
    gainKey = StreamKey(options.seed, kGainStream);
    const std::uint64_t defectKey = StreamKey(options.seed, kDefectStream);
    float* offset = truth.offset->GetData();
    float* gain = truth.gain->GetData();
    double sum = 0.0;
    // Each pixel is a function of its own hashes: rows are made on any thread.
    orvane::ParallelFor(height, 64, [&](int firstRow, int endRow) {
        for (int y = firstRow; y < endRow; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
            for (int x = 0; x < width; ++x) {
                const std::size_t p = row + static_cast<std::size_t>(x);
                const auto kind = static_cast<DefectKind>(kinds[p]);
                float level = BaseLevel(p, x);
                float r = BaseResponse(p, x, y);
                switch (kind) {
                    case DefectKind::Hot: level += HotExcess(defectKey, p); break;
                    case DefectKind::Dead: r *= 0.01f + 0.03f * Uniform(Hash(defectKey, p)); break;
                    case DefectKind::Cluster: r *= 0.03f; break;
                    case DefectKind::DarkRegion: level += kDarkRegionLevel - kDarkLevel; break;
                    case DefectKind::WeakResponse: r *= 0.30f + 0.12f * Uniform(Hash(defectKey, p)); break;
                    case DefectKind::Line:
                    case DefectKind::Column:
                    case DefectKind::PartialLine:
                    case DefectKind::PartialColumn: r *= 0.5f; break;
                    default: break;
                }
                offset[p] = level;
                response[p] = r;
                curvature[p] = Curvature(nonlinearityKey, p, kinds[p]);
            }
        }
    });
    // The defective pixels, row after row, for the frames to redo.
    defectRowStart.assign(1, 0);
    for (std::size_t row = 0; row < count; row += static_cast<std::size_t>(width)) {
        for (std::size_t p = row; p < row + static_cast<std::size_t>(width); ++p) {
            if (kinds[p] != 0) defectPixels.push_back(p);
        }
        defectRowStart.push_back(defectPixels.size());
    }
    // The truth gain is the linear response a flat shows, echo included, with mean 1.
    for (int y = 0; y < height; ++y) {
        const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
        const float* above = echoRows[static_cast<std::size_t>(y)] ? response.data() + row - static_cast<std::size_t>(width) : nullptr;
        for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x) {
            gain[row + x] = response[row + x] + (above ? kEcho * above[x] : 0.0f);
            sum += gain[row + x];
        }
    }
    const float scale = static_cast<float>(static_cast<double>(count) / sum);
    responseScale = scale;
    double loss = 0.0;  // mean of a * r^2: the non-linear loss is signal^2 times this
    for (std::size_t p = 0; p < count; ++p) {
        gain[p] *= scale;
        response[p] *= scale;
        loss += static_cast<double>(curvature[p] * response[p] * response[p]);
    }
    loss /= static_cast<double>(count);
    for (float signal : doseSignals) {
        truth.doseLevels.push_back(static_cast<float>(signal * (1.0 - signal * loss)));
    }
}

float DetectorSimulator::BaseLevel(std::size_t p, int x) const {
    return kDarkLevel + kFixedPatternSigma * Normal(Hash(offsetKey, p)) + column[static_cast<std::size_t>(x)];
}

float DetectorSimulator::BaseResponse(std::size_t p, int x, int y) const {
    return (0.9f + 0.15f * shadeX[static_cast<std::size_t>(x)] * shadeY[static_cast<std::size_t>(y)] +
            tilt[static_cast<std::size_t>(x)]) *
           (1.0f + 0.02f * Normal(Hash(gainKey, p)));
}

ImagePtr<unsigned short> DetectorSimulator::Dark(int index) const { return DarkFrame(index, true); }

ImagePtr<unsigned short> DetectorSimulator::Flat(int dose, int index) const { return FlatFrame(dose, index, true); }

ImagePtr<unsigned short> DetectorSimulator::DarkWithoutDefects(int index) const { return DarkFrame(index, false); }

ImagePtr<unsigned short> DetectorSimulator::FlatWithoutDefects(int dose, int index) const {
    return FlatFrame(dose, index, false);
}

float DetectorSimulator::DarkTemperature(int index) const {
    if (index < 0 || index >= options.darkFrames) throw std::out_of_range("no dark frame " + std::to_string(index));
    return Temperature(index);
}

ImagePtr<float> DetectorSimulator::DarkLevel(float temperature) const {
    auto image = boost::make_shared<ImageAcquisition<float>>(options.width, options.height);
    const float drift = kCountsPerDegree * (temperature - Temperature(0));
    const float hotGrowth = std::exp2((temperature - Temperature(0)) / kHotDoublingDegrees) - 1.0f;
    const std::uint64_t defectKey = StreamKey(options.seed, kDefectStream);
    const float* offset = truth.offset->GetData();
    float* out = image->GetData();
    for (std::size_t p = 0; p < static_cast<std::size_t>(image->GetPixelCount()); ++p) {
        out[p] = offset[p] + drift;
    }
    for (std::size_t p : defectPixels) {
        if (truth.defects->GetData()[p] == static_cast<unsigned char>(DefectKind::Hot)) {
            out[p] += hotGrowth * HotExcess(defectKey, p);
        }
    }
    return image;
}

float DetectorSimulator::ReadNoise() { return kReadNoiseSigma; }

ImagePtr<float> DetectorSimulator::ExpectedSignal(int dose) const {
    if (dose < 1 || dose > options.doses) throw std::out_of_range("no dose " + std::to_string(dose));
    const int width = options.width, height = options.height;
    auto image = boost::make_shared<ImageAcquisition<float>>(width, height);
    const float signal = doseSignals[static_cast<std::size_t>(dose - 1)];
    const float* r = response.data();
    const float* curve = curvature.data();
    float* out = image->GetData();
    const auto lit = [&](std::size_t p) {
        const float s = signal * r[p];
        return s * (1.0f - curve[p] * s);
    };
    orvane::ParallelFor(height, 32, [&](int firstRow, int endRow) {
        for (int y = firstRow; y < endRow; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
            const bool echo = echoRows[static_cast<std::size_t>(y)] != 0;
            for (std::size_t p = row; p < row + static_cast<std::size_t>(width); ++p) {
                out[p] = lit(p) + (echo ? kEcho * lit(p - static_cast<std::size_t>(width)) : 0.0f);
            }
        }
    });
    return image;
}

ImagePtr<unsigned short> DetectorSimulator::DarkFrame(int index, bool defects) const {
    if (index < 0 || index >= options.darkFrames) throw std::out_of_range("no dark frame " + std::to_string(index));
    return Frame(index, 0.0f, defects);
}

ImagePtr<unsigned short> DetectorSimulator::FlatFrame(int dose, int index, bool defects) const {
    if (dose < 1 || dose > options.doses || index < 0 || index >= options.framesPerDose) {
        throw std::out_of_range("no flat frame " + std::to_string(index) + " of dose " + std::to_string(dose));
    }
    return Frame(options.darkFrames + (dose - 1) * options.framesPerDose + index,
                 doseSignals[static_cast<std::size_t>(dose - 1)], defects);
}

ImagePtr<unsigned short> DetectorSimulator::Frame(int acquisition, float signal, bool defects) const {
    const int width = options.width, height = options.height;
    auto image = boost::make_shared<ImageAcquisition<unsigned short>>(width, height);
    const float temperature = Temperature(acquisition);
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", static_cast<double>(temperature));
    image->SetProperty("image.temperature", std::string(text));
    image->SetProperty("image.time", static_cast<long long>(10) * acquisition);

    const float drift = kCountsPerDegree * (temperature - Temperature(0));
    const float hotGrowth = std::exp2((temperature - Temperature(0)) / kHotDoublingDegrees) - 1.0f;
    const std::uint64_t defectKey = StreamKey(options.seed, kDefectStream);
    const std::uint64_t noiseKey = StreamKey(options.seed, kFrameStreams + static_cast<std::uint64_t>(acquisition));
    const std::uint64_t curveKey = nonlinearityKey;
    const float* offset = truth.offset->GetData();
    const unsigned char* kinds = truth.defects->GetData();
    const float* r = response.data();
    const float* curve = curvature.data();
    unsigned short* out = image->GetData();
    // Flickering pixels flare up in the last frame of each dose.
    const bool flare =
        signal > 0.0f && (acquisition - options.darkFrames) % options.framesPerDose == options.framesPerDose - 1;
    // The offset changes stand in the last third of the darks only.
    const bool changed = acquisition >= options.darkFrames * 2 / 3 && acquisition < options.darkFrames;
    const auto change = [&](int x, int y) {
        float sum = 0.0f;
        if (!changed) return sum;
        for (const OffsetChange& c : truth.offsetChanges) {
            if (x >= c.box.left && x < c.box.left + c.box.width && y >= c.box.top && y < c.box.top + c.box.height) {
                sum += c.amplitude;
            }
        }
        return sum;
    };
    // Whether pixel p renders as it was before its defect was planted.
    const auto clean = [defects, kinds](std::size_t p) { return !defects && kinds[p] != 0; };
    // The signal of pixel p (column x, row y): the response, less a small per-pixel
    // quadratic loss.
    auto lit = [&](std::size_t p, int x, int y) {
        const bool base = clean(p);
        const float s = signal * (base ? BaseResponse(p, x, y) * responseScale : r[p]);
        return s * (1.0f - (base ? Curvature(curveKey, p, 0) : curve[p]) * s);
    };
    // Pixel p in column x, row y, whatever it is.
    const auto full = [&](std::size_t p, int x, int y) {
        float s = 0.0f;
        if (signal > 0.0f) {
            s = lit(p, x, y);
            if (echoRows[static_cast<std::size_t>(y)] != 0) {
                s += kEcho * lit(p - static_cast<std::size_t>(width), x, y - 1);
            }
        }
        const bool base = clean(p);
        float level = (base ? BaseLevel(p, x) : offset[p]) + drift + change(x, y) + s;
        float sigma = std::sqrt(kDarkVariance + 0.25f * s);
        const unsigned char kind = base ? 0 : kinds[p];
        if (kind == static_cast<unsigned char>(DefectKind::Noisy)) {
            sigma *= kNoisyFactor;
        } else if (kind == static_cast<unsigned char>(DefectKind::Hot)) {
            level += hotGrowth * HotExcess(defectKey, p);
        } else if (kind == static_cast<unsigned char>(DefectKind::Flicker) && flare) {
            level += kFlickerJump;
        }
        out[p] = Counts(level + sigma * Normal(Hash(noiseKey, p)));
    };
    // Every pixel is a function of its own hashes: rows are made on any thread. Plain
    // pixels, nearly all of them, take a loop without branches; the others are redone
    // in full after it.
    orvane::ParallelFor(height, 32, [&](int firstRow, int endRow) {
        for (int y = firstRow; y < endRow; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
            const bool echo = signal > 0.0f && echoRows[static_cast<std::size_t>(y)] != 0;
            if (echo) {
                for (int x = 0; x < width; ++x) full(row + static_cast<std::size_t>(x), x, y);
            } else {
                PlainPixels(row, row + static_cast<std::size_t>(width), signal, r, curve, offset, drift, noiseKey,
                            out);
                const std::size_t last = defectRowStart[static_cast<std::size_t>(y) + 1];
                for (std::size_t i = defectRowStart[static_cast<std::size_t>(y)]; i < last; ++i) {
                    full(defectPixels[i], static_cast<int>(defectPixels[i] - row), y);
                }
            }
            for (const OffsetChange& c : truth.offsetChanges) {
                if (!changed || y < c.box.top || y >= c.box.top + c.box.height) continue;
                for (int x = c.box.left; x < c.box.left + c.box.width; ++x) full(row + static_cast<std::size_t>(x), x, y);
            }
        }
    });
    return image;
}

namespace {

// Writes a series of frames through one writer; InputError naming the file on failure.
class SeriesOutput {
public:
    SeriesOutput(const std::string& path, io::ImageFileFormat format, const std::string& dataset, int frames)
        : path(path) {
        io::WriteOptions options;
        options.dataset = dataset;
        options.expectedFrames = frames;
        writer = Guard([&] { return io::CreateSeriesWriter(path, format, options); });
    }
    void Write(const ImageAcquisition<unsigned short>& frame) { Guard([&] { writer->WriteImage(frame); return 0; }); }
    void Close() { Guard([&] { writer->Close(); return 0; }); }

private:
    template <typename Call>
    auto Guard(Call call) -> decltype(call()) {
        try {
            return call();
        } catch (const io::ImageFileError& e) {
            throw InputError(e.File(), e.Problem());
        }
    }
    std::string path;
    std::unique_ptr<io::SeriesWriter> writer;
};

}  // namespace

void WriteSimulatedSeries(const SimulationOptions& options, const std::string& dir, Progress& progress) {
    WriteSimulatedSeries(DetectorSimulator(options), dir, progress);
}

void WriteSimulatedSeries(const DetectorSimulator& simulator, const std::string& dir, Progress& progress) {
    const SimulationOptions& options = simulator.Options();
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (error) throw InputError(dir, "cannot be created: " + error.message());
    const GroundTruth& truth = simulator.Truth();
    const std::string size = std::to_string(truth.width) + " x " + std::to_string(truth.height);
    const std::string extension = io::FormatExtension(options.format);
    const bool frameFiles = options.format == io::ImageFileFormat::Fxd;
    const bool oneFile = options.format == io::ImageFileFormat::Hdf5;
    // One output per series; frame files get one per frame.
    const auto output = [&](const std::string& stack, const std::string& frameFile, int frames) {
        if (oneFile) return SeriesOutput(dir + "/series" + extension, options.format, "/" + stack, frames);
        return SeriesOutput(dir + "/" + (frameFiles ? frameFile : stack + extension), options.format, "", frames);
    };
    // Frames in acquisition order; the next one is made while this one is written.
    const int total = options.darkFrames + options.doses * options.framesPerDose;
    const auto make = [&simulator, &options](int k) {
        if (k < options.darkFrames) return simulator.Dark(k);
        const int flat = k - options.darkFrames;
        return simulator.Flat(flat / options.framesPerDose + 1, flat % options.framesPerDose);
    };
    int made = 0;
    std::future<ImagePtr<unsigned short>> pending = std::async(std::launch::async, make, made);
    const auto next = [&] {
        ImagePtr<unsigned short> frame = pending.get();
        if (++made < total) pending = std::async(std::launch::async, make, made);
        return frame;
    };

    progress.Stage("simulating " + std::to_string(options.darkFrames) + " dark frames of " + size);
    std::unique_ptr<SeriesOutput> out;
    for (int i = 0; i < options.darkFrames; ++i) {
        if (frameFiles || i == 0) out = std::make_unique<SeriesOutput>(output("dark", DarkFileName(i), options.darkFrames));
        out->Write(*next());
        if (frameFiles || i + 1 == options.darkFrames) out->Close();
        progress.Step(i + 1, options.darkFrames);
    }
    for (int dose = 1; dose <= options.doses; ++dose) {
        progress.Stage("simulating " + std::to_string(options.framesPerDose) + " flat frames of dose " +
                       std::to_string(dose) + " (signal " +
                       std::to_string(static_cast<int>(truth.doseLevels[static_cast<std::size_t>(dose - 1)])) + ")");
        const std::string stack = "flat-" + std::to_string(dose);
        for (int i = 0; i < options.framesPerDose; ++i) {
            if (frameFiles || i == 0) {
                out = std::make_unique<SeriesOutput>(output(stack, FlatFileName(dose, i), options.framesPerDose));
            }
            out->Write(*next());
            if (frameFiles || i + 1 == options.framesPerDose) out->Close();
            progress.Step(i + 1, options.framesPerDose);
        }
    }
    progress.Stage("writing the ground truth");
    SaveGroundTruth(truth, dir);
}

}  // namespace app
}  // namespace orvane
