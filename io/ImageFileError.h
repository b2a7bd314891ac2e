#ifndef ORVANE_IO_IMAGEFILEERROR_H
#define ORVANE_IO_IMAGEFILEERROR_H

#include <stdexcept>
#include <string>

namespace orvane {
namespace io {

// A file that cannot be read or written as asked. The message is one line that
// names the file first: "<file>: <what is wrong>".
class ImageFileError : public std::runtime_error {
public:
    ImageFileError(const std::string& file, const std::string& problem)
        : std::runtime_error(file + ": " + problem), file(file), problem(problem) {}

    const std::string& File() const { return file; }
    const std::string& Problem() const { return problem; }

private:
    std::string file;
    std::string problem;
};

}  // namespace io
}  // namespace orvane

#endif
