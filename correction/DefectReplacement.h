#ifndef ORVANE_CORRECTION_DEFECTREPLACEMENT_H
#define ORVANE_CORRECTION_DEFECTREPLACEMENT_H

#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceDM.h"

#include <cstddef>
#include <functional>

// Replaces the flagged pixels of a float frame, in place, from the good (unflagged)
// pixels around them. A pixel whose map byte is nonzero is flagged. Only good pixels
// are ever read and only flagged ones written, so the result does not depend on the
// order pixels are visited, and running it twice changes nothing more.
//
// Each flagged pixel is classified from the horizontal run h and vertical run v of
// flagged pixels through it (their lengths |h|, |v|), then replaced by one rule:
//   row run     |h| >= minimumRun and |v| <= maximumThickness: linear interpolation
//               down the column between the good pixels just above and below the
//               vertical run, at distances a and b:
//               (float)(((double)above * b + (double)below * a) / (a + b)).
//   column run  |v| >= minimumRun and |h| <= maximumThickness: the same along the
//               row, left in place of above and right in place of below.
//               Where the run touches the frame's edge, the one side's value.
//   isolated    |h| < minimumRun and |v| < minimumRun, and a good pixel lies in the
//               3 x 3 neighbourhood (clipped to the frame): the mean of those good
//               pixels, summed in double in row-major order, divided by their count,
//               then rounded to float.
//   cluster     everything else (wide runs, crossings, the inside of groups, and run
//               pixels with no good pixel on either side): in the fixed direction
//               order up, up-right, right, down-right, down, down-left, left, up-left,
//               the nearest good pixel at most `reach` steps away, weighted 1/d with
//               d = k (straight) or k * sqrt(2) (diagonal) for step k; the sum of
//               w * value over the sum of w, in double, rounded to float.
//   unreplaced  a cluster pixel with no good pixel within reach in any of the eight
//               directions keeps its value.
// The map is scanned once, in pieces of rows spread over threads (tools/Parallel.h);
// each flagged pixel costs only local work (a column's vertical run is measured once
// per piece). Only good pixels are read and only flagged ones written, so the result
// is the same for any thread count.
class DefectReplacement {
public:
    struct Options {
        int minimumRun = 5;        // flagged pixels in a row (column) that make a line (column)
        int maximumThickness = 3;  // rows (columns) a line (column) may span; < minimumRun
        int reach = 16;            // steps searched in each direction by the cluster rule
    };

    // Pixels replaced by each rule, and those left as they were.
    struct Result {
        int replacedIsolated = 0;
        int replacedInRuns = 0;
        int replacedInClusters = 0;
        int unreplaced = 0;
    };

    // The values of the optional plane of marks; good pixels are marked 0.
    static constexpr unsigned char kMarkGood = 0;
    static constexpr unsigned char kMarkIsolated = 1;
    static constexpr unsigned char kMarkRun = 2;
    static constexpr unsigned char kMarkCluster = 3;
    static constexpr unsigned char kMarkUnreplaced = 255;

    DefectReplacement();
    // Options with minimumRun <= maximumThickness, a thickness below 1 or a reach
    // below 1 raise ReferenceException.
    explicit DefectReplacement(const Options& options);

    const Options& GetOptions() const { return options; }

    // Replaces the pixels of `frame` flagged in `map`. When `marks` is given, every
    // pixel of it is written with the mark of its rule. A null frame or map, a map or
    // marks plane of another size than the frame, or the map given as marks plane,
    // raises ReferenceException and leaves every image as it was.
    Result Replace(const ImagePtr<float>& frame, const ImagePtr<unsigned char>& map,
                   const ImagePtr<unsigned char>& marks = ImagePtr<unsigned char>()) const;
    // The same, calling done(i) once for every flagged pixel i (row-major index) when it
    // has its final value, while it is still in cache; calls come from the threads the
    // work runs on.
    Result Replace(const ImagePtr<float>& frame, const ImagePtr<unsigned char>& map,
                   const ImagePtr<unsigned char>& marks, const std::function<void(std::size_t)>& done) const;
    // The same with the live map of a defect-map store.
    Result Replace(const ImagePtr<float>& frame, ReferenceDM& store,
                   const ImagePtr<unsigned char>& marks = ImagePtr<unsigned char>()) const;

private:
    Options options;
};

#endif
