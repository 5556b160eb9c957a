// Property lists, and the bundles that they describe.

#include <plist/plist.h>
#include <sys/stat.h>

#include "platform/plist/plist_bundles.h"
#include "platform/plist/property_list.h"
#include "platform/plist/property_list_documents.h"
#include "platform/shared/handle.h"
#include "prelude.h"

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

std::string bigEndian(std::uint64_t value, std::size_t width = 8) {
    std::string bytes;
    while (width-- > 0)
        bytes += static_cast<char>(value >> 8 * width);
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
    return list + offsets + std::string(6, '\0') + "\x04\x04" + bigEndian(objects.size()) + bigEndian(0) +
           bigEndian(list.size());
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
    const Handle<char, std::free> binary(bytes);  // what libplist's function does; its name differs between versions
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

// A dictionary whose one value is the first of `objects`, which are followed by a flag for the last to hold.
std::string binaryWithValue(std::vector<std::string> objects) {
    objects.insert(objects.begin(), {"\xd1" + reference(1) + reference(2), binaryText("a")});
    objects.emplace_back("\x09");
    return binaryPropertyList(objects);
}

// Arrays in each other, each of `width` times the next.
std::string nestedArrays(std::size_t levels, unsigned char width = 1) {
    std::vector<std::string> arrays;
    for (std::size_t level = 0; level < levels; ++level)
        arrays.push_back(static_cast<char>(0xa0 + width) + repeated(reference(level + 3), width));
    return binaryWithValue(arrays);
}

std::string xmlWithValue(const std::string& value) {
    return xmlPropertyList("<dict><key>a</key>" + value + "</dict>");
}

std::string nestedXmlArrays(std::size_t levels) {
    return xmlWithValue(repeated("<array>", levels) + repeated("</array>", levels));
}

std::string xmlWithText(const std::string& text) {
    return xmlWithValue("<string>" + text + "</string>");
}

TEST(PropertyList, ReadsTheRootDictionaryOfXmlAndBinaryAndRefusesEveryTruncation) {
    for (const std::string& bytes : {host(), asBinary(host())}) {
        const auto list = PropertyList::parse(bytes);
        ASSERT_TRUE(list);
        EXPECT_EQ(list->stringForKey("CFBundleName"), "Lichtprotokoll für Ärzte 🔆");
        EXPECT_EQ(list->stringForKey("Empty"), "");
        EXPECT_EQ(list->stringForKey("A name that is longer than fifteen bytes"), "<&>");
        for (const char* key : {"Number", "Real", "Flag", "Day", "Bytes", "List"})
            EXPECT_TRUE(list->contains(key) && !list->stringForKey(key)) << key;
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
    const std::string name = binaryText("a");
    for (const std::string& right :
         {xmlWithText("b"), binaryWithValue({name}), nestedXmlArrays(500), nestedArrays(500)})
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
          Case{"binary text past ASCII", binaryWithValue({binaryText("\xff")})},
          Case{"a NUL in binary text", binaryWithValue({binaryText(std::string_view("x\0y", 3))})},
          Case{"a lone high surrogate", binaryWithValue({"\x61\xd8\x01"})},
          Case{"a lone low surrogate", binaryWithValue({"\x62\xdc\x01 x"})},
          Case{"a key that is no string", binaryPropertyList({"\xd1" + reference(1) + reference(2), "\x10\x05", name})},
          Case{"a reference to nowhere", binaryWithValue({"\xa1" + reference(9)})},
          Case{"deep XML", nestedXmlArrays(deep)},
          Case{"deep XML, never closed", "<plist><dict><key>a</key>" + repeated("<array>", deep)},
          Case{"deep XML dictionaries",
               xmlPropertyList(repeated("<dict><key>a</key>", deep) + "<true/>" + repeated("</dict>", deep))},
          Case{"a text of a million entities", xmlWithText(repeated("&lt;", 1'000'000))},
          Case{"deep binary", nestedArrays(deep)},
          Case{"an array that holds itself", binaryWithValue({"\xa1" + reference(2)})},
          Case{"an array that holds the root", binaryWithValue({"\xa1" + reference(0)})},
          Case{"a billion values in a kilobyte", nestedArrays(9, 10)},
          Case{"a length past the end", binaryWithValue({"\xaf\x13" + bigEndian(~std::uint64_t{0})})}})
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
                             std::filesystem::path("/dev/zero"), std::filesystem::path("/dev/ptmx")})
        EXPECT_FALSE(PropertyList::withContentsOfFile(path)) << path;
}

