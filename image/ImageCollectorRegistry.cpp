#include "image/ImageCollectorRegistry.h"

ImageCollectorRegistry& ImageCollectorRegistry::Instance() {
    // Deliberately never destroyed: collectors must outlive every image and account,
    // including those of static objects destroyed at exit.
    static ImageCollectorRegistry* const registry = new ImageCollectorRegistry();
    return *registry;
}

std::mutex& orvane::detail::PoolMutex() {
    static std::mutex* const mutex = new std::mutex();  // outlives the registry's users, as it does
    return *mutex;
}
