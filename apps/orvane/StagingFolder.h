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
    // Moves every staged entry into the target; with replaceAll, what stood in the
    // target before goes first. An entry in the way (a folder where a file goes, or the
    // reverse) is found before anything moves: InputError naming it, and the target
    // stays as it was.
    void Commit(bool replaceAll = false);
    // The target holds entries besides staging folders.
    static bool HasContent(const std::string& target);

private:
    std::string target;
    std::string staging;
};

}  // namespace app
}  // namespace orvane

#endif
