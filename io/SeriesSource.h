#ifndef ORVANE_IO_SERIESSOURCE_H
#define ORVANE_IO_SERIESSOURCE_H

#include "image/ImageAcquisition.h"
#include "io/ImageFileError.h"
#include "io/PixelKind.h"

#include <boost/make_shared.hpp>
#include <boost/property_tree/ptree.hpp>

#include <string>
#include <utility>

namespace orvane {
namespace io {

// A series of 2-D frames of one size and pixel kind in one image file (or one dataset
// of it), read one frame at a time: nothing holds more than the frame asked for.
// Reading frames in increasing order is the fast path of every format; any order works.
class SeriesSource {
public:
    virtual ~SeriesSource() = default;
    SeriesSource(const SeriesSource&) = delete;
    SeriesSource& operator=(const SeriesSource&) = delete;

    // The file as messages name it: its path, and for HDF5 ":<dataset>" after it.
    const std::string& Name() const { return name; }
    const FrameShape& Shape() const { return shape; }

    // Reads frame `index` (0 .. frames - 1) into `pixels`, width x height pixels of the
    // shape's kind row after row, in the host's byte order, and sets `properties` to
    // the frame's metadata ("image.time", "image.temperature" where the file carries
    // them, nothing else is promised). ImageFileError naming the file when the frame
    // cannot be read; `pixels` may then be partly written.
    virtual void ReadFrame(int index, void* pixels, boost::property_tree::ptree& properties) = 0;

    // Frame `index` as a new image of T, which must be the file's pixel kind.
    template <typename T>
    ImagePtr<T> ReadImage(int index) {
        if (PixelKindOf<T>::value != shape.pixel) {
            throw ImageFileError(name, "holds " + PixelKindName(shape.pixel) + " pixels, not " +
                                           PixelKindName(PixelKindOf<T>::value));
        }
        auto image = boost::make_shared<ImageAcquisition<T>>(shape.width, shape.height);
        ReadFrame(index, image->GetData(), image->GetProperties());
        return image;
    }

protected:
    // Checks the shape against the limits first (CheckFrameShape).
    SeriesSource(std::string name, const FrameShape& shape) : name(std::move(name)), shape(shape) {
        CheckFrameShape(this->name, shape);
    }
    // ImageFileError unless 0 <= index < frames.
    void CheckIndex(int index) const;

private:
    std::string name;
    FrameShape shape;
};

}  // namespace io
}  // namespace orvane

#endif
