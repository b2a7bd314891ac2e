#ifndef ORVANE_FUZZ_SERIESREADING_H
#define ORVANE_FUZZ_SERIESREADING_H

#include "io/SeriesSource.h"

namespace orvane {
namespace fuzz {

// Reads the frames of `source` as a command does, each into a buffer of exactly its
// size (FrameBuffer): every frame in order, then the first again. A series too long
// or too large to read whole per input is read at its ends instead: its first frames
// in order up to kMaxFramesInOrder or kReadBudget bytes, then its last two frames and
// its first. Frames larger than kLargestFrameRead are not read at all: a header may
// claim a frame of up to 1 GiB legitimately, and filling buffers that size would
// leave little time for anything else. Also asks for the frames before the first and after the last, and reads
// through ReadImage with a pixel type of another kind: both must be refused with
// ImageFileError. A frame that exists but cannot be read (ImageFileError) does not
// end the reading: the frames after it are read all the same. A broken promise of the
// interface (a shape outside the limits, a refusal not raised) aborts.
void ReadSeries(io::SeriesSource& source);

constexpr int kMaxFramesInOrder = 16;
constexpr long long kReadBudget = 256LL << 20;
constexpr long long kLargestFrameRead = 32LL << 20;

}  // namespace fuzz
}  // namespace orvane

#endif
