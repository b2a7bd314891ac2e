#ifndef ORVANE_CALIBRATION_CALIBRATIONLIFECYCLE_H
#define ORVANE_CALIBRATION_CALIBRATIONLIFECYCLE_H

#include "image/WorkImages.h"
#include "interfaces/CalibrationException.h"
#include "tools/LogAndThrow.h"

#include <cstdint>
#include <initializer_list>

namespace orvane {
namespace detail {

// The check every calibration operation makes first: without Init (or after
// Clear) it logs `message` and throws it as a CalibrationException.
inline void RequireInit(bool initialized, const char* message, const char* file, int line) {
    if (!initialized) {
        LogAndThrow<CalibrationException>(message, file, line);
    }
}

// The Init of a calibration whose work images start over at 0 on every Init: the
// first call takes them from the pool, every call fills them with 0. Any failure
// leaves the account closed and is logged and thrown as `failure`.
template <typename T>
void InitZeroedWorkImages(WorkImages<T>& images, int width, int height, std::uint32_t reserve,
                          std::initializer_list<ImagePtr<T>*> slots, const char* failure,
                          const char* file, int line) {
    try {
        if (!images.IsOpen()) {
            images.Open(width, height, reserve, slots);
        }
        images.FillSlots(T());
    } catch (...) {
        LogAndThrow<CalibrationException>(failure, file, line);
    }
}

}  // namespace detail
}  // namespace orvane

#endif
