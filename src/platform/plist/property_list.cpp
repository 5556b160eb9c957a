#include "platform/plist/property_list.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "platform/glib/text.h"
#include "platform/shared/handle.h"
#include "platform/shared/regular_file.h"

namespace tarvex::platform {
namespace {

using Plist = Handle<void, plist_free>;
using AllocatedText = Handle<char, std::free>;
using DictionaryIterator = Handle<void, std::free>;

std::size_t count(std::string_view text, std::string_view pattern) {
    std::size_t occurrences = 0;
    for (auto at = text.find(pattern); at != std::string_view::npos; at = text.find(pattern, at + pattern.size()))
        ++occurrences;
    return occurrences;
}

// Removes the white space and the comments that may follow a document.
std::string_view trimmed(std::string_view text) {
    constexpr std::size_t shortestComment = std::string_view("<!---->").size();
    while (true) {
        text = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
        if (!text.ends_with("-->") || text.size() < shortestComment) return text;
        const auto comment = text.rfind("<!--", text.size() - shortestComment);
        if (comment == std::string_view::npos) return text;
        text = text.substr(0, comment);
    }
}

// libplist stops reading where the root dictionary ends.
bool isWhole(std::string_view text) {
    return !text.contains("<plist") || trimmed(text).ends_with("</plist>");
}

// libplist frees nested containers recursively and replaces entities in quadratic time: both are bounded by their
// number. Text ends at U+0000 there, and its encoding is not checked.
bool isSafeXmlPropertyList(std::string_view text) {
    constexpr std::size_t maximumContainers = 4000;
    constexpr std::size_t maximumEntities = 10'000;
    return count(text, "<dict") + count(text, "<array") <= maximumContainers && count(text, "&") <= maximumEntities &&
           isUtf8(text) && isWhole(text);
}

std::optional<std::string> stringValue(plist_t node) {
    if (plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(length));
}

/// Absent when a text is not Unicode: references like &#xD800; make such text of valid bytes.
std::optional<PropertyList::Entries> entriesOf(plist_t dictionary) {
    plist_dict_iter started = nullptr;
    plist_dict_new_iter(dictionary, &started);
    const DictionaryIterator iterator(started);
    PropertyList::Entries entries;
    while (true) {
        char* allocated = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, iterator.get(), &allocated, &value);
        const AllocatedText key(allocated);
        if (value == nullptr) return entries;
        std::string name = key ? key.get() : "";
        auto text = stringValue(value);
        if (!isUtf8(name) || !isUtf8(text.value_or(""))) return std::nullopt;
        entries.insert_or_assign(std::move(name), std::move(text));
    }
}

}  // namespace

std::unique_ptr<PropertyList> PropertyList::withContentsOfFile(const std::filesystem::path& path) {
    const auto contents = contentsOfRegularFile(path, maximumSize);
    return contents ? parse(*contents) : nullptr;
}

std::unique_ptr<PropertyList> PropertyList::parse(std::string_view bytes) {
    if (bytes.size() > maximumSize) return nullptr;
    const bool isBinary = plist_is_binary(bytes.data(), static_cast<std::uint32_t>(bytes.size())) != 0;
    if (isBinary ? !isSafeBinaryPropertyList(bytes) : !isSafeXmlPropertyList(bytes)) return nullptr;

    plist_t parsed = nullptr;
    // Not plist_from_memory: its arguments differ between versions, and later ones read formats that are none here.
    (isBinary ? plist_from_bin : plist_from_xml)(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &parsed);
    const Plist root(parsed);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return nullptr;

    auto entries = entriesOf(root.get());
    return entries ? std::make_unique<PropertyList>(*std::move(entries)) : nullptr;
}

std::unique_ptr<PropertyList> PropertyList::withGapsFilled(const Entries& others) const {
    Entries all = entries_;
    all.insert(others.begin(), others.end());
    return std::make_unique<PropertyList>(std::move(all));
}

bool PropertyList::contains(std::string_view key) const {
    return entries_.contains(key);
}

std::optional<std::string> PropertyList::stringForKey(std::string_view key) const {
    const auto entry = entries_.find(key);
    return entry == entries_.end() ? std::nullopt : entry->second;
}

}  // namespace tarvex::platform
