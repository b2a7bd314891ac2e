#ifndef ORVANE_APPS_STAGINGFOLDER_H
#define ORVANE_APPS_STAGINGFOLDER_H

#include <string>

namespace orvane {
namespace app {

// Outputs of a command go first into a hidden folder inside the target folder; Commit
// moves them into the target, replacing files of the same names. Without Commit (a
// failure) the staging folder is removed, so a failed command leaves nothing
// half-written behind.
class StagingFolder {
public:
    // Creates `target` if needed, and the staging folder in it. InputError if either
    // cannot be created.
    explicit StagingFolder(const std::string& target);
    ~StagingFolder();
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    const std::string& Path() const { return staging; }
    const std::string& Target() const { return target; }
    void Commit();

private:
    std::string target;
    std::string staging;
};

}  // namespace app
}  // namespace orvane

#endif
