#include "fuzz/Hdf5Recipe.h"

#include <hdf5.h>

#include <algorithm>
#include <utility>

namespace orvane {
namespace fuzz {

namespace {

constexpr std::uint64_t kLargestContiguousBytes = std::uint64_t(64) << 20;
constexpr std::uint64_t kLargestAttributeValues = std::uint64_t(1) << 20;
constexpr std::uint64_t kLargestWrite = 4096;  // values written at the dataset's start
constexpr std::uint64_t kMostChunksPerSide = 64;
constexpr std::uint64_t kMostValues = std::uint64_t(1) << 62;
constexpr std::uint64_t kLargestChunkBytes = std::uint64_t(16) << 20;  // HDF5 holds a whole chunk in memory

// Closes an HDF5 identifier when it goes.
class Id {
public:
    explicit Id(hid_t id = H5I_INVALID_HID) : id(id) {}
    ~Id() {
        if (id < 0) return;
        switch (H5Iget_type(id)) {
            case H5I_FILE: H5Fclose(id); break;
            case H5I_DATASET: H5Dclose(id); break;
            case H5I_DATASPACE: H5Sclose(id); break;
            case H5I_DATATYPE: H5Tclose(id); break;
            case H5I_ATTR: H5Aclose(id); break;
            case H5I_GENPROP_LST: H5Pclose(id); break;
            default: break;
        }
    }
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;
    hid_t get() const { return id; }
    explicit operator bool() const { return id >= 0; }

private:
    hid_t id;
};

std::uint64_t SaturatingProduct(std::uint64_t a, std::uint64_t b) {
    if (a == 0 || b == 0) return 0;
    return a > ~std::uint64_t(0) / b ? ~std::uint64_t(0) : a * b;
}

class ByteCursor {
public:
    ByteCursor(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}
    std::uint8_t Next() { return at < size ? data[at++] : 0; }
    std::vector<std::uint8_t> Rest() const {
        return at < size ? std::vector<std::uint8_t>(data + at, data + size) : std::vector<std::uint8_t>();
    }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t at = 0;
};

// The file type of an element; the caller closes it.
hid_t ElementType(Hdf5Element element) {
    switch (element) {
        case Hdf5Element::U8: return H5Tcopy(H5T_STD_U8LE);
        case Hdf5Element::U16: return H5Tcopy(H5T_STD_U16LE);
        case Hdf5Element::U16BigEndian: return H5Tcopy(H5T_STD_U16BE);
        case Hdf5Element::F32: return H5Tcopy(H5T_IEEE_F32LE);
        case Hdf5Element::F32BigEndian: return H5Tcopy(H5T_IEEE_F32BE);
        case Hdf5Element::I8: return H5Tcopy(H5T_STD_I8LE);
        case Hdf5Element::I16: return H5Tcopy(H5T_STD_I16LE);
        case Hdf5Element::U32: return H5Tcopy(H5T_STD_U32LE);
        case Hdf5Element::I64: return H5Tcopy(H5T_STD_I64LE);
        case Hdf5Element::U64: return H5Tcopy(H5T_STD_U64LE);
        case Hdf5Element::F64: return H5Tcopy(H5T_IEEE_F64LE);
        case Hdf5Element::String: {
            const hid_t type = H5Tcopy(H5T_C_S1);
            H5Tset_size(type, 8);
            return type;
        }
        case Hdf5Element::Enum16: {
            const hid_t type = H5Tenum_create(H5T_STD_U16LE);
            for (unsigned short value = 0; value < 4; ++value) {
                const char name[] = {char('A' + value), '\0'};
                H5Tenum_insert(type, name, &value);
            }
            return type;
        }
    }
    return H5Tcopy(H5T_STD_U8LE);
}

hid_t AttributeType(Hdf5AttributeType type) {
    switch (type) {
        case Hdf5AttributeType::I64: return H5Tcopy(H5T_STD_I64LE);
        case Hdf5AttributeType::F64: return H5Tcopy(H5T_IEEE_F64LE);
        case Hdf5AttributeType::F32: return H5Tcopy(H5T_IEEE_F32LE);
        case Hdf5AttributeType::U16: return H5Tcopy(H5T_STD_U16LE);
        case Hdf5AttributeType::String: {
            const hid_t string = H5Tcopy(H5T_C_S1);
            H5Tset_size(string, 4);
            return string;
        }
    }
    return H5Tcopy(H5T_STD_I64LE);
}

// `count` values of `bytes` bytes each, the payload repeated (zeros without one).
std::vector<std::uint8_t> Values(const std::vector<std::uint8_t>& payload, std::uint64_t count, std::size_t bytes) {
    std::vector<std::uint8_t> values(std::size_t(count) * bytes);
    for (std::size_t i = 0; i < values.size() && !payload.empty(); ++i) values[i] = payload[i % payload.size()];
    return values;
}

bool WriteAttribute(hid_t dataset, const Hdf5Attribute& attribute, std::uint64_t frames,
                    const std::vector<std::uint8_t>& payload) {
    const std::uint64_t count = attribute.length == 0 ? frames : attribute.length == 1 ? frames + 1 : 1;
    if (count > kLargestAttributeValues) return false;
    const hsize_t dims[1] = {count};
    const Id space(attribute.length == 3 ? H5Screate(H5S_SCALAR) : H5Screate_simple(1, dims, nullptr));
    const Id type(AttributeType(attribute.type));
    const std::string& name = Hdf5AttributeNames()[std::size_t(attribute.name) % Hdf5AttributeNames().size()];
    if (H5Aexists(dataset, name.c_str()) > 0) return true;
    const Id created(H5Acreate2(dataset, name.c_str(), type.get(), space.get(), H5P_DEFAULT, H5P_DEFAULT));
    if (!created) return false;
    const std::vector<std::uint8_t> values = Values(payload, count, H5Tget_size(type.get()));
    return H5Awrite(created.get(), type.get(), values.data()) >= 0;
}

}  // namespace

const std::vector<std::string>& Hdf5DatasetPaths() {
    static const std::vector<std::string> paths{"/data", "/entry/instrument/detector/data", "/exchange/data_white",
                                                "/dark", "/x", "/with space/\xc3\xa9t\xc3\xa9"};
    return paths;
}

const std::vector<std::string>& Hdf5AttributeNames() {
    static const std::vector<std::string> names{"image.time", "image.temperature", "other"};
    return names;
}

std::uint64_t Hdf5Dimension(std::uint8_t code) {
    static const std::uint64_t special[] = {255,
                                            256,
                                            4096,
                                            65535,
                                            65536,
                                            70000,
                                            std::uint64_t(1) << 20,
                                            (std::uint64_t(1) << 28) + 1,
                                            (std::uint64_t(1) << 31) - 1,
                                            std::uint64_t(1) << 31,
                                            std::uint64_t(1) << 32,
                                            (std::uint64_t(1) << 32) + 1,
                                            std::uint64_t(1) << 40,
                                            std::uint64_t(1) << 62};
    if (code < 200) return code;
    return special[(code - 200) % (sizeof special / sizeof special[0])];
}

Hdf5Recipe DecodeHdf5Recipe(const std::uint8_t* data, std::size_t size) {
    ByteCursor in(data, size);
    Hdf5Recipe recipe;
    recipe.dataset = in.Next() % int(Hdf5DatasetPaths().size());
    recipe.naming = in.Next() % 4;
    recipe.rank = 1 + in.Next() % 4;
    for (auto& dim : recipe.dims) dim = in.Next();
    recipe.element = Hdf5Element(in.Next() % kHdf5Elements);
    const std::uint8_t storage = in.Next();
    recipe.chunked = (storage & 1) != 0;
    recipe.shuffle = (storage & 2) != 0;
    recipe.gzip = (storage >> 2) % 10;
    recipe.secondImage = (storage & 0x80) != 0;
    for (auto& side : recipe.chunk) side = in.Next();
    const int attributes = in.Next() % 4;
    for (int i = 0; i < attributes; ++i) {
        const std::uint8_t code = in.Next();
        recipe.attributes.push_back(
            Hdf5Attribute{code % 3, Hdf5AttributeType((code / 3) % kHdf5AttributeTypes), (code / 15) % 4});
    }
    recipe.payload = in.Rest();
    return recipe;
}

std::vector<std::uint8_t> EncodeHdf5Recipe(const Hdf5Recipe& recipe) {
    std::vector<std::uint8_t> bytes{std::uint8_t(recipe.dataset), std::uint8_t(recipe.naming),
                                    std::uint8_t(recipe.rank - 1)};
    bytes.insert(bytes.end(), recipe.dims.begin(), recipe.dims.end());
    bytes.push_back(std::uint8_t(recipe.element));
    bytes.push_back(std::uint8_t((recipe.chunked ? 1 : 0) | (recipe.shuffle ? 2 : 0) | (recipe.gzip << 2) |
                                 (recipe.secondImage ? 0x80 : 0)));
    bytes.insert(bytes.end(), recipe.chunk.begin(), recipe.chunk.end());
    bytes.push_back(std::uint8_t(recipe.attributes.size()));
    for (const Hdf5Attribute& attribute : recipe.attributes) {
        bytes.push_back(std::uint8_t(attribute.name + 3 * int(attribute.type) + 15 * attribute.length));
    }
    bytes.insert(bytes.end(), recipe.payload.begin(), recipe.payload.end());
    return bytes;
}

bool BuildHdf5File(const Hdf5Recipe& recipe, const std::string& path) {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    const int rank = std::clamp(recipe.rank, 1, 4);
    hsize_t dims[4], most[4], chunk[4], start[4] = {0, 0, 0, 0}, count[4];
    std::uint64_t values = 1;
    for (int i = 0; i < rank; ++i) {
        dims[i] = Hdf5Dimension(recipe.dims[size_t(i)]);
        most[i] = recipe.chunked ? H5S_UNLIMITED : dims[i];
        chunk[i] = std::max<hsize_t>(1, recipe.chunk[size_t(i)]);
        if (i >= rank - 2) chunk[i] = std::max<hsize_t>(chunk[i], (dims[i] + kMostChunksPerSide - 1) / kMostChunksPerSide);
        values = SaturatingProduct(values, dims[i]);
    }
    const Id type(ElementType(recipe.element));
    if (!recipe.chunked && values > kLargestContiguousBytes / H5Tget_size(type.get())) return false;
    // HDF5 (1.10) reads from address 0 while writing a chunked dataset of more values
    // than 64 bits count: its contract ends there, and so do the recipes.
    if (values >= kMostValues) return false;
    if (recipe.chunked) {
        std::uint64_t chunkValues = 1;
        for (int i = 0; i < rank; ++i) chunkValues = SaturatingProduct(chunkValues, chunk[i]);
        if (chunkValues > kLargestChunkBytes / H5Tget_size(type.get())) return false;
    }

    const Id access(H5Pcreate(H5P_FILE_ACCESS));
    H5Pset_libver_bounds(access.get(), H5F_LIBVER_V18, H5F_LIBVER_LATEST);
    const Id file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access.get()));
    const Id links(H5Pcreate(H5P_LINK_CREATE));
    const Id create(H5Pcreate(H5P_DATASET_CREATE));
    const Id space(H5Screate_simple(rank, dims, most));
    if (!file || !links || !create || !space || H5Pset_create_intermediate_group(links.get(), 1) < 0) return false;
    if (recipe.chunked) {
        if (H5Pset_chunk(create.get(), rank, chunk) < 0) return false;
        if (recipe.shuffle && H5Pset_shuffle(create.get()) < 0) return false;
        if (recipe.gzip > 0 && H5Pset_deflate(create.get(), unsigned(recipe.gzip)) < 0) return false;
    }
    const std::string& name = Hdf5DatasetPaths()[std::size_t(recipe.dataset) % Hdf5DatasetPaths().size()];
    const Id dataset(H5Dcreate2(file.get(), name.c_str(), type.get(), space.get(), links.get(), create.get(),
                                H5P_DEFAULT));
    if (!dataset) return false;

