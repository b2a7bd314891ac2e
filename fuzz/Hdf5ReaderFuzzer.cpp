// The HDF5 reader on files HDF5 writes from fuzz-chosen parameters (fuzz/Hdf5Recipe.h):
// list the image datasets, open the recipe's dataset as the recipe names it, read its
// frames.

#include "fuzz/Hdf5Recipe.h"
#include "fuzz/ScratchFile.h"
#include "fuzz/SeriesReading.h"
#include "io/Hdf5File.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvane::fuzz::ScratchFile file("input.h5");
    const orvane::fuzz::Hdf5Recipe recipe = orvane::fuzz::DecodeHdf5Recipe(data, size);
    file.Remove();
    if (!orvane::fuzz::BuildHdf5File(recipe, file.Path())) return 0;

    const std::string& path = orvane::fuzz::Hdf5DatasetPaths()[std::size_t(recipe.dataset)];
    const std::string names[] = {"", path, path.substr(1), "/missing"};
    try {
        orvane::io::Hdf5ImageDatasets(file.Path());
        const auto source = orvane::io::OpenHdf5Series(file.Path(), names[recipe.naming]);
        orvane::fuzz::ReadSeries(*source);
    } catch (const orvane::io::ImageFileError&) {
        // The file refused, as documented.
    }
    return 0;
}
