#include "platform/gtk/wording.h"

#include <gtk/gtk.h>
#include <libintl.h>

#include <algorithm>
#include <array>
#include <utility>
#include <variant>
#include <vector>

#include "platform/shared/handle.h"

namespace tarvex::gtk {

namespace {

using Characters = platform::Handle<char, g_free>;

constexpr std::string_view placeholder = "%@";

std::size_t placeholdersIn(std::string_view text) {
    std::size_t count = 0;
    for (auto at = text.find(placeholder); at != std::string_view::npos; at = text.find(placeholder, at + 2))
        ++count;
    return count;
}

// gettext returns text in the locale's character set, unless the host has bound its domain to another.
std::string inUtf8(const char* translation) {
    if (g_utf8_validate(translation, -1, nullptr) != 0) return translation;
    const Characters converted(g_locale_to_utf8(translation, -1, nullptr, nullptr, nullptr));
    return converted ? converted.get() : validText(translation);
}

std::string translated(const std::string& key) {
    if (key.empty()) return key;  // the entry of the empty key is the catalogue's header
    std::string translation = inUtf8(gettext(key.c_str()));
    return placeholdersIn(translation) == placeholdersIn(key) ? translation : validText(key);
}

// Blocks that Unicode reserves for right-to-left scripts, and its direction marks.
bool changesDirection(gunichar c) {
    struct Range {
        gunichar first;
        gunichar last;
    };
    constexpr std::array ranges{Range{0x0590, 0x08FF},   Range{0x200E, 0x200F},  Range{0x202A, 0x202E},
                                Range{0x2066, 0x2069},   Range{0xFB1D, 0xFDFF},  Range{0xFE70, 0xFEFF},
                                Range{0x10800, 0x10FFF}, Range{0x1E800, 0x1EFFF}};
    return std::ranges::any_of(ranges, [c](const Range& range) { return c >= range.first && c <= range.last; });
}

bool changesDirection(std::string_view text) {
    for (const char* at = text.data(); at != text.data() + text.size(); at = g_utf8_next_char(at)) {
        if (changesDirection(g_utf8_get_char(at))) return true;
    }
    return false;
}

bool beginsIsolate(gunichar c) {
    return c >= 0x2066 && c <= 0x2068;
}
bool endsIsolate(gunichar c) {
    return c == 0x2069;
}
bool endsParagraph(gunichar c) {
    return c == '\n' || c == '\r' || (c >= 0x1C && c <= 0x1E) || c == 0x85 || c == 0x2029;
}

// Isolates keep an argument from reordering the sentence around it, and the sentence from reordering the argument: one
// more for each isolate that the argument itself ends or begins. An isolate's end without a beginning has no effect.
std::string isolated(std::string_view paragraph) {
    // NOLINTNEXTLINE(misc-misleading-bidirectional): closed below
    constexpr std::string_view begin = "\u2068";
    constexpr std::string_view end = "\u2069";
    std::string begins(begin);
    std::string ends(end);
    const char* const last = paragraph.data() + paragraph.size();
    for (const char* at = paragraph.data(); at != last; at = g_utf8_next_char(at)) {
        if (endsIsolate(g_utf8_get_char(at))) begins += begin;
        if (beginsIsolate(g_utf8_get_char(at))) ends += end;
    }
    return begins.append(paragraph) + ends;
}

// No isolate reaches beyond its paragraph.
std::string isolatedParagraphs(std::string_view argument) {
    std::string result;
    const char* const last = argument.data() + argument.size();
    const char* first = argument.data();
    for (const char* at = first; at != last; at = g_utf8_next_char(at)) {
        if (!endsParagraph(g_utf8_get_char(at))) continue;
        const char* const next = g_utf8_next_char(at);
        result.append(isolated({first, at})).append(at, next);
        first = next;
    }
    return result + isolated({first, last});
}

std::string wordingOf(const ui::LocalizedText& text) {
    const std::string sentence = translated(text.key);
    const bool rightToLeft = changesDirection(sentence);
    // The sentence sets the paragraph's direction, also when an argument of the other direction comes first.
    std::string result = rightToLeft && !text.arguments.empty() ? "\u200F" : "";
    std::size_t begin = 0;
    for (const std::string& given : text.arguments) {
        const std::size_t at = sentence.find(placeholder, begin);
        if (at == std::string::npos) break;
        result.append(sentence, begin, at - begin);
        const std::string argument = validText(given);
        result += rightToLeft || changesDirection(argument) ? isolatedParagraphs(argument) : argument;
        begin = at + placeholder.size();
    }
    return result.append(sentence, begin);
}

constexpr gunichar zeroWidthJoiner = 0x200D;

// Lines break at spaces, and between the wide characters of scripts that are written without them.
bool breaksAnyway(gunichar c) {
    return g_unichar_isspace(c) != 0 || g_unichar_iswide(c) != 0;
}

bool continuesCharacter(gunichar c) {
    return c == zeroWidthJoiner || g_unichar_ismark(c) != 0;
}

}  // namespace

std::string validText(std::string_view text) {
    const Characters valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    return valid.get();
}

std::string withBreaks(const std::string& text) {
    constexpr int longestWord = 500;
    constexpr int distance = 8;
    constexpr std::string_view zeroWidthSpace = "\u200B";
    std::string result;
    int length = 0;
    for (const char* at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar c = g_utf8_get_char(at);
        const char* const next = g_utf8_next_char(at);
        length = breaksAnyway(c) ? 0 : length + 1;
        result.append(at, next);
        const bool isWhole = c != zeroWidthJoiner && !continuesCharacter(g_utf8_get_char(next));
        if (length > longestWord && length % distance == 0 && isWhole) result += zeroWidthSpace;
    }
    return result;
}

std::string wording(const ui::Text& text) {
    if (const auto* verbatim = std::get_if<ui::VerbatimText>(&text.source)) return validText(verbatim->text);
    return wordingOf(std::get<ui::LocalizedText>(text.source));
}

}  // namespace tarvex::gtk
