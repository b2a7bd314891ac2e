#include "interfaces/Reference.h"

#include "interfaces/ReferenceException.h"

Reference::Reference(const std::string& path) : path(path) {}

Reference::~Reference() = default;

bool Reference::IsValid() const {
    return valid;
}

void Reference::SetValid(bool isValid) {
    valid = isValid;
}

void Reference::Save() {
    if (!path.empty()) {
        throw ReferenceException("Reference: cannot save '" + path +
                                 "': this store has no file format");
    }
}

void Reference::Load() {
    if (!path.empty()) {
        throw ReferenceException("Reference: cannot load '" + path +
                                 "': this store has no file format");
    }
}

const std::string& Reference::GetPath() const {
    return path;
}
