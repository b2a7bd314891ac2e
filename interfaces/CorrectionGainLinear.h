#ifndef ORVANE_INTERFACES_CORRECTIONGAINLINEAR_H
#define ORVANE_INTERFACES_CORRECTIONGAINLINEAR_H

#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceGainLinear.h"

#include <boost/shared_ptr.hpp>

// Applies a stored linear gain to float images. The store is read at each Correct,
// so a correction follows later changes of the store.
class CorrectionGainLinear {
public:
    // A null store raises ReferenceException.
    explicit CorrectionGainLinear(boost::shared_ptr<ReferenceGainLinear> gain);
    virtual ~CorrectionGainLinear();

    // In place, in one pass: pixel / g with g the stored gain, or pixel * g when the
    // store holds the inverted gain, each a float operation; where the code is 0 (no
    // usable gain) the pixel becomes 0. An image missing or of another size than the
    // store raises ReferenceException.
    virtual void Correct(ImagePtr<float>& image);

private:
    boost::shared_ptr<ReferenceGainLinear> gain;
};

#endif
