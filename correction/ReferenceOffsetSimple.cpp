#include "interfaces/ReferenceOffsetSimple.h"

#include "correction/ReferenceFile.h"

#include <boost/make_shared.hpp>

ReferenceOffsetSimple::ReferenceOffsetSimple(int width, int height, const std::string& path)
    : Reference(path), offset(boost::make_shared<ImageAcquisition<unsigned short>>(width, height)) {}

ReferenceOffsetSimple::~ReferenceOffsetSimple() = default;

ImagePtr<unsigned short> ReferenceOffsetSimple::GetOffset() {
    return offset;
}

void ReferenceOffsetSimple::Save() {
    if (GetPath().empty()) {
        return;
    }
    orvane::detail::WriteReferenceFile<unsigned short>(*this, "ReferenceOffsetSimple", {offset}, {});
}

void ReferenceOffsetSimple::Load() {
    if (GetPath().empty()) {
        return;
    }
    auto content = orvane::detail::ReadReferenceFile<unsigned short>(
        *this, "ReferenceOffsetSimple", offset->GetWidth(), offset->GetHeight(), 1);
    orvane::detail::CommitReferenceFile(*this, content, {offset});
}
