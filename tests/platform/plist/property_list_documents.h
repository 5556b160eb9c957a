#pragma once

#include "prelude.h"

namespace tarvex::test {

inline std::string xmlPropertyList(const std::string& root) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + root + "</plist>\n";
}

/// An Info.plist that only names the bundle.
inline std::string informationWithIdentifier(const std::string& identifier) {
    return xmlPropertyList("<dict><key>CFBundleIdentifier</key><string>" + identifier + "</string></dict>");
}

}  // namespace tarvex::test
