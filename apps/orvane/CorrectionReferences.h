#ifndef ORVANE_APPS_CORRECTIONREFERENCES_H
#define ORVANE_APPS_CORRECTIONREFERENCES_H

#include "correction/CorrectionChain.h"
#include "correction/TimeGridBlend.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace orvane {
namespace app {

// Which references of a calibration folder a correction applies.
struct CorrectionChoice {
    enum class Offset { Dynamic, TimeGrid };
    enum class Gain { Linear, Poly, PolyDenoised, None };
    Offset offset = Offset::Dynamic;
    Gain gain = Gain::Linear;
    bool defects = true;
};

// "dynamic", "time-grid"; "linear", "poly", "poly-denoised", "none". InputError otherwise.
CorrectionChoice::Offset ParseOffsetChoice(const std::string& name);
CorrectionChoice::Gain ParseGainChoice(const std::string& name);

// The stores that `calibrate` saved in a folder, loaded into one CorrectionChain:
// offset-dynamic.fxd or offset-time-grid.fxd; gain-linear.fxd, gain-poly.fxd or
// gain-poly-denoised.fxd; defect-map.fxd. With the time grid, the offset of a frame
// is the blend at its "image.temperature" and "image.time", recomputed only when
// those change.
class CorrectionReferences {
public:
    // Loads every store `choice` needs for frames of width x height. InputError naming
    // the file for a store that is missing, of another size, damaged (its checksum or
    // content refused by Load), or a defect map not marked valid.
    CorrectionReferences(const std::string& dir, const CorrectionChoice& choice, int width, int height);

    // The chain, its offset set for `frame` (InputError naming `frameName` when the time
    // grid needs metadata the frame lacks).
    CorrectionChain& ChainFor(const ImageAcquisition<unsigned short>& frame, const std::string& frameName);

private:
    CorrectionChain chain;
    std::unique_ptr<TimeGridBlend> grid;
    std::optional<std::pair<float, std::int64_t>> gridState;  // temperature and time of the current blend
};

}  // namespace app
}  // namespace orvane

#endif
