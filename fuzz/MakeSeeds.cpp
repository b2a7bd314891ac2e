// Writes the seed corpus of every fuzz target: `orvane-fuzz-seeds <folder>` fills
// <folder>/<target>/ with files our own writers make (the .fxd writer, the stores'
// Save, the image-file writers), variants libtiff writes (tiles, compression, the
// other byte order), HDF5 recipes and the formulas of the parameter tables.
// The bytes 32..39 of every .fxd header are zeroed: they may carry a checksum of the
// file, and a mutated file would then stop at its check instead of reaching the
// parsers.

#include "fuzz/FormulaInput.h"
#include "fuzz/Hdf5Recipe.h"
#include "fuzz/ScratchFile.h"
#include "fuzz/StoreKinds.h"
#include "interfaces/ReferenceClusters.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceEcholine.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"
#include "io/ImageFiles.h"
#include "parameters/DMFlagZoomParametersSet.h"
#include "parameters/DefectMapDarkZoomParametersSet.h"
#include "parameters/DefectMapZoomParametersSet.h"
#include "parameters/GainLinearStandardZoomParametersSet.h"
#include "tools/ImageFxdFile.h"

#include <boost/make_shared.hpp>
#include <tiffio.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using boost::property_tree::ptree;
using orvane::fuzz::ScratchFile;

