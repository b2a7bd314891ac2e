#include "correction/ReferenceFile.h"

#include "interfaces/ReferenceException.h"
#include "tools/ImageFxdFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

using boost::property_tree::ptree;

namespace orvane {
namespace detail {

void ReferenceFileError(const std::string& kind, const std::string& action, const std::string& path,
                        const std::string& reason) {
    throw ReferenceException(kind + ": cannot " + action + " '" + path + "': " + reason);
}

template <typename T>
void WriteReferenceFile(const Reference& store, const std::string& kind,
                        const std::vector<ImagePtr<T>>& images, const ptree& settings) {
    const std::string& path = store.GetPath();
    if (path.empty()) {
        ReferenceFileError(kind, "save", path, "the store has no path");
    }
    for (const ImagePtr<T>& image : images) {
        if (!image) {
            ReferenceFileError(kind, "save", path, "an image is missing");
        }
        if (image->GetWidth() != images.front()->GetWidth() ||
            image->GetHeight() != images.front()->GetHeight()) {
            ReferenceFileError(kind, "save", path, "its images differ in size");
        }
    }
    const int pixelType = FxdPixelType<T>::code;
    const std::string partial = path + ".part";
    try {
        ImageFxdFileOut file(partial);
        ptree head;
        head.put("reference.kind", kind);
        head.put("reference.valid", store.IsValid());
        head.put_child("reference.settings", settings);
        file.SetProperties(head, 0);  // also when there is no image to carry it
        for (size_t i = 0; i < images.size(); ++i) {
            ptree frame = i == 0 ? head : ptree();
            frame.put_child("properties", images[i]->GetProperties());
            file.SetProperties(frame, static_cast<int>(i));
        }
        const int width = images.empty() ? 0 : images.front()->GetWidth();
        const int height = images.empty() ? 0 : images.front()->GetHeight();
        file.Open(width, height, pixelType, true);
        for (size_t i = 0; i < images.size(); ++i) {
            file.WriteFrameData(images[i]->GetData(), pixelType, static_cast<int>(i));
        }
        file.Close();
    } catch (const std::exception& e) {
        std::remove(partial.c_str());
        ReferenceFileError(kind, "save", path, e.what());
    }
    if (std::rename(partial.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(partial.c_str());
        ReferenceFileError(kind, "save", path,
                           std::string("cannot replace the file: ") + std::strerror(error));
    }
}

template <typename T>
ReferenceFileContent<T> ReadReferenceFile(const Reference& store, const std::string& kind,
                                          int width, int height, int count) {
    const std::string& path = store.GetPath();
    try {
        ImageFxdFileIn file(path);
        file.VerifyChecksum();  // a damaged file must not load as other data
        const ptree& head = file.GetProperties(0);
        const auto storedKind = head.get_optional<std::string>("reference.kind");
        if (!file.HasProperties() || !storedKind) {
            ReferenceFileError(kind, "load", path, "it is not the file of a store");
        }
        if (*storedKind != kind) {
            ReferenceFileError(kind, "load", path, "it is the file of a " + *storedKind);
        }
        if (file.GetPixelType() != FxdPixelType<T>::code) {
            ReferenceFileError(kind, "load", path,
                               "it holds pixel type code " + std::to_string(file.GetPixelType()) +
                                   ", the store needs " + std::to_string(FxdPixelType<T>::code));
        }
        const int frames = file.GetFrameCount();
        if (count >= 0 && frames != count) {
            ReferenceFileError(kind, "load", path,
                               "it holds " + std::to_string(frames) + " images, the store needs " +
                                   std::to_string(count));
        }
        if (frames > 0 && (file.GetWidth() != width || file.GetHeight() != height)) {
            ReferenceFileError(kind, "load", path,
                               "its images are " + std::to_string(file.GetWidth()) + "x" +
                                   std::to_string(file.GetHeight()) + ", the store's are " +
                                   std::to_string(width) + "x" + std::to_string(height));
        }
        const auto valid = head.get_optional<bool>("reference.valid");
        if (!valid) {
            ReferenceFileError(kind, "load", path, "its valid flag is unreadable");
        }
        ReferenceFileContent<T> content;
        content.valid = *valid;
        if (const auto settings = head.get_child_optional("reference.settings")) {
            content.settings = *settings;
        }
        // Every image of a store file has its properties node: frames without one were
        // not written by a store. Checked before each frame is read, so that a header
        // claiming millions of empty frames, which its length does not bound, is
        // refused at the first frame the property block does not hold.
        for (int i = 0; i < frames; ++i) {
            const auto properties = file.GetProperties(i).get_child_optional("properties");
            if (!properties) {
                ReferenceFileError(kind, "load", path,
                                   "its image " + std::to_string(i) + " of " + std::to_string(frames) +
                                       " has no properties");
            }
            ImagePtr<T> image = file.ReadImage<T>(i);
            image->GetProperties() = *properties;
            content.images.push_back(image);
        }
        return content;
    } catch (const ReferenceException&) {
        throw;
    } catch (const std::exception& e) {
        ReferenceFileError(kind, "load", path, e.what());
    }
}

template <typename T>
void CommitReferenceFile(Reference& store, ReferenceFileContent<T>& content,
                         const std::vector<ImagePtr<T>>& live) {
    const auto mismatch = [&store](const std::string& reason) {
        ReferenceFileError("Reference", "load", store.GetPath(), reason);
    };
    if (live.size() != content.images.size()) {
        mismatch(std::to_string(content.images.size()) + " images read for " +
                 std::to_string(live.size()) + " in the store");
    }
    for (size_t i = 0; i < live.size(); ++i) {
        if (!live[i] || live[i]->GetWidth() != content.images[i]->GetWidth() ||
            live[i]->GetHeight() != content.images[i]->GetHeight()) {
            mismatch("image " + std::to_string(i) + " does not fit the store");
        }
    }
    for (size_t i = 0; i < live.size(); ++i) {
        *live[i]->GetBuffer() = *content.images[i]->GetBuffer();
        live[i]->GetProperties().swap(content.images[i]->GetProperties());
    }
    store.SetValid(content.valid);
}

#define ORVANE_REFERENCE_FILE(T)                                                                  \
    template void WriteReferenceFile<T>(const Reference&, const std::string&,                      \
                                        const std::vector<ImagePtr<T>>&, const ptree&);            \
    template ReferenceFileContent<T> ReadReferenceFile<T>(const Reference&, const std::string&,    \
                                                          int, int, int);                          \
    template void CommitReferenceFile<T>(Reference&, ReferenceFileContent<T>&,                     \
                                         const std::vector<ImagePtr<T>>&);

ORVANE_REFERENCE_FILE(float)
ORVANE_REFERENCE_FILE(unsigned short)
ORVANE_REFERENCE_FILE(unsigned char)

#undef ORVANE_REFERENCE_FILE

}  // namespace detail
}  // namespace orvane
