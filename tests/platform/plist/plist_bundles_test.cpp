#include "platform/plist/plist_bundles.h"

#include "prelude.h"
#include "property_list_documents.h"

namespace tarvex::platform {
namespace {

using namespace test;

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
