#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/plist/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto list = tarvex::platform::PropertyList::parse({reinterpret_cast<const char*>(data), size});
    if (!list) return 0;
    // A string that is there is also contained.
    for (const std::string_view key : {"CFBundleIdentifier", "CFBundleName", "a", ""}) {
        if (list->stringForKey(key) && !list->contains(key)) std::abort();
    }
    return 0;
}
