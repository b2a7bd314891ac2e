#ifndef ORVANE_CORRECTION_REFERENCEFILE_H
#define ORVANE_CORRECTION_REFERENCEFILE_H

// The one persistence of the reference stores: a store is one .fxd file at its path
// holding its images (one pixel type, one size) and a property tree of store-level
// state. Frame i's property tree in the file is
//     properties    the properties of image i
// and frame 0's also carries
//     reference.kind      the store's class name, checked on load
//     reference.valid     IsValid() at save time
//     reference.settings  the store's own settings (delta times, inversion, ...)
// A store without images still gets frame 0's tree (a file of 0 frames).
//
// How a store uses it (ReferenceOffsetSimple as the example):
//
//   void ReferenceOffsetSimple::Save() {
//       if (GetPath().empty()) return;                       // in-memory store
//       orvane::detail::WriteReferenceFile<unsigned short>(*this, "ReferenceOffsetSimple",
//                                                          {offset}, {});
//   }
//   void ReferenceOffsetSimple::Load() {
//       if (GetPath().empty()) return;
//       auto content = orvane::detail::ReadReferenceFile<unsigned short>(
//           *this, "ReferenceOffsetSimple", offset->GetWidth(), offset->GetHeight(), 1);
//       // A store with settings checks content.settings here and throws a
//       // ReferenceException (through ReferenceFileError) if they do not fit.
//       orvane::detail::CommitReferenceFile(*this, content, {offset});
//       // ... then takes over its settings without any step that can fail.
//   }
//
// Read touches nothing of the store; Commit copies into the live images, whose
// ImagePtr objects stay the same, and sets the valid flag. So a load is
// all-or-nothing. A store whose image count varies (clusters) reads with count -1
// and adopts content.images, which are fresh images, instead of committing.

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

#include <boost/property_tree/ptree.hpp>

#include <string>
#include <vector>

namespace orvane {
namespace detail {

template <typename T>
struct ReferenceFileContent {
    std::vector<ImagePtr<T>> images;  // fresh images with their saved properties
    bool valid = false;
    boost::property_tree::ptree settings;
};

// Writes the store's file at store.GetPath() (which must not be empty): first to
// "<path>.part", then renamed over the path, so a failed save leaves an earlier
// file intact. All images must be non-null and of the first one's size. Any failure
// raises ReferenceException "<kind>: cannot save '<path>': <reason>".
template <typename T>
void WriteReferenceFile(const Reference& store, const std::string& kind,
                        const std::vector<ImagePtr<T>>& images,
                        const boost::property_tree::ptree& settings);

// Reads the whole file at store.GetPath() into fresh images. Checks that it is a
// store file of `kind` with pixels of type T, `count` images (any number when
// count is -1) of width x height, each with its properties node (frames without one
// were not written by a store). A missing, foreign, truncated or mismatching file
// raises ReferenceException "<kind>: cannot load '<path>': <reason>", where the
// reason of an unreadable file is the ImageFormatException's text.
template <typename T>
ReferenceFileContent<T> ReadReferenceFile(const Reference& store, const std::string& kind,
                                          int width, int height, int count);

// Copies the content's pixels and properties into the live images and sets the
// store's valid flag. Content and live images that differ in count or size raise
// ReferenceException before anything is touched; after that check nothing fails.
template <typename T>
void CommitReferenceFile(Reference& store, ReferenceFileContent<T>& content,
                         const std::vector<ImagePtr<T>>& live);

// Throws ReferenceException "<kind>: cannot <action> '<path>': <reason>".
[[noreturn]] void ReferenceFileError(const std::string& kind, const std::string& action,
                                     const std::string& path, const std::string& reason);

extern template void WriteReferenceFile<float>(const Reference&, const std::string&,
                                               const std::vector<ImagePtr<float>>&,
                                               const boost::property_tree::ptree&);
extern template void WriteReferenceFile<unsigned short>(const Reference&, const std::string&,
                                                        const std::vector<ImagePtr<unsigned short>>&,
                                                        const boost::property_tree::ptree&);
extern template void WriteReferenceFile<unsigned char>(const Reference&, const std::string&,
                                                       const std::vector<ImagePtr<unsigned char>>&,
                                                       const boost::property_tree::ptree&);
extern template ReferenceFileContent<float> ReadReferenceFile<float>(const Reference&,
                                                                     const std::string&, int,
                                                                     int, int);
extern template ReferenceFileContent<unsigned short> ReadReferenceFile<unsigned short>(
    const Reference&, const std::string&, int, int, int);
extern template ReferenceFileContent<unsigned char> ReadReferenceFile<unsigned char>(
    const Reference&, const std::string&, int, int, int);
extern template void CommitReferenceFile<float>(Reference&, ReferenceFileContent<float>&,
                                                const std::vector<ImagePtr<float>>&);
extern template void CommitReferenceFile<unsigned short>(
    Reference&, ReferenceFileContent<unsigned short>&, const std::vector<ImagePtr<unsigned short>>&);
extern template void CommitReferenceFile<unsigned char>(
    Reference&, ReferenceFileContent<unsigned char>&, const std::vector<ImagePtr<unsigned char>>&);

}  // namespace detail
}  // namespace orvane

#endif
