// The plain values of the public interface, and the view for hosts without a screen.

#include <unordered_set>

#include "prelude.h"
#include "tarvex/data_reader.h"
#include "tarvex/tarvex_error.h"
#include "tarvex/url.h"
#include "tarvex/uuid.h"
#include "tarvex/view.h"

namespace tarvex {
namespace {

TEST(DataReader, IsEqualInKindAndRateOnly) {
    const auto distance = &DataReader::distance;
    const auto light = &DataReader::ambientLight;
    const std::unordered_set<DataReader> distinct{distance(std::nullopt), distance(0), distance(1), distance(1),
                                                  light(std::nullopt),    light(0)};
    EXPECT_THAT(distinct, SizeIs(5));
    EXPECT_EQ(DataReader::distance(5).kindKey(), DataReader::distance(std::nullopt));
}

TEST(TarvexError, DescribesItsPayloadAndBridgesItsCode) {
    const auto missing = TarvexError::usageDescription("NSCameraUsageDescription").bridged();
    const auto failed = TarvexError::httpError("timed out").bridged();
    EXPECT_EQ(missing.domain + ": " + missing.localizedDescription,
              "Tarvex.TarvexError: NSCameraUsageDescription is not in the info.plist.");
    EXPECT_EQ(failed.localizedDescription, "HTTPError: timed out");
    EXPECT_EQ(failed.code, 1);
}

TEST(Uuid, IsRandomAndOfVersionFour) {
    const Uuid uuid{{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
    EXPECT_EQ(uuid.uuidString(), "00112233-4455-6677-8899-AABBCCDDEEFF");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string text = Uuid::random().uuidString();
        EXPECT_THAT(text, MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
        EXPECT_TRUE(seen.insert(text).second);
    }
}

TEST(Url, TakesAbsoluteUrlsOnly) {
    for (const char* text : {"https://backend.example/tracking", "mailto:study@example.org", "h+t.p-1:",
                             "https://[::1]:8443/a?b#c", "https://a:b@c:65535/%4e[x]?[y]", "file:///", "https://a:/"})
        EXPECT_EQ(Url::parse(text).value().string(), text);
    for (const std::string_view text : std::initializer_list<std::string_view>{
             "", ":a", "tracking", "/tracking", "//host/path", "https://a b/", "1http://a", "a_b://c",
             "https://host:port/", "https://a:65536/", "https://ex\xc3\xa4mple.org/", "https://a/#b#c", "https://a/%4",
             "https://a/%4g", "https://[::1", "https://[::1]a", "https://[x]", "https://a[1]",
             std::string_view("https://a/\0b", 12)})
        EXPECT_FALSE(Url::parse(text).has_value()) << text;
}

TEST(ViewDeathTest, HasOneParentAndIsNeverItsOwnAndBelongsToOneThread) {
    const auto first = makeHeadlessView();
    const auto second = makeHeadlessView();
    const auto child = makeHeadlessView();
    const auto other = makeHeadlessView();
    using Added = std::pair<std::shared_ptr<View>, std::shared_ptr<View>>;
    for (const auto& [parent, added] :
         {Added{first, child}, Added{second, child}, Added{second, other}, Added{second, child}, Added{first, second},
          Added{child, first}, Added{child, second}, Added{child, child}, Added{child, nullptr}})
        parent->addSubview(added);
    EXPECT_THAT(first->subviews(), ElementsAre(second));
    EXPECT_THAT(second->subviews(), ElementsAre(other, child));
    EXPECT_THAT(child->subviews(), IsEmpty());
    makeHeadlessView()->addSubview(other);
    first->addSubview(other);
    EXPECT_THAT(first->subviews(), ElementsAre(second, other)) << "the parent between is gone";
    {
        const auto lent = makeHeadlessView();
        first->addSubview({lent.get(), [](View* /*not owned*/) {}});
    }
    EXPECT_THAT(first->subviews(), ElementsAre(second, other)) << "a lent view leaves its parent when it ends";
    EXPECT_DEBUG_DEATH(std::jthread([&] { child->addSubview(makeHeadlessView()); }).join(), "thread-bound");
}

}  // namespace
}  // namespace tarvex
