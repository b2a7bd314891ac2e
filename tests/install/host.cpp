// A host that knows the library only through its installed package.
#include <orvane/OrvaneCalibration.h>

#include <boost/make_shared.hpp>

#include <iostream>
#include <vector>

int main() {
    auto store = boost::make_shared<ReferenceOffsetSimple>(4, 3);
    static const OffsetDynamicParameters parameters{0.125f};
    CalibrationOffsetDynamic calibration(parameters, store);
    calibration.Init();

    std::vector<ImagePtr<unsigned short>> frames;
    for (unsigned short value : {100, 101}) {
        auto frame = boost::make_shared<ImageAcquisition<unsigned short>>(4, 3);
        *frame->GetBuffer() = *frame->GetBuffer() + static_cast<float>(value);
        frames.push_back(frame);
    }
    calibration.CalculateOffsetReference(frames);
    calibration.Clear();

    try {
        calibration.CalculateOffsetReference({});
        return 1;
    } catch (const CalibrationException&) {
    }
    std::cout << "host: offset " << store->GetOffset()->GetData()[11] << " from 2 frames\n";
    return 0;
}
