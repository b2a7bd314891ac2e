#ifndef ORVANE_FUZZ_HDF5RECIPE_H
#define ORVANE_FUZZ_HDF5RECIPE_H

// A structurally valid HDF5 file described by a few bytes. The HDF5 library does not
// promise to survive arbitrary bytes, so the HDF5 reader is fuzzed on files that HDF5
// itself writes from fuzz-chosen parameters: what is malformed is what our reader
// must refuse or read (ranks, types, sizes, layouts, filters, attributes).

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane {
namespace fuzz {

enum class Hdf5Element { U8, U16, U16BigEndian, F32, F32BigEndian, I8, I16, U32, I64, U64, F64, String, Enum16 };
constexpr int kHdf5Elements = 13;

enum class Hdf5AttributeType { I64, F64, F32, U16, String };
constexpr int kHdf5AttributeTypes = 5;

struct Hdf5Attribute {
    int name = 0;                      // index into Hdf5AttributeNames()
    Hdf5AttributeType type = Hdf5AttributeType::I64;
    int length = 0;                    // 0: one value per frame, 1: one more, 2: one value, 3: scalar
};

struct Hdf5Recipe {
    int dataset = 0;                   // index into Hdf5DatasetPaths()
    int naming = 0;                    // 0: the reader finds the dataset, 1: its path, 2: without the
                                       // leading '/', 3: a path the file lacks
    int rank = 3;                      // 1 to 4
    std::array<std::uint8_t, 4> dims{};   // the first `rank` are used, as Hdf5Dimension codes
    Hdf5Element element = Hdf5Element::U16;
    bool chunked = false;                 // chunked datasets may grow along every axis
    std::array<std::uint8_t, 4> chunk{};  // chunk sides, 0 read as 1; raised so that a frame
                                          // has at most 64 x 64 chunks
    bool shuffle = false;
    int gzip = 0;                      // 0: none, else the level
    std::vector<Hdf5Attribute> attributes;
    bool secondImage = false;          // a 2-D dataset "/second" beside it
    std::vector<std::uint8_t> payload; // the values written at the dataset's start
};

const std::vector<std::string>& Hdf5DatasetPaths();
const std::vector<std::string>& Hdf5AttributeNames();

// Each field from the next byte (a missing byte reads as 0), the rest the payload;
// EncodeHdf5Recipe gives bytes that decode to the recipe.
Hdf5Recipe DecodeHdf5Recipe(const std::uint8_t* data, std::size_t size);
std::vector<std::uint8_t> EncodeHdf5Recipe(const Hdf5Recipe& recipe);

// The dimension a byte stands for: itself below 200, else one of sizes that matter
// (0, the frame limits and beyond, 2^31, 2^40, ...).
std::uint64_t Hdf5Dimension(std::uint8_t code);

// Writes the file at `path`; false when HDF5 refuses the recipe (a chunk too large, a
// contiguous dataset beyond what a scratch file should hold, ...).
bool BuildHdf5File(const Hdf5Recipe& recipe, const std::string& path);

}  // namespace fuzz
}  // namespace orvane

#endif