    // The payload at the dataset's start: a block of at most kLargestWrite values.
    if (values > 0) {
        std::uint64_t block = 1;
        for (int i = rank - 1; i >= 0; --i) {
            count[i] = std::max<hsize_t>(1, std::min<hsize_t>(dims[i], kLargestWrite / block));
            block *= count[i];
        }
        const Id memory(H5Screate_simple(rank, count, nullptr));
        const Id target(H5Dget_space(dataset.get()));
        const std::vector<std::uint8_t> data = Values(recipe.payload, block, H5Tget_size(type.get()));
        if (!memory || !target ||
            H5Sselect_hyperslab(target.get(), H5S_SELECT_SET, start, nullptr, count, nullptr) < 0 ||
            H5Dwrite(dataset.get(), type.get(), memory.get(), target.get(), H5P_DEFAULT, data.data()) < 0) {
            return false;
        }
    }
    const std::uint64_t frames = rank == 3 ? dims[0] : 1;
    for (const Hdf5Attribute& attribute : recipe.attributes) {
        if (!WriteAttribute(dataset.get(), attribute, frames, recipe.payload)) return false;
    }
    if (recipe.secondImage) {
        const hsize_t side[2] = {3, 5};
        const Id second(H5Screate_simple(2, side, nullptr));
        const Id created(H5Dcreate2(file.get(), "/second", H5T_STD_U8LE, second.get(), H5P_DEFAULT, H5P_DEFAULT,
                                    H5P_DEFAULT));
        if (!created) return false;
    }
    return true;
}

}  // namespace fuzz
}  // namespace orvane
