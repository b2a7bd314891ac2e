#ifndef ORVANE_IMAGE_IMAGEACQUISITION_H
#define ORVANE_IMAGE_IMAGEACQUISITION_H

#include "image/ImageBuffer.h"
#include "image/ImagePixelRect.h"
#include "image/PixelStorage.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/shared_array.hpp>
#include <boost/shared_ptr.hpp>

#include <algorithm>
#include <string>
#include <utility>

// An image: width x height pixels stored row after row (pixel (x, y) is element
// y * width + x), one flat view of them and the frame's property tree.
// Images are shared through ImagePtr<T> and never copied; a new image is zero-filled.
template <typename T>
class ImageAcquisition {
public:
    ImageAcquisition(int width, int height)
        : width(width), height(height), pixelCount(width * height),
          bytesPerPixel(static_cast<int>(sizeof(T))),
          pixels(orvane::detail::AllocatePixels<T>(static_cast<size_t>(pixelCount)).release(),
                 orvane::detail::FreePixels{static_cast<size_t>(pixelCount) * sizeof(T)}),
          buffer(new ImageBuffer<T>(pixels.get(), pixelCount)) {
        Fill(T());
    }
    // An image over pixels its host already holds (a Python host's array): `hostPixels`,
    // width * height values row after row, is used as it is, neither copied nor cleared,
    // and its own deleter runs when the last user of the pixels lets go of them.
    ImageAcquisition(int width, int height, boost::shared_array<T> hostPixels)
        : width(width), height(height), pixelCount(width * height),
          bytesPerPixel(static_cast<int>(sizeof(T))), pixels(std::move(hostPixels)),
          buffer(new ImageBuffer<T>(pixels.get(), pixelCount)) {}
    virtual ~ImageAcquisition() = default;

    ImageAcquisition(const ImageAcquisition&) = delete;
    ImageAcquisition& operator=(const ImageAcquisition&) = delete;

    int GetWidth() const { return width; }
    int GetHeight() const { return height; }
    int GetPixelCount() const { return pixelCount; }
    int GetBytesPerPixel() const { return bytesPerPixel; }

    T* GetData() const { return pixels.get(); }
    // Sets every pixel to `value`; work images from the pool come back with their
    // last user's pixels and are cleared this way.
    void Fill(T value) { std::fill(pixels.get(), pixels.get() + pixelCount, value); }
    const boost::shared_array<T>& GetPixels() const { return pixels; }
    const boost::shared_ptr<ImageBuffer<T>>& GetBuffer() const { return buffer; }

    boost::property_tree::ptree& GetProperties() { return properties; }
    const boost::property_tree::ptree& GetProperties() const { return properties; }

    // Keys are paths with '.' as separator: "image.time" is child "time" of "image".
    template <typename V>
    void SetProperty(const std::string& key, const V& value) {
        properties.put(key, value);
    }
    // Fails as boost::property_tree fails (ptree_bad_path, ptree_bad_data).
    template <typename V>
    V GetProperty(const std::string& key) const {
        return properties.get<V>(key);
    }

    // The rectangle (x, y, width, height) of this image as a target of writing.
    // A rectangle that does not lie inside the image throws std::out_of_range.
    ImagePixelRect<T> GetPixelRect(int x, int y, int rectWidth, int rectHeight) const {
        orvane::detail::CheckRectangle(x, y, rectWidth, rectHeight, width, height);
        return ImagePixelRect<T>{x, y, rectWidth, width, height, rectWidth * rectHeight,
                                 pixels.get()};
    }

private:
    int width;
    int height;
    int pixelCount;
    int bytesPerPixel;
    boost::shared_array<T> pixels;
    boost::shared_ptr<ImageBuffer<T>> buffer;
    boost::property_tree::ptree properties;
};

template <typename T>
using ImagePtr = boost::shared_ptr<ImageAcquisition<T>>;

#endif
