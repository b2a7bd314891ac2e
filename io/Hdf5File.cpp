#include "io/Hdf5File.h"

#include <hdf5.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <utility>

namespace orvane {
namespace io {

namespace {

// An HDF5 identifier, closed by `Close` when it goes.
template <herr_t (*Close)(hid_t)>
class Handle {
public:
    explicit Handle(hid_t id = H5I_INVALID_HID) : id(id) {}
    ~Handle() {
        if (id >= 0) Close(id);
    }
    Handle(Handle&& other) noexcept : id(std::exchange(other.id, H5I_INVALID_HID)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(id, other.id);
        return *this;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    hid_t get() const { return id; }
    explicit operator bool() const { return id >= 0; }
    hid_t release() { return std::exchange(id, H5I_INVALID_HID); }

private:
    hid_t id;
};

using File = Handle<H5Fclose>;
using Dataset = Handle<H5Dclose>;
using Space = Handle<H5Sclose>;
using Type = Handle<H5Tclose>;
using Plist = Handle<H5Pclose>;
using Attribute = Handle<H5Aclose>;

const char* const kTime = "image.time";
const char* const kTemperature = "image.temperature";

// HDF5 prints its error stack to stderr unless told not to; the failures become
// ImageFileError instead. The setting is per thread in thread-safe builds.
void Quiet() {
    thread_local const bool quiet = H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr) >= 0;
    (void)quiet;
}

// The most specific message of the error stack of the call that just failed.
std::string LastError() {
    std::string text;
    H5Ewalk2(
        H5E_DEFAULT, H5E_WALK_DOWNWARD,
        [](unsigned, const H5E_error2_t* error, void* data) -> herr_t {
            if (error->desc != nullptr && *error->desc != '\0') *static_cast<std::string*>(data) = error->desc;
            return 0;
        },
        &text);
    H5Eclear2(H5E_DEFAULT);
    return text.empty() ? "no reason given" : text;
}

hid_t MemoryType(PixelKind kind) {
    switch (kind) {
        case PixelKind::UInt8: return H5T_NATIVE_UINT8;
        case PixelKind::UInt16: return H5T_NATIVE_UINT16;
        case PixelKind::Float32: break;
    }
    return H5T_NATIVE_FLOAT;
}

std::string Absolute(const std::string& dataset) { return dataset.empty() || dataset[0] != '/' ? "/" + dataset : dataset; }

// Opens an existing file; a file that is not HDF5, or that HDF5 cannot open (truncated,
// damaged), is refused.
File OpenFile(const std::string& path, unsigned flags, hid_t access) {
    if (!std::ifstream(path)) throw ImageFileError(path, "cannot be opened");
    const htri_t hdf5 = H5Fis_hdf5(path.c_str());
    if (hdf5 == 0) throw ImageFileError(path, "is not an HDF5 file (its first bytes do not say so)");
    File file(hdf5 > 0 ? H5Fopen(path.c_str(), flags, access) : H5I_INVALID_HID);
    if (!file) throw ImageFileError(path, "cannot be opened as HDF5: " + LastError());
    return file;
}

herr_t CollectDataset(hid_t, const char* name, const H5O_info_t* info, void* data) noexcept {
    if (info->type != H5O_TYPE_DATASET) return 0;
    try {
        static_cast<std::vector<std::string>*>(data)->push_back(Absolute(name));
    } catch (...) {
        return -1;
    }
    return 0;
}

std::vector<std::string> ImageDatasets(const std::string& path, hid_t file) {
    std::vector<std::string> datasets, images;
    if (H5Ovisit2(file, H5_INDEX_NAME, H5_ITER_INC, CollectDataset, &datasets, H5O_INFO_BASIC) < 0) {
        throw ImageFileError(path, "cannot be searched for datasets: " + LastError());
    }
    for (const std::string& name : datasets) {
        const Dataset dataset(H5Dopen2(file, name.c_str(), H5P_DEFAULT));
        const Space space(dataset ? H5Dget_space(dataset.get()) : H5I_INVALID_HID);
        const int rank = space ? H5Sget_simple_extent_ndims(space.get()) : -1;
        if (rank == 2 || rank == 3) images.push_back(name);
    }
    H5Eclear2(H5E_DEFAULT);
    std::sort(images.begin(), images.end());
    return images;
}

std::string OnlyImageDataset(const std::string& path, hid_t file) {
    const std::vector<std::string> images = ImageDatasets(path, file);
    if (images.empty()) throw ImageFileError(path, "has no dataset of 2 or 3 dimensions");
    if (images.size() > 1) {
        std::string names;
        for (size_t i = 0; i < images.size() && i < 8; ++i) names += (i ? ", " : "") + images[i];
        if (images.size() > 8) names += ", ...";
        throw ImageFileError(path, "has " + std::to_string(images.size()) + " datasets of 2 or 3 dimensions (" +
                                       names + "): name the one to read");
    }
    return images.front();
}

// "16-bit signed integers", "64-bit floats", "compound values", ...
std::string TypeText(hid_t type) {
    const std::string bits = std::to_string(H5Tget_size(type) * 8) + "-bit ";
    switch (H5Tget_class(type)) {
        case H5T_INTEGER: return bits + (H5Tget_sign(type) == H5T_SGN_NONE ? "unsigned" : "signed") + " integers";
        case H5T_FLOAT: return bits + "floats";
        case H5T_COMPOUND: return "compound values";
        case H5T_STRING: return "strings";
        case H5T_ENUM: return "enumerated values";
        case H5T_ARRAY: return "arrays";
        case H5T_VLEN: return "variable-length values";
        case H5T_BITFIELD: return "bit fields";
        case H5T_OPAQUE: return "opaque values";
        case H5T_REFERENCE: return "references";
        default: return "values of an unknown type";
    }
}

std::optional<PixelKind> KindOfType(hid_t type) {
    const size_t size = H5Tget_size(type);
    switch (H5Tget_class(type)) {
        case H5T_INTEGER:
            if (H5Tget_sign(type) != H5T_SGN_NONE) return std::nullopt;
            if (size == 1) return PixelKind::UInt8;
            if (size == 2) return PixelKind::UInt16;
            return std::nullopt;
        case H5T_FLOAT:
            if (size == 4) return PixelKind::Float32;
            return std::nullopt;
        default: return std::nullopt;
    }
}

// What the reader needs to know of a dataset before it opens it for reading.
struct Layout {
    FrameShape shape;
    int rank = 3;
    // Chunked: the bytes of a chunk (in the file's type) and how many chunks one frame
    // touches; 0 for a contiguous dataset.
    hsize_t chunkBytes = 0;
    hsize_t chunksPerFrame = 0;
};

int Clamped(hsize_t value) { return static_cast<int>(std::min<hsize_t>(value, INT_MAX)); }

// The layout of dataset `name`, refused (naming `label`) when its rank, type or
// filters are not ours to read.
Layout Inspect(const std::string& path, const std::string& label, hid_t file, const std::string& name) {
    const Dataset dataset(H5Dopen2(file, name.c_str(), H5P_DEFAULT));
    if (!dataset) throw ImageFileError(path, "has no dataset '" + name + "'");
    const Space space(H5Dget_space(dataset.get()));
    const Type type(H5Dget_type(dataset.get()));
    const Plist create(H5Dget_create_plist(dataset.get()));
    if (!space || !type || !create) throw ImageFileError(label, "cannot be read: " + LastError());

    Layout layout;
    layout.rank = H5Sget_simple_extent_ndims(space.get());
    if (layout.rank != 2 && layout.rank != 3) {
        throw ImageFileError(label, "has " + std::to_string(layout.rank) +
                                        " dimensions, not 2 (one frame) or 3 (frames x rows x columns)");
    }
    const std::optional<PixelKind> kind = KindOfType(type.get());
    if (!kind) {
        throw ImageFileError(label, "holds " + TypeText(type.get()) +
                                        ", not 8/16-bit unsigned integers or 32-bit floats");
    }
    hsize_t dims[3] = {1, 1, 1};
    H5Sget_simple_extent_dims(space.get(), dims + 3 - layout.rank, nullptr);
    if (dims[0] > hsize_t(INT_MAX)) throw ImageFileError(label, "claims " + std::to_string(dims[0]) + " frames");
    layout.shape = FrameShape{Clamped(dims[2]), Clamped(dims[1]), *kind, int(dims[0])};

    const int filters = H5Pget_nfilters(create.get());
    for (int i = 0; i < filters; ++i) {
        unsigned flags = 0, config = 0;
        size_t values = 0;
        char filterName[256] = "";
        const H5Z_filter_t filter =
            H5Pget_filter2(create.get(), unsigned(i), &flags, &values, nullptr, sizeof filterName, filterName, &config);
        if (filter < 0 || H5Zfilter_avail(filter) <= 0) {
            throw ImageFileError(label, "is compressed with filter " + std::to_string(filter) + " (" +
                                            (*filterName ? filterName : "unnamed") +
                                            "), which this HDF5 build lacks");
        }
    }
    if (H5Pget_layout(create.get()) == H5D_CHUNKED) {
        hsize_t chunk[3] = {1, 1, 1};
        if (H5Pget_chunk(create.get(), layout.rank, chunk + 3 - layout.rank) != layout.rank) {
            throw ImageFileError(label, "cannot be read: " + LastError());
        }
        layout.chunkBytes = chunk[0] * chunk[1] * chunk[2] * H5Tget_size(type.get());
        layout.chunksPerFrame = ((dims[1] + chunk[1] - 1) / chunk[1]) * ((dims[2] + chunk[2] - 1) / chunk[2]);
    }
    return layout;
}

size_t NextPrime(size_t n) {
    const auto prime = [](size_t k) {
        for (size_t d = 2; d * d <= k; ++d)
            if (k % d == 0) return false;
        return k > 1;
    };
    while (!prime(n)) ++n;
    return n;
}

// The values of the frame attribute `name`, read as `memory`: none when the dataset
// has no such attribute, or one of another length or type. Its values lie in the file,
// so a file of `fileBytes` bytes cannot claim more than that.
template <typename T>
std::vector<T> FrameValues(hid_t dataset, const char* name, hid_t memory, int frames, hsize_t fileBytes) {
    if (frames == 0 || H5Aexists(dataset, name) <= 0) return {};
    const Attribute attribute(H5Aopen(dataset, name, H5P_DEFAULT));
    const Space space(attribute ? H5Aget_space(attribute.get()) : H5I_INVALID_HID);
    const Type type(attribute ? H5Aget_type(attribute.get()) : H5I_INVALID_HID);
    if (!space || !type || H5Sget_simple_extent_npoints(space.get()) != frames ||
        hsize_t(frames) * H5Tget_size(type.get()) > fileBytes) {
        return {};
    }
    std::vector<T> values(static_cast<size_t>(frames));
    if (H5Aread(attribute.get(), memory, values.data()) < 0) values.clear();
    return values;
}

class Hdf5Source : public SeriesSource {
public:
    Hdf5Source(const std::string& path, const std::string& dataset, const Layout& layout, File fileHandle)
        : SeriesSource(path + ":" + dataset, layout.shape), file(std::move(fileHandle)), rank(layout.rank) {
        // A cache that holds every chunk one frame touches: reading frame after frame
        // decodes each chunk once.
        const Plist access(H5Pcreate(H5P_DATASET_ACCESS));
        if (layout.chunkBytes > 0) {
            const hsize_t bytes = std::min<hsize_t>(layout.chunkBytes * layout.chunksPerFrame, SIZE_MAX);
            const size_t slots = NextPrime(size_t(std::min<hsize_t>(layout.chunksPerFrame * 100, 1 << 24)) + 1);
            H5Pset_chunk_cache(access.get(), slots, size_t(bytes), H5D_CHUNK_CACHE_W0_DEFAULT);
        }
        data = Dataset(H5Dopen2(file.get(), dataset.c_str(), access.get()));
        fileSpace = Space(data ? H5Dget_space(data.get()) : H5I_INVALID_HID);
        const hsize_t frame[3] = {1, hsize_t(Shape().height), hsize_t(Shape().width)};
        memorySpace = Space(H5Screate_simple(3, frame, nullptr));
        if (!data || !fileSpace || !memorySpace) throw ImageFileError(Name(), "cannot be read: " + LastError());

        hsize_t fileBytes = 0;
        H5Fget_filesize(file.get(), &fileBytes);
        times = FrameValues<std::int64_t>(data.get(), kTime, H5T_NATIVE_INT64, Shape().frames, fileBytes);
        temperatures = FrameValues<double>(data.get(), kTemperature, H5T_NATIVE_DOUBLE, Shape().frames, fileBytes);
        H5Eclear2(H5E_DEFAULT);
    }

