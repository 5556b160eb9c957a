#pragma once

#include "prelude.h"

namespace tarvex::test {

inline std::string xmlPropertyList(std::string_view root) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>)"
           "\n<plist version=\"1.0\">" +
           std::string(root) + "</plist>\n";
}

/// An Info.plist that only names the bundle.
inline std::string informationWithIdentifier(std::string_view identifier) {
    return xmlPropertyList("<dict><key>CFBundleIdentifier</key><string>" + std::string(identifier) +
                           "</string></dict>");
}

inline std::string bigEndian(std::uint64_t value, std::size_t width) {
    std::string bytes(width, '\0');
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, value >>= 8U)
        *byte = static_cast<char>(value & 0xffU);
    return bytes;
}

/// A binary property list of encoded objects, the first being the root; references between them are `reference`s.
inline std::string binaryPropertyList(const std::vector<std::string>& objects) {
    std::string list = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += bigEndian(list.size(), 4);
        list += object;
    }
    const std::size_t table = list.size();
    return list + offsets + std::string(6, '\0') + "\x04\x04" + bigEndian(objects.size(), 8) + bigEndian(0, 8) +
           bigEndian(table, 8);
}

inline std::string reference(std::size_t object) {
    return bigEndian(object, 4);
}
inline std::string binaryText(std::string_view text) {
    return static_cast<char>(0x50 + text.size()) + std::string(text);
}

}  // namespace tarvex::test
