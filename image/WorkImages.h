#ifndef ORVANE_IMAGE_WORKIMAGES_H
#define ORVANE_IMAGE_WORKIMAGES_H

#include "image/ImageCollection.h"
#include "image/ImageCollectorRegistry.h"

#include <boost/shared_ptr.hpp>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace orvane {
namespace detail {

// The work images a calibration borrows from the shared pool of one format: an
// account opened by Open, the images taken since, and the member slots that point
// at them. Close (also run by the destructor) gives every image still held back in
// the order taken, closes the account and empties the slots, so that a calibration
// after Clear looks as one before Init. Each step that touches the pool holds
// PoolMutex(), so that work images of several threads come from one pool safely.
template <typename T>
class WorkImages {
public:
    WorkImages() = default;
    ~WorkImages() { Close(); }

    WorkImages(const WorkImages&) = delete;
    WorkImages& operator=(const WorkImages&) = delete;

    // Opens an account with the registry's pool of width x height images, announcing
    // `reserve` images held at once, then takes an image into each of `slots` in
    // order. An account still open is closed first; if a step fails, the account is
    // closed again before the exception leaves.
    void Open(int width, int height, std::uint32_t reserve,
              std::initializer_list<ImagePtr<T>*> slotsToFill = {}) {
        Close();
        try {
            {
                std::lock_guard<std::mutex> lock(PoolMutex());
                collection = ImageCollectorRegistry::Instance().GetCollection<T>(width, height, false);
                collection->Reserve(reserve);
            }
            for (ImagePtr<T>* slot : slotsToFill) {
                AcquireInto(*slot);
            }
        } catch (...) {
            Close();
            throw;
        }
    }

    bool IsOpen() const { return static_cast<bool>(collection); }

    // Sets every pixel of every image in a slot to `value`.
    void FillSlots(T value) {
        for (ImagePtr<T>* slot : slots) {
            (*slot)->Fill(value);
        }
    }

    // Takes an image into `slot`; Close gives it back and empties the slot.
    void AcquireInto(ImagePtr<T>& slot) {
        slot = Acquire();
        slots.push_back(&slot);
    }

    // Takes an image that Release or Close gives back.
    ImagePtr<T> Acquire() {
        if (!collection) {
            throw std::logic_error("WorkImages: Acquire on a closed account");
        }
        std::lock_guard<std::mutex> lock(PoolMutex());
        held.push_back(collection->Acquire());
        return held.back();
    }

    // Gives back an image taken from this account and empties `image` (a slot or
    // not). An empty pointer is ignored.
    void Release(ImagePtr<T>& image) {
        if (!image) {
            return;
        }
        const auto found = std::find(held.begin(), held.end(), image);
        if (found == held.end()) {
            throw std::logic_error("WorkImages: Release of an image not taken here");
        }
        {
            std::lock_guard<std::mutex> lock(PoolMutex());
            collection->Release(image);
        }
        held.erase(found);
        slots.erase(std::remove(slots.begin(), slots.end(), &image), slots.end());
        image.reset();
    }

    void Close() {
        if (!collection) {
            return;
        }
        {
            std::lock_guard<std::mutex> lock(PoolMutex());
            for (const ImagePtr<T>& image : held) {
                collection->Release(image);
            }
            held.clear();
            collection->Close();
            collection.reset();
        }
        for (ImagePtr<T>* slot : slots) {
            slot->reset();
        }
        slots.clear();
    }

private:
    boost::shared_ptr<ImageCollection<T>> collection;
    std::vector<ImagePtr<T>> held;
    std::vector<ImagePtr<T>*> slots;
};

}  // namespace detail
}  // namespace orvane

#endif