    void ReadFrame(int index, void* pixels, boost::property_tree::ptree& properties) override {
        CheckIndex(index);
        Quiet();
        const hsize_t start[3] = {hsize_t(index), 0, 0};
        const hsize_t count[3] = {1, hsize_t(Shape().height), hsize_t(Shape().width)};
        const bool selected = rank == 2 || H5Sselect_hyperslab(fileSpace.get(), H5S_SELECT_SET, start, nullptr, count,
                                                               nullptr) >= 0;
        if (!selected || H5Dread(data.get(), MemoryType(Shape().pixel), rank == 2 ? H5S_ALL : memorySpace.get(),
                                 rank == 2 ? H5S_ALL : fileSpace.get(), H5P_DEFAULT, pixels) < 0) {
            throw ImageFileError(Name(), "cannot be read at frame " + std::to_string(index) + ": " + LastError());
        }
        properties.clear();
        if (!times.empty()) properties.put(kTime, static_cast<long long>(times[size_t(index)]));
        if (!temperatures.empty()) properties.put(kTemperature, temperatures[size_t(index)]);
    }

private:
    File file;
    int rank;
    Dataset data;
    Space fileSpace;
    Space memorySpace;
    std::vector<std::int64_t> times;
    std::vector<double> temperatures;
};

// Whether every part of the path `name` names a link of the file.
bool Exists(hid_t file, const std::string& name) {
    for (size_t end = name.find('/', 1);; end = name.find('/', end + 1)) {
        if (H5Lexists(file, name.substr(0, end).c_str(), H5P_DEFAULT) <= 0) return false;
        if (end == std::string::npos) return true;
    }
}

// The property `key` as a T; none when it is missing or is no T.
template <typename T>
std::optional<T> Value(const boost::property_tree::ptree& properties, const char* key) {
    if (const auto value = properties.get_optional<T>(key)) return *value;
    return std::nullopt;
}

// The dataset is created with the first frame, which gives its size and kind, and
// grows by a frame at each WriteFrame; the frame attributes follow at Close.
class Hdf5Writer : public SeriesWriter {
public:
    Hdf5Writer(const std::string& path, const std::string& dataset)
        : SeriesWriter(path), name(Absolute(dataset.empty() ? "/data" : dataset)) {
        Quiet();
        // The 1.8 file format at least: attributes longer than 64 KB (many frames)
        // need its dense attribute storage.
        const Plist access(H5Pcreate(H5P_FILE_ACCESS));
        std::error_code error;
        if (std::filesystem::exists(path, error)) {
            H5Pset_libver_bounds(access.get(), H5F_LIBVER_V18, H5F_LIBVER_LATEST);
            file = OpenFile(path, H5F_ACC_RDWR, access.get());
            if (Exists(file.get(), name)) throw ImageFileError(path, "already has a dataset '" + name + "'");
        } else {
            H5Pset_libver_bounds(access.get(), H5F_LIBVER_V18, H5F_LIBVER_V18);
            file = File(H5Fcreate(path.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, access.get()));
            if (!file) throw ImageFileError(path, "cannot be created: " + LastError());
        }
        H5Eclear2(H5E_DEFAULT);
    }