namespace {

void Put(const fs::path& folder, const std::string& name, const std::string& bytes) {
    fs::create_directories(folder);
    std::ofstream out(folder / name, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
    if (!out) throw std::runtime_error("cannot write seed " + (folder / name).string());
}

std::string WithoutChecksum(std::string fxd) {
    for (size_t i = 32; i < 40 && i < fxd.size(); ++i) fxd[i] = '\0';
    return fxd;
}

template <typename T>
ImagePtr<T> Pattern(int width, int height, int seed) {
    auto image = boost::make_shared<ImageAcquisition<T>>(width, height);
    for (int i = 0; i < image->GetPixelCount(); ++i) image->GetData()[i] = T((i * 37 + seed * 11) % 251);
    return image;
}

ptree Properties(int frame) {
    ptree properties;
    properties.put("image.time", 60 * frame + 7);
    properties.put("image.temperature", 30.25 + frame);
    return properties;
}

// .fxd files ---------------------------------------------------------------------------

template <typename T>
std::string FxdFile(ScratchFile& file, int width, int height, int frames, bool withProperties) {
    {
        ImageFxdFileOut out(file.Path());
        if (withProperties) {
            for (int f = 0; f < frames; ++f) {
                ptree properties = Properties(f);
                properties.put("odd.key with space", "line\nbreak");
                properties.add("odd.key with space", "twice");
                out.SetProperties(properties, f);
            }
            ptree beyond("root value");
            beyond.put("after.the.last", 1);
            out.SetProperties(beyond, frames + 2);
        }
        out.Open(width, height, orvane::detail::FxdPixelType<T>::code, withProperties);
        for (int f = 0; f < frames; ++f) out.WriteFrame(Pattern<T>(width, height, f)->GetData(), f);
        out.Close();
    }
    return WithoutChecksum(file.Read());
}

void FxdSeeds(const fs::path& folder) {
    ScratchFile file("seed.fxd");
    Put(folder, "u16-4x3-1", FxdFile<unsigned short>(file, 4, 3, 1, false));
    Put(folder, "f32-5x2-3-properties", FxdFile<float>(file, 5, 2, 3, true));
    Put(folder, "u8-7x5-2-properties", FxdFile<unsigned char>(file, 7, 5, 2, true));
    Put(folder, "u8-0x0-0-properties", FxdFile<unsigned char>(file, 0, 0, 0, true));
}

// Stores --------------------------------------------------------------------------------

using orvane::fuzz::StoreKind;

// The store of `kind` saved with some content, preceded by the kind's byte.
std::string StoreFile(StoreKind kind, int variant) {
    ScratchFile file("seed-store.fxd");
    auto store = orvane::fuzz::MakeStore(kind, file.Path());
    const int w = orvane::fuzz::kStoreWidth, h = orvane::fuzz::kStoreHeight;
    const auto fill = [&](const ImagePtr<unsigned short>& image, int seed) {
        *image->GetBuffer() = *Pattern<unsigned short>(w, h, seed)->GetBuffer();
        image->GetProperties() = Properties(seed);
    };
    store->SetValid(variant == 0);
    switch (kind) {
        case StoreKind::OffsetSimple: fill(static_cast<ReferenceOffsetSimple&>(*store).GetOffset(), 1); break;
        case StoreKind::GainLinear: {
            auto& gain = static_cast<ReferenceGainLinear&>(*store);
            fill(gain.GetGainLinear(), 2);
            gain.SetGainInversion(variant == 1);
            break;
        }
        case StoreKind::GainPoly: {
            auto& gain = static_cast<ReferenceGainPoly&>(*store);
            for (int k = 0; k < gain.GetGainPolyCoeff(); ++k) {
                auto source = Pattern<float>(w, h, k);
                for (int i = 0; i < source->GetPixelCount(); ++i) source->GetData()[i] *= variant == 0 ? 0.01f : -3.5f;
                gain.CompressImage(source, k, gain.GetGainPoly()[size_t(k)]);
            }
            break;
        }
        case StoreKind::DefectMap: {
            auto& map = static_cast<ReferenceDM&>(*store);
            *map.GetDM()->GetBuffer() = *Pattern<unsigned char>(w, h, 3)->GetBuffer();
            if (variant == 1) {
                map.SetExternalDM(Pattern<unsigned char>(w, h, 4));
                map.SetMerged(true);
            }
            break;
        }
        case StoreKind::Clusters: {
            auto& clusters = static_cast<ReferenceClusters&>(*store);
            for (int c = 0; c < 2 * variant; ++c) {
                auto cluster = Pattern<unsigned short>(3, 2, c);
                cluster->GetProperties() = Properties(c);
                clusters.AddCluster(cluster);
            }
            break;
        }
        case StoreKind::Echoline: {
            auto& lines = static_cast<ReferenceEcholine&>(*store);
            lines.singleLines = {3, 17, 1024};
            if (variant == 1) lines.doubleLines = {-1, 40};
            break;
        }
        case StoreKind::OffsetTimeGrid: {
            auto& grid = static_cast<ReferenceOffsetTimeGrid&>(*store);
            for (int i = 0; i < grid.GetNbReferences(); ++i) fill(grid.GetAt(i), 5 + i);
            fill(grid.GetStandbyOffset(), 9);
            break;
        }
    }
    store->Save();
    return std::string(1, char(kind)) + WithoutChecksum(file.Read());
}

void StoreSeeds(const fs::path& folder) {
    for (int kind = 0; kind < orvane::fuzz::kStoreKinds; ++kind) {
        for (int variant = 0; variant < 2; ++variant) {
            Put(folder, orvane::fuzz::StoreKindName(StoreKind(kind)) + "-" + std::to_string(variant),
                StoreFile(StoreKind(kind), variant));
        }
    }
}

// Image files through our writers -------------------------------------------------------

template <typename T>
std::string SeriesFile(ScratchFile& file, orvane::io::ImageFileFormat format, int width, int height, int frames,
                       bool withProperties, const orvane::io::WriteOptions& options = {}) {
    file.Remove();
    const auto writer = orvane::io::CreateSeriesWriter(file.Path(), format, options);
    for (int f = 0; f < frames; ++f) {
        auto image = Pattern<T>(width, height, f);
        if (withProperties) image->GetProperties() = Properties(f);
        writer->WriteImage(*image);
    }
    writer->Close();
    return file.Read();
}

void FitsSeeds(const fs::path& folder) {
    using orvane::io::ImageFileFormat;
    ScratchFile file("seed.fits");
    Put(folder, "u8-5x4-1", SeriesFile<unsigned char>(file, ImageFileFormat::Fits, 5, 4, 1, false));
    Put(folder, "u16-6x3-3-keys", SeriesFile<unsigned short>(file, ImageFileFormat::Fits, 6, 3, 3, true));
    Put(folder, "f32-4x4-2-keys", SeriesFile<float>(file, ImageFileFormat::Fits, 4, 4, 2, true));
}

// A TIFF page libtiff writes with the layout our writer does not use.
struct TiffVariant {
    const char* name;
    const char* mode;  // "w", "w8" (BigTIFF), "wb" (big-endian)
    int bits;
    int format;        // SAMPLEFORMAT_*
    int compression;
    int predictor;     // 1: none
    int tile;          // 0: strips of rowsPerStrip rows
    int rowsPerStrip;
    int pages;
};

std::string TiffFile(ScratchFile& file, const TiffVariant& v) {
    const int width = 20, height = 18;
    file.Remove();
    TIFF* tif = TIFFOpen(file.Path().c_str(), v.mode);
    if (tif == nullptr) throw std::runtime_error(std::string("libtiff cannot write seed ") + v.name);
    const int bytes = v.bits / 8;
    std::vector<unsigned char> pixels(size_t(width) * height * size_t(bytes));
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = (unsigned char)(i * 13 % 256);
    if (v.format == SAMPLEFORMAT_IEEEFP) {
        for (size_t i = 0; i < pixels.size() / 4; ++i) {
            const float value = float(i) * 0.5f - 7.0f;
            std::memcpy(&pixels[i * 4], &value, 4);
        }
    }
    for (int page = 0; page < v.pages; ++page) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, v.bits);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, v.format);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, v.compression);
        if (v.predictor != 1) TIFFSetField(tif, TIFFTAG_PREDICTOR, v.predictor);
        TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, "{\"image\":{\"time\":\"60\",\"temperature\":\"30.05\"}}");
        if (v.tile > 0) {
            TIFFSetField(tif, TIFFTAG_TILEWIDTH, v.tile);
            TIFFSetField(tif, TIFFTAG_TILELENGTH, v.tile);
            std::vector<unsigned char> tile(size_t(v.tile) * v.tile * size_t(bytes));
            for (int y = 0; y < height; y += v.tile) {
                for (int x = 0; x < width; x += v.tile) {
                    for (size_t i = 0; i < tile.size(); ++i) tile[i] = (unsigned char)(i + size_t(x + y));
                    TIFFWriteTile(tif, tile.data(), std::uint32_t(x), std::uint32_t(y), 0, 0);
                }
            }
        } else {
            TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, v.rowsPerStrip);
            for (int row = 0; row < height; ++row) {
                TIFFWriteScanline(tif, &pixels[size_t(row) * width * size_t(bytes)], std::uint32_t(row), 0);
            }
        }
        TIFFWriteDirectory(tif);
    }
    TIFFClose(tif);
    return file.Read();
}

