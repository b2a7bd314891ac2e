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

namespace {

bool IsStaging(const fs::path& entry) { return entry.filename().string().rfind(".orvane-staging-", 0) == 0; }

}  // namespace

bool StagingFolder::HasContent(const std::string& target) {
    std::error_code error;
    for (fs::directory_iterator it(target, error), end; !error && it != end; it.increment(error)) {
        if (!IsStaging(it->path())) return true;
    }
    return false;
}

void StagingFolder::Commit(bool replaceAll) {
    try {
        for (const fs::directory_entry& entry : fs::directory_iterator(staging)) {
            const fs::path destination = fs::path(target) / entry.path().filename();
            if (!replaceAll && fs::exists(destination) && fs::is_directory(destination) != entry.is_directory()) {
                throw InputError(destination.string(), std::string("is in the way: a ") +
                                                           (entry.is_directory() ? "file" : "folder") +
                                                           " where the output puts a " +
                                                           (entry.is_directory() ? "folder" : "file"));
            }
        }
        if (replaceAll) {
            for (const fs::directory_entry& entry : fs::directory_iterator(target)) {
                if (!IsStaging(entry.path())) fs::remove_all(entry.path());
            }
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(staging)) {
            const fs::path destination = fs::path(target) / entry.path().filename();
            if (fs::is_directory(destination) && entry.is_directory()) {
                fs::remove_all(destination);
            }
            fs::rename(entry.path(), destination);
        }
        fs::remove(staging);
    } catch (const fs::filesystem_error& error) {
        throw InputError(error.path1().string(), "cannot be put in place: " + error.code().message());
    }
}

}  // namespace app
}  // namespace orvane
