#ifndef ORVANE_INTERFACES_REFERENCE_H
#define ORVANE_INTERFACES_REFERENCE_H

#include <string>

// Root of the reference stores. A store is created by the host, holds live images
// that the calibrations write into, and says whether it holds a usable result.
// An empty path means an in-memory store, for which Save and Load do nothing.
class Reference {
public:
    explicit Reference(const std::string& path = "");
    virtual ~Reference();

    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    bool IsValid() const;
    void SetValid(bool valid);  // false at construction

    // Persist the whole store (images, properties, valid flag, settings) as one .fxd
    // file at the path, through correction/ReferenceFile.h; with an empty path both
    // do nothing. Any failure raises ReferenceException, and a failed Load leaves the
    // store as it was. This base class has no file format: with a path, both fail.
    virtual void Save();
    virtual void Load();

    const std::string& GetPath() const;

private:
    std::string path;
    bool valid = false;
};

#endif