void TiffSeeds(const fs::path& folder) {
    using orvane::io::ImageFileFormat;
    ScratchFile file("seed.tif");
    Put(folder, "u8-5x4-1", SeriesFile<unsigned char>(file, ImageFileFormat::Tiff, 5, 4, 1, false));
    Put(folder, "u16-6x3-3-json", SeriesFile<unsigned short>(file, ImageFileFormat::Tiff, 6, 3, 3, true));
    orvane::io::WriteOptions big;
    big.bigTiff = true;
    Put(folder, "f32-4x4-2-bigtiff", SeriesFile<float>(file, ImageFileFormat::Tiff, 4, 4, 2, true, big));
    const TiffVariant variants[] = {
        {"u16-tiled", "w", 16, SAMPLEFORMAT_UINT, COMPRESSION_NONE, 1, 16, 0, 2},
        {"u16-lzw-predictor", "w", 16, SAMPLEFORMAT_UINT, COMPRESSION_LZW, 2, 0, 4, 1},
        {"f32-deflate-tiled", "w8", 32, SAMPLEFORMAT_IEEEFP, COMPRESSION_ADOBE_DEFLATE, 3, 16, 0, 1},
        {"u16-big-endian-strips", "wb", 16, SAMPLEFORMAT_UINT, COMPRESSION_NONE, 1, 0, 5, 2},
        {"u8-packbits", "w", 8, SAMPLEFORMAT_UINT, COMPRESSION_PACKBITS, 1, 0, 1, 1},
        {"i16-refused", "w", 16, SAMPLEFORMAT_INT, COMPRESSION_NONE, 1, 0, 18, 1},
    };
    for (const TiffVariant& variant : variants) Put(folder, variant.name, TiffFile(file, variant));
}

