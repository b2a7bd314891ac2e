#ifndef ORVANE_FUZZ_SCRATCHFILE_H
#define ORVANE_FUZZ_SCRATCHFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvane {
namespace fuzz {

// A file of this process for readers that take a path: in $TMPDIR when it is set,
// else in /dev/shm (memory, so millions of inputs wear no disk), else in /tmp, in a
// folder of the process's own. Removed, with the folder, when the object goes.
class ScratchFile {
public:
    // `name` is the file's name in the folder; its extension may matter to a reader.
    explicit ScratchFile(const std::string& name);
    ~ScratchFile();
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& Path() const { return path; }

    // Replaces the file's content by `size` bytes at `data`.
    void Write(const std::uint8_t* data, std::size_t size);
    // Sets the file's length; what is added reads as zeros and takes no room (sparse).
    void Resize(std::uintmax_t length);
    // The file's content.
    std::string Read() const;
    void Remove();

private:
    std::string folder;
    std::string path;
};

}  // namespace fuzz
}  // namespace orvane

#endif