    void Append(const void* pixels, int width, int height, PixelKind pixel,
                const boost::property_tree::ptree& properties) override {
        Quiet();
        const FrameShape frame{width, height, pixel, 1};
        if (!file) throw ImageFileError(path, "is closed");
        if (!data) {
            CheckFrameShape(path, frame);
            shape = FrameShape{width, height, pixel, 0};
            Create();
        } else if (width != shape.width || height != shape.height || pixel != shape.pixel) {
            throw ImageFileError(path, "a frame of " + ShapeText(frame) + " cannot join frames of " + ShapeText(shape));
        }
        const hsize_t dims[3] = {hsize_t(shape.frames) + 1, hsize_t(height), hsize_t(width)};
        const hsize_t start[3] = {hsize_t(shape.frames), 0, 0}, count[3] = {1, dims[1], dims[2]};
        if (H5Dset_extent(data.get(), dims) < 0) throw Failure();
        const Space space(H5Dget_space(data.get()));
        if (!space || H5Sselect_hyperslab(space.get(), H5S_SELECT_SET, start, nullptr, count, nullptr) < 0 ||
            H5Dwrite(data.get(), MemoryType(pixel), frameSpace.get(), space.get(), H5P_DEFAULT, pixels) < 0) {
            throw Failure();
        }
        ++shape.frames;
        times.push_back(Value<std::int64_t>(properties, kTime));
        temperatures.push_back(Value<double>(properties, kTemperature));
    }

