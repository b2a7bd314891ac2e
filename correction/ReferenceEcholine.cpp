#include "interfaces/ReferenceEcholine.h"

#include "correction/ReferenceFile.h"

#include <boost/property_tree/ptree.hpp>

#include <cstddef>
#include <exception>
#include <sstream>

ReferenceEcholine::ReferenceEcholine(const std::string& path) : Reference(path) {}

ReferenceEcholine::~ReferenceEcholine() = default;

namespace {

const char* const kKind = "ReferenceEcholine";

// A set as settings text: its numbers in ascending order, separated by blanks.
std::string LinesText(const std::set<int>& lines) {
    std::string text;
    for (int line : lines) {
        text += (text.empty() ? "" : " ") + std::to_string(line);
    }
    return text;
}

// Reads the set stored under `key`; a missing key or anything but blank-separated
// integers fails as an unreadable file.
std::set<int> ReadLines(const boost::property_tree::ptree& settings, const std::string& key,
                        const std::string& path) {
    const auto text = settings.get_optional<std::string>(key);
    if (!text) {
        orvane::detail::ReferenceFileError(kKind, "load", path, "it holds no " + key);
    }
    std::istringstream stream(*text);
    std::set<int> lines;
    std::string token;
    while (stream >> token) {
        std::size_t used = 0;
        int line = 0;
        try {
            line = std::stoi(token, &used);
        } catch (const std::exception&) {
            used = 0;
        }
        if (used != token.size()) {
            orvane::detail::ReferenceFileError(kKind, "load", path,
                                               "its " + key + " '" + *text + "' are unreadable");
        }
        lines.insert(line);
    }
    return lines;
}

}  // namespace

void ReferenceEcholine::Save() {
    if (GetPath().empty()) {
        return;
    }
    boost::property_tree::ptree settings;
    settings.put("singleLines", LinesText(singleLines));
    settings.put("doubleLines", LinesText(doubleLines));
    orvane::detail::WriteReferenceFile<unsigned char>(*this, kKind, {}, settings);
}

void ReferenceEcholine::Load() {
    if (GetPath().empty()) {
        return;
    }
    auto content = orvane::detail::ReadReferenceFile<unsigned char>(*this, kKind, 0, 0, 0);
    std::set<int> singles = ReadLines(content.settings, "singleLines", GetPath());
    std::set<int> doubles = ReadLines(content.settings, "doubleLines", GetPath());
    orvane::detail::CommitReferenceFile<unsigned char>(*this, content, {});
    singleLines.swap(singles);
    doubleLines.swap(doubles);
}
