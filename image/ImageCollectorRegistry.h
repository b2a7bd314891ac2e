#ifndef ORVANE_IMAGE_IMAGECOLLECTORREGISTRY_H
#define ORVANE_IMAGE_IMAGECOLLECTORREGISTRY_H

#include "image/ImageCollection.h"
#include "image/ImageCollector.h"
#include "image/ImageCollectorBase.h"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <mutex>
#include <vector>

// The process-wide list of image collectors, one per format, built on first use.
// It owns the collectors for the life of the process: none is ever deleted.
// Every account that WorkImages takes (those of the calibrations) and those of
// DefectMapMerge are opened, used and closed under orvane::detail::PoolMutex(), so
// calibrations may run on several threads at once; a host that takes accounts itself
// holds that lock or stays on one thread.
class ImageCollectorRegistry {
public:
    static ImageCollectorRegistry& Instance();

    // An account with the pool of images of this width, height and pixel type.
    // With ownCollector false the account shares the format's one pool with every
    // other client of that format; with true a new collector serves it alone.
    template <typename T>
    boost::shared_ptr<ImageCollection<T>> GetCollection(int width, int height, bool ownCollector) {
        ImageCollector<T>* shared = FindCollector<T>(width, height);
        if (shared == nullptr) {
            shared = new ImageCollector<T>(width, height);
            collectors.push_back(shared);
        }
        if (!ownCollector) {
            return shared->OpenCollection();
        }
        const auto own = boost::make_shared<ImageCollector<T>>(width, height);
        auto collection = own->OpenCollection();
        collection->KeepCollectorAlive(own);
        return collection;
    }

    // The registered collector of this format, or null.
    template <typename T>
    ImageCollector<T>* FindCollector(int width, int height) const {
        for (ImageCollectorBase* collector : collectors) {
            if (collector->GetWidth() == width && collector->GetHeight() == height &&
                collector->GetPixelType() == typeid(T)) {
                return static_cast<ImageCollector<T>*>(collector);
            }
        }
        return nullptr;
    }

    const std::vector<ImageCollectorBase*>& GetCollectors() const { return collectors; }

private:
    ImageCollectorRegistry() = default;
    std::vector<ImageCollectorBase*> collectors;
};

namespace orvane {
namespace detail {

// The one lock of the registry and of every pool it holds.
std::mutex& PoolMutex();

}  // namespace detail
}  // namespace orvane

#endif