// A raw file: its layout line, no lengthening, the frames our raw writer writes.
void RawSeeds(const fs::path& folder) {
    using orvane::io::ImageFileFormat;
    ScratchFile file("seed.raw");
    orvane::io::WriteOptions bigEndian;
    bigEndian.bigEndian = true;
    Put(folder, "u16le", std::string("4x3:u16le\n") + '\0' +
                             SeriesFile<unsigned short>(file, ImageFileFormat::Raw, 4, 3, 2, false));
    Put(folder, "f32be-header", std::string("2x2:f32be:8\n") + '\0' + "HEADER!!" +
                                    SeriesFile<float>(file, ImageFileFormat::Raw, 2, 2, 3, false, bigEndian));
    Put(folder, "u8-lengthened", std::string("64x64:u8\n") + '\x01');
    Put(folder, "u16be-one", std::string("3x1:u16be:0\n") + '\0' +
                                 SeriesFile<unsigned short>(file, ImageFileFormat::Raw, 3, 1, 1, false, bigEndian));
}

// HDF5 recipes --------------------------------------------------------------------------

void Hdf5Seeds(const fs::path& folder) {
    using orvane::fuzz::Hdf5AttributeType;
    using orvane::fuzz::Hdf5Element;
    using orvane::fuzz::Hdf5Recipe;
    const std::vector<std::uint8_t> payload{1, 2, 3, 4, 250, 251, 252, 253, 0x7f, 0x80, 0xff, 0};
    const auto put = [&](const std::string& name, Hdf5Recipe recipe) {
        recipe.payload = payload;
        const std::vector<std::uint8_t> bytes = orvane::fuzz::EncodeHdf5Recipe(recipe);
        Put(folder, name, std::string(bytes.begin(), bytes.end()));
    };
    // As our writer lays out a series: frames x rows x columns, a chunk per frame,
    // shuffle and gzip 1, a time and a temperature per frame.
    Hdf5Recipe ours;
    ours.naming = 1;
    ours.dims = {3, 4, 5, 0};
    ours.chunked = true;
    ours.chunk = {1, 4, 5, 0};
    ours.shuffle = true;
    ours.gzip = 1;
    ours.attributes = {{0, Hdf5AttributeType::I64, 0}, {1, Hdf5AttributeType::F64, 0}};
    put("writer-layout", ours);

    Hdf5Recipe frame;
    frame.dataset = 3;
    frame.rank = 2;
    frame.dims = {6, 7, 0, 0};
    frame.element = Hdf5Element::F32;
    put("one-frame-f32-found", frame);

    Hdf5Recipe nested = ours;
    nested.dataset = 1;
    nested.naming = 2;
    nested.element = Hdf5Element::U16BigEndian;
    nested.chunk = {2, 3, 2, 0};
    nested.attributes = {{0, Hdf5AttributeType::I64, 1}, {1, Hdf5AttributeType::String, 0}};
    put("nested-big-endian-odd-attributes", nested);

    Hdf5Recipe sparse = ours;
    sparse.dims = {208, 4, 4, 0};  // 2^31 - 1 frames, almost none written
    sparse.chunk = {1, 4, 4, 0};
    sparse.attributes = {{0, Hdf5AttributeType::I64, 2}};
    put("sparse-int-max-frames", sparse);

    Hdf5Recipe wide = ours;
    wide.dims = {2, 3, 205, 0};  // 70000 columns: beyond the frame limit
    put("wide-beyond-limit", wide);

    Hdf5Recipe empty = ours;
    empty.dims = {0, 4, 5, 0};
    put("no-frames", empty);

    Hdf5Recipe cube = ours;
    cube.rank = 4;
    cube.dims = {2, 2, 3, 3};
    cube.chunk = {1, 1, 3, 3};
    put("rank-4", cube);

    Hdf5Recipe line = frame;
    line.rank = 1;
    line.dims = {9, 0, 0, 0};
    put("rank-1", line);

    const Hdf5Element refused[] = {Hdf5Element::I16, Hdf5Element::F64, Hdf5Element::String, Hdf5Element::Enum16,
                                   Hdf5Element::U64};
    for (Hdf5Element element : refused) {
        Hdf5Recipe other = frame;
        other.naming = 1;
        other.element = element;
        put("refused-type-" + std::to_string(int(element)), other);
    }

    Hdf5Recipe two = frame;
    two.secondImage = true;
    put("two-images-unnamed", two);

    Hdf5Recipe missing = ours;
    missing.naming = 3;
    put("missing-dataset", missing);
}

