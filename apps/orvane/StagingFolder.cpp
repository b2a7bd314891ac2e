#include "apps/orvane/StagingFolder.h"

#include "apps/orvane/InputError.h"

#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace orvane {
namespace app {

StagingFolder::StagingFolder(const std::string& target) : target(target) {
    std::error_code error;
    fs::create_directories(target, error);
    if (error || !fs::is_directory(target)) {
        throw InputError(target, "cannot create the output folder" + (error ? ": " + error.message() : ""));
    }
    staging = (fs::path(target) / (".orvane-staging-" + std::to_string(::getpid()))).string();
    fs::remove_all(staging, error);
    if (!fs::create_directory(staging, error)) {
        throw InputError(target, "cannot write into the output folder" + (error ? ": " + error.message() : ""));
    }
}

StagingFolder::~StagingFolder() {
    std::error_code error;
    fs::remove_all(staging, error);
}

void StagingFolder::Commit() {
    for (const fs::directory_entry& entry : fs::directory_iterator(staging)) {
        const fs::path destination = fs::path(target) / entry.path().filename();
        if (fs::is_directory(destination) && entry.is_directory()) {
            fs::remove_all(destination);
        }
        fs::rename(entry.path(), destination);
    }
    fs::remove(staging);
}

}  // namespace app
}  // namespace orvane
