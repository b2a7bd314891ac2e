#ifndef ORVANE_IMAGE_IMAGECOLLECTOR_H
#define ORVANE_IMAGE_IMAGECOLLECTOR_H

#include "image/ImageAcquisition.h"
#include "image/ImageCollectorBase.h"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <algorithm>
#include <cstdint>
#include <vector>

template <typename T>
class ImageCollection;

// The pool of work images of one format. `pool` holds every image the collector
// owns, in order of creation; `inUse` the images handed out, a subsequence of
// `pool` in pool order. Clients hold an ImageCollection<T> account with it.
//
// Recycled images are not cleaned: they keep the pixels and properties of their
// last user. Only a newly created image is zero-filled.
template <typename T>
class ImageCollector : public ImageCollectorBase {
public:
    ImageCollector(int width, int height) : ImageCollectorBase(width, height) {}

    // Opens a new client account on this collector.
    boost::shared_ptr<ImageCollection<T>> OpenCollection() {
        boost::shared_ptr<ImageCollection<T>> collection(new ImageCollection<T>(this));
        collections.push_back(collection);
        return collection;
    }

    // Grows the pool to at least `count` images.
    void EnsurePool(std::uint32_t count) {
        while (pool.size() < count) {
            pool.push_back(boost::make_shared<ImageAcquisition<T>>(width, height));
        }
    }

    // The free image nearest the start of the pool, or a new one if none is free.
    ImagePtr<T> Acquire() {
        if (pool.size() <= inUse.size()) {
            pool.push_back(boost::make_shared<ImageAcquisition<T>>(width, height));
            inUse.push_back(pool.back());
            return pool.back();
        }
        size_t i = 0;
        while (i < inUse.size() && pool[i] == inUse[i]) {
            ++i;
        }
        inUse.insert(inUse.begin() + static_cast<long>(i), pool[i]);
        return pool[i];
    }

    // Takes the image out of use; it stays in the pool. The image must be in use.
    void Release(const ImagePtr<T>& image) {
        const auto it = std::find(inUse.begin(), inUse.end(), image);
        if (it != inUse.end()) {
            inUse.erase(it);
        }
    }

    // Shrinks the pool to the largest reservation of a live collection (at least
    // `minimum`), unless more images than that are in use. Images are dropped from
    // the end of the pool; an image in use is never dropped, so inUse stays a
    // subsequence of the pool.
    void Trim(std::uint32_t minimum) {
        size_t needed = minimum;
        for (const auto& weak : collections) {
            if (const auto collection = weak.lock()) {
                needed = std::max<size_t>(needed, collection->GetReserved());
            }
        }
        if (needed < inUse.size()) {
            return;
        }
        for (size_t i = pool.size(); i > 0 && pool.size() > needed; --i) {
            if (std::find(inUse.begin(), inUse.end(), pool[i - 1]) == inUse.end()) {
                pool.erase(pool.begin() + static_cast<long>(i - 1));
            }
        }
    }

    // Forgets the collection's entry, if it is there.
    void RemoveCollection(const ImageCollection<T>* collection) {
        for (auto it = collections.begin(); it != collections.end(); ++it) {
            if (it->lock().get() == collection) {
                collections.erase(it);
                return;
            }
        }
    }

    void Clear() override {
        collections.clear();
        inUse.clear();
        pool.clear();
    }

    const std::type_info& GetPixelType() const override { return typeid(T); }

    const std::vector<boost::weak_ptr<ImageCollection<T>>>& GetCollections() const {
        return collections;
    }
    const std::vector<ImagePtr<T>>& GetPool() const { return pool; }
    const std::vector<ImagePtr<T>>& GetInUse() const { return inUse; }

private:
    std::vector<boost::weak_ptr<ImageCollection<T>>> collections;
    std::vector<ImagePtr<T>> pool;
    std::vector<ImagePtr<T>> inUse;
};

#include "image/ImageCollection.h"

#endif