    void Finish() override {
        Quiet();
        if (!file) return;
        if (!data) throw ImageFileError(path, "has no frame for dataset '" + name + "'");
        WriteAttribute(kTime, H5T_STD_I64LE, H5T_NATIVE_INT64, times);
        WriteAttribute(kTemperature, H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, temperatures);
        frameSpace = Space();
        const bool closed = H5Dclose(data.release()) >= 0;
        if (H5Fclose(file.release()) < 0 || !closed) throw Failure();
    }

private:
    ImageFileError Failure() const { return ImageFileError(path, "cannot be written: " + LastError()); }

    // Chunks of one frame, shuffled and deflated at level 1, any number of frames.
    void Create() {
        const hsize_t frame[3] = {1, hsize_t(shape.height), hsize_t(shape.width)};
        const hsize_t none[3] = {0, frame[1], frame[2]}, most[3] = {H5S_UNLIMITED, frame[1], frame[2]};
        const Plist links(H5Pcreate(H5P_LINK_CREATE)), create(H5Pcreate(H5P_DATASET_CREATE));
        const Space space(H5Screate_simple(3, none, most));
        frameSpace = Space(H5Screate_simple(3, frame, nullptr));
        if (!links || !create || !space || !frameSpace || H5Pset_create_intermediate_group(links.get(), 1) < 0 ||
            H5Pset_chunk(create.get(), 3, frame) < 0 || H5Pset_shuffle(create.get()) < 0 ||
            H5Pset_deflate(create.get(), 1) < 0) {
            throw Failure();
        }
        data = Dataset(H5Dcreate2(file.get(), name.c_str(), MemoryType(shape.pixel), space.get(), links.get(),
                                  create.get(), H5P_DEFAULT));
        if (!data) throw ImageFileError(path, "cannot create dataset '" + name + "': " + LastError());
    }

