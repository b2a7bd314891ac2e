#ifndef ORVANE_PARAMETERS_PARAMETERSSET_H
#define ORVANE_PARAMETERS_PARAMETERSSET_H

#include <map>
#include <string>

// A table of parameter records of type R by detector key. Keys are "<model>" or
// "<model>.*.m<n>" ('*' is an ordinary character), and "" is the default row.
//
// A key that is not stored finds its row by find_nearest: for "Hazel.A12.m3" the
// trials are "Hazel.*.m3", "Hazel.A12", "Hazel", "". A concrete set writes its rows
// in its constructor through row(), which starts a new row as a copy of the row
// its key finds then: rows are written as differences from their ancestors, and
// the order of the writes is part of what the rows come to be.
//
// Not locked: a lookup that ends on a missing default row inserts one.
template <typename R>
class ParametersSet {
public:
    virtual ~ParametersSet() = default;

    // The row for a key: exact or nearest in overrideRows, then in baseRows, then
    // the default row, which is created default-constructed if the set has none.
    const R& lookup(const std::string& key) {
        if (const R* found = FindExactOrNearest(overrideRows, key)) {
            return *found;
        }
        if (const R* found = FindExactOrNearest(baseRows, key)) {
            return *found;
        }
        return baseRows[""];
    }

    // Whether the row that lookup gives `key` is a row of its own (stored under the key
    // or under an ancestor the nearest-key search reaches) rather than the default ""
    // row, which only carries what every model shares. Inserts nothing.
    bool HasOwnRow(const std::string& key) const {
        const std::map<std::string, R>& rows = FindExactOrNearest(overrideRows, key) ? overrideRows : baseRows;
        const R* found = FindExactOrNearest(rows, key);
        return found != nullptr && found != Find(rows, "");
    }

    const std::map<std::string, R>& GetBaseRows() const { return baseRows; }

    // The row that the nearest-key search gives to `key`, or null; never the row
    // stored under `key` itself unless the search reaches it.
    static const R* find_nearest(const std::map<std::string, R>& rows, const std::string& key) {
        std::string s = key;
        std::string::size_type p = s.rfind('.');
        while (p != std::string::npos) {
            // Wildcard trials: each earlier component boundary q gives s[0..q] + "*" + s[p..].
            std::string::size_type q = LastDotBefore(s, p);
            while (q != std::string::npos) {
                const std::string trial = s.substr(0, q + 1) + "*" + s.substr(p);
                if (const R* found = Find(rows, trial)) {
                    return found;
                }
                q = LastDotBefore(s, q);
            }
            s.resize(p);
            if (const R* found = Find(rows, s)) {
                return found;
            }
            p = s.rfind('.');
        }
        return Find(rows, "");
    }

protected:
    ParametersSet() = default;

    // The row of `key`, created as a copy of its nearest row (or default-constructed)
    // if it is not stored yet.
    R& row(const std::string& key) {
        const auto it = baseRows.find(key);
        if (it != baseRows.end()) {
            return it->second;
        }
        const R* nearest = find_nearest(baseRows, key);
        return baseRows.emplace(key, nearest ? R(*nearest) : R()).first->second;
    }

    std::map<std::string, R> baseRows;
    std::map<std::string, R> overrideRows;

private:
    static const R* Find(const std::map<std::string, R>& rows, const std::string& key) {
        const auto it = rows.find(key);
        return it == rows.end() ? nullptr : &it->second;
    }

    static const R* FindExactOrNearest(const std::map<std::string, R>& rows, const std::string& key) {
        const R* found = Find(rows, key);
        return found ? found : find_nearest(rows, key);
    }

    static std::string::size_type LastDotBefore(const std::string& s, std::string::size_type position) {
        return position == 0 ? std::string::npos : s.rfind('.', position - 1);
    }
};

#endif
