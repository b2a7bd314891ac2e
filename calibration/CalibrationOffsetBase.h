#ifndef ORVANE_CALIBRATION_CALIBRATIONOFFSETBASE_H
#define ORVANE_CALIBRATION_CALIBRATIONOFFSETBASE_H

#include "calibration/CalibrationBase.h"
#include "image/ImageAcquisition.h"
#include "image/WorkImages.h"

#include <boost/shared_ptr.hpp>

#include <vector>

// The averaging machine of the offset calibrations. A series runs from the first
// AccumulateOffset after a closing to the next _DivideAccumulationAndUpdate or
// DeleteAccumulation; it holds one float work image from the pool, the running sum
// (float, one pass per frame), which carries the properties of its last frame.
class CalibrationOffsetBase : public CalibrationBase {
public:
    CalibrationOffsetBase();
    ~CalibrationOffsetBase() override;

    // Opens the float account with the pool and reserves one image; once only.
    void Init() override;
    // Ends any open series and gives the account back.
    void Clear() override;

    // Adds a frame to the series: the first frame is assigned, later ones added.
    // Needs Init. A frame of another size is not refused: the pixels processed are
    // those that both images have.
    void AccumulateOffset(ImagePtr<unsigned short> image);
    // AccumulateOffset for each image in order; a new series with every image present
    // runs as one pass block by block (same sums).
    void AccumulateOffsets(const std::vector<ImagePtr<unsigned short>>& images);
    // Drops the open series unused; does nothing when none is open.
    void DeleteAccumulation();

protected:
    // Releases the work image, closes the account and ends the open series.
    void _Clear();
    // Closes the series into target: target = accumulation / frameCount + 0.5, the
    // quotient rounded to float and the sum truncated (the mean, rounded half up),
    // with the properties of the series' last frame.
    void _DivideAccumulationAndUpdate(ImagePtr<unsigned short> target);

    int width = 0;
    int height = 0;
    ImagePtr<float> accumulation;
    orvane::detail::WorkImages<float> workImages;  // holds accumulation while a series is open
    int frameCount = 0;

private:
    void _EndSeries();
};

#endif
