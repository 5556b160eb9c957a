#include "platform/plist/property_list.h"

#include <plist/plist.h>
#include <sys/stat.h>

#include "platform/shared/handle.h"
#include "prelude.h"
#include "property_list_documents.h"

namespace tarvex::platform {
namespace {

using namespace test;

constexpr std::size_t deep = 100'000;

std::string repeated(std::string_view text, std::size_t times) {
    std::string result;
    while (times-- > 0)
        result += text;
    return result;
}

std::string bigEndian(std::uint64_t value, std::size_t width) {
    std::string bytes(width, '\0');
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, value >>= 8U)
        *byte = static_cast<char>(value & 0xffU);
    return bytes;
}

/// A binary property list of encoded objects, the first being the root; references between them are `reference`s.
std::string binaryPropertyList(const std::vector<std::string>& objects) {
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

std::string reference(std::size_t object) {
    return bigEndian(object, 4);
}

std::string binaryText(std::string_view text) {
    return static_cast<char>(0x50 + text.size()) + std::string(text);
}

std::string asBinary(const std::string& xml) {
    plist_t list = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &list);
    const Handle<void, plist_free> owner(list);
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(list, &bytes, &length);
    const Handle<char, plist_to_bin_free> binary(bytes);
    return {bytes, length};
}

std::string host() {
    return xmlPropertyList(
        "<dict><key>CFBundleName</key><string>Lichtprotokoll für Ärzte 🔆</string>"
        "<key>Empty</key><string></string><key>Number</key><integer>7</integer><key>Real</key><real>0.5</real>"
        "<key>Flag</key><true/><key>Day</key><date>2024-02-29T00:00:00Z</date><key>Bytes</key><data>AAEC</data>"
        "<key>List</key><array><dict><key>Deep</key><array><string>a</string></array></dict></array>"
        "<key>A name that is longer than fifteen bytes</key><string>&lt;&amp;&gt;</string></dict>");
}

// A dictionary whose one value is the chain of `containers`, each a reference to the next object.
std::string binaryChain(const std::vector<std::string>& containers) {
    std::vector<std::string> objects{"\xd1" + reference(1) + reference(2), binaryText("a")};
    objects.insert(objects.end(), containers.begin(), containers.end());
    objects.emplace_back("\x09");
    return binaryPropertyList(objects);
}

// Arrays in each other, each of `width` times the next.
std::string nestedArrays(std::size_t levels, unsigned char width = 1) {
    std::vector<std::string> arrays;
    for (std::size_t level = 0; level < levels; ++level)
        arrays.push_back(static_cast<char>(0xa0 + width) + repeated(reference(level + 3), width));
    return binaryChain(arrays);
}

std::string nestedXmlArrays(std::size_t levels) {
    return xmlPropertyList("<dict><key>a</key>" + repeated("<array>", levels) + repeated("</array>", levels) +
                           "</dict>");
}

std::string xmlWithText(const std::string& text) {
    return xmlPropertyList("<dict><key>a</key><string>" + text + "</string></dict>");
}

std::string binaryWithText(const std::string& encoded) {
    return binaryPropertyList({"\xd1" + reference(1) + reference(2), binaryText("a"), encoded});
}

TEST(PropertyList, ReadsTheRootDictionaryOfXmlAndBinaryAndRefusesEveryTruncation) {
    for (const std::string& bytes : {host(), asBinary(host())}) {
        const auto list = PropertyList::parse(bytes);
        ASSERT_TRUE(list);
        EXPECT_EQ(list->stringForKey("CFBundleName"), "Lichtprotokoll für Ärzte 🔆");
        EXPECT_EQ(list->stringForKey("Empty"), "");
        EXPECT_EQ(list->stringForKey("A name that is longer than fifteen bytes"), "<&>");
        for (const char* key : {"Number", "Real", "Flag", "Day", "Bytes", "List"}) {
            EXPECT_TRUE(list->contains(key)) << key;
            EXPECT_EQ(list->stringForKey(key), std::nullopt) << key;
        }
        EXPECT_FALSE(list->contains("Deep"));
        EXPECT_FALSE(list->contains(std::string_view("Flag\0", 5)));
        // The white space at the end of the XML document is no part of the list.
        const std::size_t whole = bytes.ends_with(">\n") ? bytes.size() - 1 : bytes.size();
        for (std::size_t length = 0; length < whole; ++length)
            EXPECT_FALSE(PropertyList::parse(std::string_view(bytes).substr(0, length))) << length;
    }
}

TEST(PropertyList, TakesWhiteSpaceAndCommentsAfterTheList) {
    const std::string list = xmlWithText("b");
    for (const char* right : {"", "\r\n\t ", "<!-- -->", "<!---->", " <!-- </plist> -->\n<!-- -> --> "})
        EXPECT_TRUE(PropertyList::parse(list + right)) << right;
    for (const char* wrong : {"-->", "<!-->", "<!--->", "<!-- ", "<!-- --> <!-", "b<!-- -->", "<!-- -->b"})
        EXPECT_FALSE(PropertyList::parse(list + wrong)) << wrong;
    EXPECT_FALSE(PropertyList::parse("<plist><dict><key>a</key><string>b</string><!-- </plist> -->"));
}

TEST(PropertyList, RefusesWhatIsNoUnicodeDictionaryOrWouldExhaustTheReader) {
    const std::string dictionary = "\xd1" + reference(1) + reference(2);
    const std::string name = binaryText("a");
    for (const std::string& right : {xmlWithText("b"), binaryWithText(name), nestedXmlArrays(500), nestedArrays(500)})
        EXPECT_TRUE(PropertyList::parse(right)) << "what the cases below break";
    using Case = std::pair<const char*, std::string>;
    for (const auto& [what, bytes] :
         {Case{"garbage", "no property list at all"},
          Case{"old-style text", R"({ CFBundleName = "Light"; })"},
          Case{"an array", xmlPropertyList("<array><string>a</string></array>")},
          Case{"a binary array", binaryPropertyList({"\xa1" + reference(1), name})},
          Case{"a declared entity", "<!DOCTYPE plist [<!ENTITY a \"b\">]>" + xmlWithText("&a;")},
          Case{"bytes that are not UTF-8", xmlWithText("\xc3")},
          Case{"a reference to no character", xmlWithText("&#xD800;")},
          Case{"a reference to U+0000", xmlWithText("&#0;")},
          Case{"a NUL in XML", xmlWithText(std::string("b\0c", 3))},
          Case{"binary text past ASCII", binaryWithText(binaryText("\xff"))},
          Case{"a NUL in binary text", binaryWithText(binaryText(std::string_view("x\0y", 3)))},
          Case{"a lone high surrogate", binaryWithText("\x61\xd8\x01")},
          Case{"a lone low surrogate", binaryWithText("\x62\xdc\x01 x")},
          Case{"a key that is no string", binaryPropertyList({dictionary, "\x10\x05", name})},
          Case{"a reference to nowhere", binaryPropertyList({dictionary, name})},
          Case{"deep XML", nestedXmlArrays(deep)},
          Case{"deep XML, never closed", "<plist><dict><key>a</key>" + repeated("<array>", deep)},
          Case{"deep XML dictionaries",
               xmlPropertyList(repeated("<dict><key>a</key>", deep) + "<true/>" + repeated("</dict>", deep))},
          Case{"a text of a million entities", xmlWithText(repeated("&lt;", 1'000'000))},
          Case{"deep binary", nestedArrays(deep)},
          Case{"an array that holds itself", binaryChain({"\xa1" + reference(2)})},
          Case{"an array that holds the root", binaryChain({"\xa1" + reference(0)})},
          Case{"a billion values in a kilobyte", nestedArrays(9, 10)},
          Case{"a length past the end", binaryChain({"\xaf\x13" + bigEndian(~std::uint64_t{0}, 8)})}})
        EXPECT_FALSE(PropertyList::parse(bytes)) << what;
}

TEST(PropertyList, ReadsRegularFilesUpToItsLimitAndWaitsForNothingElse) {
    const TemporaryDirectory directory;
    const auto file = directory.path() / "Info.plist";
    const std::string list = host();
    const std::string largest = list + std::string(PropertyList::maximumSize - list.size(), '\n');
    writeFile(file, largest);
    ASSERT_TRUE(PropertyList::withContentsOfFile(file));
    EXPECT_EQ(PropertyList::withContentsOfFile(file)->stringForKey("Empty"), "");
    writeFile(file, largest + "\n");
    EXPECT_FALSE(PropertyList::withContentsOfFile(file));

    const auto fifo = directory.path() / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::filesystem::create_symlink("loop", directory.path() / "loop");
    for (const auto& path : {fifo, directory.path(), directory.path() / "loop", directory.path() / "missing",
                             std::filesystem::path("/dev/zero")})
        EXPECT_FALSE(PropertyList::withContentsOfFile(path)) << path;
}

}  // namespace
}  // namespace tarvex::platform
