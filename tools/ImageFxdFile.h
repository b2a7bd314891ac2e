#ifndef ORVANE_TOOLS_IMAGEFXDFILE_H
#define ORVANE_TOOLS_IMAGEFXDFILE_H

// The .fxd image file: frames of one format, optionally with a property tree each.
//
// Layout, all header fields little-endian int32 unless noted:
//
//   offset  size  field
//        0     4  magic, the bytes "OFXD"
//        4     4  version, 1
//        8     4  width
//       12     4  height
//       16     4  pixel type code: 0 float, 1 unsigned short, 2 unsigned char
//       20     4  frame count
//       24     4  extra header size: the bytes between this header and frame 0
//       28     4  properties flag: 1 when the extra header holds frame properties
//       32     4  checksum flag: 1 when the next field holds the checksum; 0 in files
//                 written before there was one, which load unchecked
//       36     4  checksum, uint32: CRC-32C (Castagnoli) of the whole file, these four
//                 bytes read as zero
//       40    88  reserved, zero
//      128     E  extra header (the property block, text; empty without properties)
//    128+E     .  frame 0, frame 1, ..., each width x height pixels row after row,
//                 in the byte order of the host (little-endian, IEEE 754 floats)
//
// A file is exactly 128 + E + frames x width x height x sizeof(pixel) bytes long.
//
// The property block is text, one line per tree node; strings are length-prefixed
// ("<bytes>:<characters>") so any key or value survives, newlines included:
//
//   frame <index> <root value>
//   <depth> <key> <value>          depth 1 for a child of the frame's root, ...
//
// e.g. a frame 0 with "image.time" = 100 reads
//   frame 0 0:
//   1 5:image 0:
//   2 4:time 3:100
// Nodes follow depth-first in the tree's own order (duplicate keys kept), at most 256
// levels below a frame's root. A frame may
// have properties without pixels (an index at or beyond the frame count).

#include "tools/LogAndThrow.h"
#include "image/ImageAcquisition.h"
#include "interfaces/ImageFileException.h"

#include <boost/make_shared.hpp>
#include <boost/property_tree/ptree.hpp>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <ios>
#include <istream>
#include <map>
#include <string>

namespace orvane {
namespace detail {

constexpr int kFxdHeaderSize = 128;
constexpr int kFxdVersion = 1;
constexpr char kFxdMagic[4] = {'O', 'F', 'X', 'D'};

template <typename T>
struct FxdPixelType;
template <>
struct FxdPixelType<float> {
    static constexpr int code = 0;
};
template <>
struct FxdPixelType<unsigned short> {
    static constexpr int code = 1;
};
template <>
struct FxdPixelType<unsigned char> {
    static constexpr int code = 2;
};

// Bytes per pixel of a type code; 0 for an unknown code.
int FxdBytesPerPixel(int pixelType);

// Where the checksum flag and the checksum stand in the header.
constexpr int kFxdChecksumFlagOffset = 32;
constexpr int kFxdChecksumOffset = 36;

// The CRC-32C of every byte of `stream` from its start, the checksum field read as
// zero. Raises std::ios_base::failure when the stream cannot be read to its end.
std::uint32_t FxdFileChecksum(std::istream& stream);

}  // namespace detail
}  // namespace orvane

// Writes one .fxd file. Order of use: SetProperties for each frame that has any,
// Open, WriteFrame for each frame (any order), Close. Failures of SetProperties,
// Open, WriteFrameData and Close raise ImageFileException, unlogged;
// WriteFrame logs its failure through LogAndThrow. The destructor completes a file
// that was opened and not closed, silently.
class ImageFxdFileOut {
public:
    explicit ImageFxdFileOut(const std::string& fileName);
    virtual ~ImageFxdFileOut();

    ImageFxdFileOut(const ImageFxdFileOut&) = delete;
    ImageFxdFileOut& operator=(const ImageFxdFileOut&) = delete;

    // Creates (or truncates) the file and writes the header and the property block;
    // withProperties false leaves out the properties given so far. withChecksum false
    // writes the file without a checksum (flag 0), as files were before there was one:
    // for frames that are streamed and never verified, where the checksum's pass over
    // the file would cost more than the write itself.
    void Open(int width, int height, int pixelType, bool withProperties, bool withChecksum = true);
    // Keeps a copy of the properties of `frame`; only before Open.
    void SetProperties(boost::property_tree::ptree& properties, int frame);

