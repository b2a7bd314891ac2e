#ifndef ORVANE_IMAGE_IMAGECOLLECTION_H
#define ORVANE_IMAGE_IMAGECOLLECTION_H

#include "image/ImageCollector.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>

// One client's account with an ImageCollector<T>: how many images the client will
// hold at once (`reserved`) and holds now (`acquired`). The client keeps the shared
// pointer for as long as it uses the pool; the collector holds only a weak one.
template <typename T>
class ImageCollection : public boost::enable_shared_from_this<ImageCollection<T>> {
public:
    explicit ImageCollection(ImageCollector<T>* collector) : collector(collector) {}
    virtual ~ImageCollection() = default;

    ImageCollection(const ImageCollection&) = delete;
    ImageCollection& operator=(const ImageCollection&) = delete;

    // Announces `count` more images held at once; the pool grows to the largest
    // reservation of any one collection, not to their sum.
    void Reserve(std::uint32_t count) {
        reserved += count;
        collector->EnsurePool(reserved);
    }

    ImagePtr<T> Acquire() {
        ++acquired;
        return collector->Acquire();
    }

    void Release(const ImagePtr<T>& image) {
        collector->Release(image);
        --acquired;
    }

    // Ends the account: drops the reservation, trims the pool and leaves the
    // collector. Images still held should be released first.
    void Close() {
        if (reserved != 0) {
            reserved = 0;
            collector->Trim(0);
        }
        collector->RemoveCollection(this);
    }

    std::uint32_t GetReserved() const { return reserved; }
    std::uint32_t GetAcquired() const { return acquired; }
    ImageCollector<T>* GetCollector() const { return collector; }

    // A collection served by a collector of its own (outside the registry) keeps
    // that collector alive.
    void KeepCollectorAlive(const boost::shared_ptr<ImageCollector<T>>& own) { ownCollector = own; }

private:
    std::uint32_t reserved = 0;
    std::uint32_t acquired = 0;
    ImageCollector<T>* collector;
    boost::shared_ptr<ImageCollector<T>> ownCollector;
};

#endif
