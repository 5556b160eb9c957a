// A stored value map of any bytes. What reaches the document is a map of finite numbers, and the same map that the
// decoder reads; what the decoder refuses never reaches it.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "storage/tracking_data.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    static tarvex::platform::ValueMapAppender values;
    const auto expected = tarvex::decodeValueMap(text);

    tarvex::platform::ByteBuffer document;
    document.append("[");
    const bool taken = values.append(text, document);
    require(taken == expected.has_value());
    if (!taken) {
        require(document.view() == "[");
        return 0;
    }
    const std::string_view written = document.view().substr(1);
    require(tarvex::decodeValueMap(written) == expected);
    require(written.find_first_of("\n\r\t") == std::string_view::npos);
    return 0;
}