    // Writes width x height pixels of T as frame `frame`. Does not check T against
    // the pixel type given to Open. Any failure becomes ImageFileException
    // "Impossible to write image '<fileName>'", logged through LogAndThrow.
    template <typename T>
    void WriteFrame(const T* pixels, int frame) {
        try {
            const std::streamoff bytes = static_cast<std::streamoff>(width) * height *
                                         static_cast<std::streamoff>(sizeof(T));
            stream.seekp(bytes * frame + extraHeaderSize + orvane::detail::kFxdHeaderSize,
                         std::ios::beg);
            stream.write(reinterpret_cast<const char*>(pixels), bytes);
            frameCount = std::max(frameCount, frame + 1);
        } catch (...) {
            LogAndThrow<ImageFileException>("Impossible to write image '" + fileName + "'",
                                             "tools/image/ImageFxdFile", __LINE__);
        }
    }

    // WriteFrame for code outside the calibration library: the same steps, with the
    // pixel type checked against Open's and a failure raised as an unlogged
    // ImageFileException.
    void WriteFrameData(const void* pixels, int pixelType, int frame);

    // Writes the final frame count into the header, then the checksum of the whole
    // file (read back once) unless Open declined it, and closes the file. Does nothing
    // when the file is not open.
    void Close();

    const std::string& GetFileName() const { return fileName; }
    int GetFrameCount() const { return frameCount; }

private:
    void _WriteHeader();
    void _WriteChecksum();

    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t frameCount = 0;
    std::int32_t extraHeaderSize = 0;
    std::string fileName;
    std::ofstream stream;
    int pixelType = -1;
    bool withProperties = false;
    bool withChecksum = true;
    bool opened = false;
    std::map<int, boost::property_tree::ptree> properties;
};

// Reads one .fxd file. The constructor reads the header and the property block and
// checks them against the file's length; a file that cannot be opened, is truncated,
// carries another magic or version, an unknown pixel type, negative or oversized
// sizes, bytes after its last frame or an unreadable property block raises
// ImageFormatException, whose text names the file and what is wrong. Reading a frame
// of another pixel type, or a frame that does not exist, raises it as well.
class ImageFxdFileIn {
public:
    explicit ImageFxdFileIn(const std::string& fileName);
    virtual ~ImageFxdFileIn();

    ImageFxdFileIn(const ImageFxdFileIn&) = delete;
    ImageFxdFileIn& operator=(const ImageFxdFileIn&) = delete;

    int GetWidth() const { return width; }
    int GetHeight() const { return height; }
    int GetPixelType() const { return pixelType; }
    int GetFrameCount() const { return frameCount; }
    bool HasProperties() const { return withProperties; }

    // Reads the whole file and compares it with the checksum of its header: true when
    // they agree, false for a file written without a checksum; a mismatch raises
    // ImageFormatException "... is damaged: ...". Frames and properties read the same
    // with or without this check, which costs a pass over the file.
    bool VerifyChecksum();

    // The properties stored for `frame`; an empty tree when none were stored.
    const boost::property_tree::ptree& GetProperties(int frame) const;

    // Reads frame `frame` into width x height pixels at `pixels`.
    template <typename T>
    void ReadFrame(T* pixels, int frame) {
        _ReadPixels(reinterpret_cast<char*>(pixels), orvane::detail::FxdPixelType<T>::code, frame);
    }

    // Frame `frame` as a new image, with its stored properties.
    template <typename T>
    ImagePtr<T> ReadImage(int frame) {
        auto image = boost::make_shared<ImageAcquisition<T>>(width, height);
        ReadFrame(image->GetData(), frame);
        image->GetProperties() = GetProperties(frame);
        return image;
    }

    const std::string& GetFileName() const { return fileName; }

private:
    void _ReadPixels(char* target, int expectedType, int frame);
    [[noreturn]] void _Fail(const std::string& what) const;

    std::string fileName;
    std::ifstream stream;
    int width = 0;
    int height = 0;
    int pixelType = -1;
    int frameCount = 0;
    int extraHeaderSize = 0;
    bool withProperties = false;
    bool withChecksum = false;
    std::uint32_t checksum = 0;
    std::map<int, boost::property_tree::ptree> properties;
};

#endif