    // An attribute of the frames' values of `key`, when every frame has one.
    template <typename T>
    void WriteAttribute(const char* key, hid_t fileType, hid_t memory, const std::vector<std::optional<T>>& values) {
        std::vector<T> all;
        for (const std::optional<T>& value : values) {
            if (!value) return;
            all.push_back(*value);
        }
        const hsize_t count = all.size();
        const Space space(H5Screate_simple(1, &count, nullptr));
        const Attribute attribute(
            space ? H5Acreate2(data.get(), key, fileType, space.get(), H5P_DEFAULT, H5P_DEFAULT) : H5I_INVALID_HID);
        if (!attribute || H5Awrite(attribute.get(), memory, all.data()) < 0) throw Failure();
    }

    std::string name;
    File file;
    Dataset data;
    Space frameSpace;
    FrameShape shape;
    std::vector<std::optional<std::int64_t>> times;
    std::vector<std::optional<double>> temperatures;
};

}  // namespace

std::unique_ptr<SeriesSource> OpenHdf5Series(const std::string& path, const std::string& dataset) {
    Quiet();
    File file = OpenFile(path, H5F_ACC_RDONLY, H5P_DEFAULT);
    const std::string name = dataset.empty() ? OnlyImageDataset(path, file.get()) : Absolute(dataset);
    // The dataset is closed again before the source opens it with its chunk cache:
    // a dataset opened twice shares the cache of the first opening.
    const Layout layout = Inspect(path, path + ":" + name, file.get(), name);
    return std::make_unique<Hdf5Source>(path, name, layout, std::move(file));
}

std::unique_ptr<SeriesWriter> CreateHdf5Writer(const std::string& path, const WriteOptions& options) {
    return std::make_unique<Hdf5Writer>(path, options.dataset);
}

std::vector<std::string> Hdf5ImageDatasets(const std::string& path) {
    Quiet();
    const File file = OpenFile(path, H5F_ACC_RDONLY, H5P_DEFAULT);
    return ImageDatasets(path, file.get());
}

void WriteHdf5PixelMask(const std::string& path, const std::string& dataset, const std::uint32_t* mask, int width,
                        int height) {
    Quiet();
    CheckFrameShape(path, FrameShape{width, height, PixelKind::UInt16, 1});
    std::error_code error;
    File file = std::filesystem::exists(path, error) ? OpenFile(path, H5F_ACC_RDWR, H5P_DEFAULT)
                                                     : File(H5Fcreate(path.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, H5P_DEFAULT));
    const std::string name = Absolute(dataset);
    if (!file) throw ImageFileError(path, "cannot be created: " + LastError());
    if (Exists(file.get(), name)) throw ImageFileError(path, "already has a dataset '" + name + "'");
    const hsize_t dims[2] = {hsize_t(height), hsize_t(width)};
    const Plist links(H5Pcreate(H5P_LINK_CREATE)), create(H5Pcreate(H5P_DATASET_CREATE));
    const Space space(H5Screate_simple(2, dims, nullptr));
    if (!links || !create || !space || H5Pset_create_intermediate_group(links.get(), 1) < 0 ||
        H5Pset_chunk(create.get(), 2, dims) < 0 || H5Pset_deflate(create.get(), 1) < 0) {
        throw ImageFileError(path, "cannot be written: " + LastError());
    }
    const Dataset data(
        H5Dcreate2(file.get(), name.c_str(), H5T_STD_U32LE, space.get(), links.get(), create.get(), H5P_DEFAULT));
    if (!data || H5Dwrite(data.get(), H5T_NATIVE_UINT32, H5S_ALL, H5S_ALL, H5P_DEFAULT, mask) < 0) {
        throw ImageFileError(path, "cannot write dataset '" + name + "': " + LastError());
    }
}

}  // namespace io
}  // namespace orvane