TEST(DirectoryBundle, PrefersTheLocalizedStringOfTheMessageLanguage) {
    const TemporaryDirectory directory;
    const auto write = [&](const char* file, const std::string& name) {
        writeFile(directory.path() / file, xmlPropertyList("<dict><key>CFBundleName</key>" + name + "</dict>"));
    };
    write("Info.plist", "<string>Light</string>");
    write("de.lproj/InfoPlist.strings", "<string>Licht</string>");
    write("de-CH.lproj/InfoPlist.strings", "<string>Liecht</string>");
    write("fr.lproj/InfoPlist.strings", "<integer>7</integer>");
    write("nl.lproj/InfoPlist.strings", "damaged");
    write("outside/InfoPlist.strings", "<string>Outside</string>");

    constexpr const char* noString = "absent";
    using Case = std::array<const char*, 3>;
    for (const auto& [language, locale, name] :
         {Case{"", "de_DE.UTF-8", "Licht"}, Case{"", "de_CH.UTF-8", "Liecht"}, Case{"", "C.UTF-8", "Light"},
          Case{"de", "C.UTF-8", "Licht"}, Case{"sv:de_CH:en", "C.UTF-8", "Liecht"}, Case{"fr:de", "C.UTF-8", noString},
          Case{"nl:de", "C.UTF-8", "Licht"}, Case{"../outside", "C.UTF-8", "Light"}, Case{"de", "C", "Light"},
          Case{"de", "POSIX", "Light"}, Case{"de", "", "Light"}}) {
        ::setenv("LANGUAGE", language, 1);
        ::setenv("LC_ALL", locale, 1);
        for (const char* lesser : {"LC_MESSAGES", "LANG"})
            ::unsetenv(lesser);
        EXPECT_EQ(DirectoryBundle(directory.path()).stringForInfoDictionaryKey("CFBundleName").value_or(noString), name)
            << language << "/" << locale;
    }
}

TEST(DirectoryBundle, ReadsItsListAfreshAndNeverLocalizesTheIdentifier) {
    const TemporaryDirectory directory;
    const DirectoryBundle bundle(directory.path());
    const auto file = directory.path() / "Info.plist";
    ::setenv("LANGUAGE", "de", 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_EQ(bundle.bundleIdentifier(), std::nullopt);
    EXPECT_EQ(bundle.pathForResource("Info", "plist"), std::nullopt);

    writeFile(file, informationWithIdentifier("org.example.light"));
    writeFile(directory.path() / "de.lproj/InfoPlist.strings", informationWithIdentifier("org.example.licht"));
    EXPECT_EQ(bundle.bundleIdentifier(), "org.example.light");

    writeFile(file, "damaged");
    EXPECT_EQ(bundle.bundleIdentifier(), std::nullopt);
    EXPECT_EQ(bundle.pathForResource("Info", "plist"), file);
}

TEST(PlistBundles, KnowTheHostAndTheLibraryWhoseResourcesLieBesideOrAboveIt) {
    const TemporaryDirectory directory;
    writeFile(directory.path() / "Info.plist", informationWithIdentifier("org.example.light"));
    const PlistBundles bundles(directory.path());
    EXPECT_EQ(bundles.bundleWithIdentifier("org.example.light"), &bundles.mainBundle());
    EXPECT_EQ(bundles.bundleWithIdentifier("org.example.other"), nullptr);
    const Bundle* library = bundles.bundleWithIdentifier(libraryBundleIdentifier);
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(library->bundleIdentifier(), libraryBundleIdentifier);
    EXPECT_TRUE(library->pathForResource("TrackingDataContainer", "momd"));

    const auto model = directory.path() / "share/tarvex/Model.momd";
    writeFile(model, "");
    for (const char* place : {"lib", "lib/x86_64-linux-gnu"}) {
        const LibraryBundle bundle(directory.path() / place);
        EXPECT_EQ(bundle.pathForResource("Model", "momd"), model);
        EXPECT_EQ(bundle.pathForResource("Other", "momd"), std::nullopt);
    }
}

}  // namespace
}  // namespace tarvex::platform
