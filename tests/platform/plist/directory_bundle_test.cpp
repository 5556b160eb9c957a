#include "platform/plist/plist_bundles.h"

#include "prelude.h"
#include "property_list_documents.h"

namespace tarvex::platform {
namespace {

using namespace test;

std::string named(const std::string& name) {
    return xmlPropertyList("<dict><key>CFBundleName</key>" + name + "</dict>");
}

TEST(DirectoryBundle, PrefersTheLocalizedStringOfTheMessageLanguage) {
    const TemporaryDirectory directory;
    writeFile(directory.path() / "Info.plist", named("<string>Light</string>"));
    writeFile(directory.path() / "de.lproj/InfoPlist.strings", named("<string>Licht</string>"));
    writeFile(directory.path() / "de-CH.lproj/InfoPlist.strings", named("<string>Liecht</string>"));
    writeFile(directory.path() / "fr.lproj/InfoPlist.strings", named("<integer>7</integer>"));
    writeFile(directory.path() / "nl.lproj/InfoPlist.strings", "damaged");
    writeFile(directory.path() / "outside/InfoPlist.strings", named("<string>Outside</string>"));
    const DirectoryBundle bundle(directory.path());

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
        EXPECT_EQ(bundle.stringForInfoDictionaryKey("CFBundleName").value_or(noString), name)
            << language << "/" << locale;
    }
}

TEST(DirectoryBundle, ReadsItsListAfreshAndNeverLocalizesTheIdentifier) {
    const TemporaryDirectory directory;
    const DirectoryBundle bundle(directory.path());
    ::setenv("LANGUAGE", "de", 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_EQ(bundle.bundleIdentifier(), std::nullopt);
    EXPECT_EQ(bundle.pathForResource("Info", "plist"), std::nullopt);

    writeFile(directory.path() / "Info.plist", informationWithIdentifier("org.example.light"));
    writeFile(directory.path() / "de.lproj/InfoPlist.strings", informationWithIdentifier("org.example.licht"));
    EXPECT_EQ(bundle.bundleIdentifier(), "org.example.light");
    EXPECT_EQ(bundle.pathForResource("Info", "plist"), directory.path() / "Info.plist");

    writeFile(directory.path() / "Info.plist", "damaged");
    EXPECT_EQ(bundle.bundleIdentifier(), std::nullopt);
    EXPECT_EQ(bundle.pathForResource("Info", "plist"), directory.path() / "Info.plist");
}

TEST(LibraryBundle, FindsResourcesBesideOrAboveTheLibrary) {
    const TemporaryDirectory prefix;
    const LibraryBundle plain(prefix.path() / "lib");
    const LibraryBundle multiarch(prefix.path() / "lib/x86_64-linux-gnu");
    const auto model = prefix.path() / "share/tarvex/Model.momd";
    EXPECT_EQ(plain.pathForResource("Model", "momd"), std::nullopt);

    writeFile(model, "");
    EXPECT_EQ(plain.pathForResource("Model", "momd"), model);
    EXPECT_EQ(multiarch.pathForResource("Model", "momd"), model);
    EXPECT_EQ(plain.pathForResource("Other", "momd"), std::nullopt);
}

TEST(PlistBundles, KnowTheHostAndTheLibrary) {
    const TemporaryDirectory directory;
    writeFile(directory.path() / "Info.plist", informationWithIdentifier("org.example.light"));
    const PlistBundles bundles(directory.path());

    EXPECT_EQ(bundles.mainBundle().bundleIdentifier(), "org.example.light");
    EXPECT_EQ(bundles.bundleWithIdentifier("org.example.light"), &bundles.mainBundle());
    EXPECT_EQ(bundles.bundleWithIdentifier("org.example.other"), nullptr);
    const Bundle* library = bundles.bundleWithIdentifier(libraryBundleIdentifier);
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(library->bundleIdentifier(), libraryBundleIdentifier);
    EXPECT_TRUE(library->pathForResource("TrackingDataContainer", "momd"));
}

}  // namespace
}  // namespace tarvex::platform
