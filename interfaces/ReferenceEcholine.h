#ifndef ORVANE_INTERFACES_REFERENCEECHOLINE_H
#define ORVANE_INTERFACES_REFERENCEECHOLINE_H

#include "interfaces/Reference.h"

#include <set>
#include <string>

// The echo lines of a detector by line number: lines without an echo-line
// neighbour, and the lower line of each neighbouring pair. The store holds no
// image; its two sets are plain data that the calibration assigns.
// Save and Load keep both sets and the valid flag in one .fxd file of no frames at
// the path (the sets in its settings tree); a failed Load leaves the store as it was.
class ReferenceEcholine : public Reference {
public:
    explicit ReferenceEcholine(const std::string& path = "");
    ~ReferenceEcholine() override;

    void Save() override;
    void Load() override;

    std::set<int> singleLines;
    std::set<int> doubleLines;
};

#endif
