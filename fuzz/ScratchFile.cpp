#include "fuzz/ScratchFile.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <unistd.h>

namespace orvane {
namespace fuzz {

namespace {

std::filesystem::path ScratchBase() {
    if (const char* tmp = std::getenv("TMPDIR"); tmp != nullptr && *tmp != '\0') return tmp;
    std::error_code error;
    if (std::filesystem::is_directory("/dev/shm", error)) return "/dev/shm";
    return "/tmp";
}

}  // namespace

ScratchFile::ScratchFile(const std::string& name) {
    const std::filesystem::path base = ScratchBase() / ("orvane-fuzz-" + std::to_string(getpid()));
    std::filesystem::create_directories(base);
    folder = base.string();
    path = (base / name).string();
}

ScratchFile::~ScratchFile() {
    Remove();
    std::error_code error;
    std::filesystem::remove(folder, error);  // only once the folder's last file is gone
}

void ScratchFile::Write(const std::uint8_t* data, std::size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out) throw std::runtime_error("cannot write the scratch file " + path);
}

void ScratchFile::Resize(std::uintmax_t length) { std::filesystem::resize_file(path, length); }

std::string ScratchFile::Read() const {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void ScratchFile::Remove() {
    std::error_code error;
    std::filesystem::remove(path, error);
}

}  // namespace fuzz
}  // namespace orvane
