#include "interfaces/ReferenceOffsetSimple.h"

#include <boost/make_shared.hpp>

ReferenceOffsetSimple::ReferenceOffsetSimple(int width, int height, const std::string& path)
    : Reference(path), offset(boost::make_shared<ImageAcquisition<unsigned short>>(width, height)) {}

ReferenceOffsetSimple::~ReferenceOffsetSimple() = default;

ImagePtr<unsigned short> ReferenceOffsetSimple::GetOffset() {
    return offset;
}