// Formulas of the parameter tables ------------------------------------------------------

void FormulaSeeds(const fs::path& folder) {
    std::set<std::string> seeds;
    for (const auto& row : s_gainLinearStandardZoomParametersSet.GetBaseRows()) {
        const GainLinearZoomParameters& record = row.second;
        std::vector<std::string> formulas{record.AreaHeight, record.AreaWidth};
        for (const auto member : orvane::fuzz::FormulaMembers()) formulas.push_back(record.*member);
        for (const ROIFormula& area : record.MeasureAreaFormulas) {
            formulas.insert(formulas.end(), {area.top, area.left, area.height, area.width});
        }
        for (const std::string& formula : formulas) {
            if (!formula.empty()) seeds.insert(orvane::fuzz::EncodeFormulaInput(formula, record));
        }
    }
    const auto alone = [&](const std::string& formula) {
        if (!formula.empty()) seeds.insert(formula);
    };
    for (const auto& row : s_DMFlagZoomParametersSet.GetBaseRows()) {
        const auto& r = row.second;
        for (const std::string* f : {&r.HorizontalRatio, &r.VerticalRatio, &r.AreaHorizontalRatio,
                                     &r.AreaVerticalRatio, &r.RetestHorizontalRatio, &r.RetestVerticalRatio,
                                     &r.DRZSecondColumn, &r.SplitRow, &r.Area.top, &r.Area.left, &r.Area.height,
                                     &r.Area.width}) {
            alone(*f);
        }
    }
    for (const auto& row : s_defectMapZoomParametersSet.GetBaseRows()) {
        const auto& r = row.second;
        for (const std::string* f : {&r.X0Formula, &r.Y0Formula, &r.WidthFormula, &r.HeightFormula}) alone(*f);
    }
    for (const auto& row : s_defectMapDarkZoomParametersSet.GetBaseRows()) {
        const auto& a = row.second.Area;
        for (const std::string* f : {&a.top, &a.left, &a.height, &a.width}) alone(*f);
    }
    int index = 0;
    for (const std::string& seed : seeds) Put(folder, "table-" + std::to_string(index++), seed);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <seed folder>\n", argv[0]);
        return 2;
    }
    try {
        const fs::path root = argv[1];
        FxdSeeds(root / "fxd-reader");
        StoreSeeds(root / "store-load");
        TiffSeeds(root / "tiff-reader");
        FitsSeeds(root / "fits-reader");
        RawSeeds(root / "raw-reader");
        Hdf5Seeds(root / "hdf5-reader");
        FormulaSeeds(root / "formula");
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", argv[0], e.what());
        return 1;
    }
    return 0;
}
