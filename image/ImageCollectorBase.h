#ifndef ORVANE_IMAGE_IMAGECOLLECTORBASE_H
#define ORVANE_IMAGE_IMAGECOLLECTORBASE_H

#include <typeinfo>

// A pool of work images of one width, height and pixel type (see ImageCollector<T>).
class ImageCollectorBase {
public:
    ImageCollectorBase(int width, int height) : width(width), height(height) {}
    virtual ~ImageCollectorBase() = default;

    ImageCollectorBase(const ImageCollectorBase&) = delete;
    ImageCollectorBase& operator=(const ImageCollectorBase&) = delete;

    // Forgets every collection and image.
    virtual void Clear() = 0;
    virtual const std::type_info& GetPixelType() const = 0;

    int GetWidth() const { return width; }
    int GetHeight() const { return height; }

protected:
    int width;
    int height;
};

#endif
