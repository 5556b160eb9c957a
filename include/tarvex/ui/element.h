#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tarvex/data_reader.h"

/// A screen as a value: a tree of elements, for a renderer of any toolkit. Reentrant.
///
/// Lengths are in points, independent of the display's resolution. An absent length, spacing or bound is left to the
/// renderer: its toolkit's standard. Elements compare equal when they show the same; a button's action is not compared.
namespace tarvex::ui {

/// System-adaptive colours: the renderer takes its toolkit's own blue, gray and white. A toolkit without a blue takes
/// its accent colour, and for white the colour of text on that.
enum class Color : std::uint8_t { blue, gray, white };

enum class TextStyle : std::uint8_t { body, title };

enum class HorizontalAlignment : std::uint8_t { leading, center, trailing };
enum class VerticalAlignment : std::uint8_t { top, center, bottom };

/// The place of something small in a larger room.
struct Alignment {
    HorizontalAlignment horizontal = HorizontalAlignment::center;
    VerticalAlignment vertical = VerticalAlignment::center;

    friend bool operator==(const Alignment&, const Alignment&) = default;
};

/// Some of an element's four edges. Leading and trailing follow the direction of the text.
struct Edges {
    bool top = false;
    bool leading = false;
    bool bottom = false;
    bool trailing = false;

    static constexpr Edges all() { return {.top = true, .leading = true, .bottom = true, .trailing = true}; }
    static constexpr Edges horizontal() { return {.leading = true, .trailing = true}; }
    static constexpr Edges vertical() { return {.top = true, .bottom = true}; }

    friend bool operator==(const Edges&, const Edges&) = default;
};

// The modifiers: each makes a new element around the previous one.

/// Room around some edges: `length` points, the same at each.
struct Padding {
    Edges edges;
    std::optional<double> length = std::nullopt;

    friend bool operator==(const Padding&, const Padding&) = default;
};

/// A frame of exactly this width and height; an absent one is the framed element's own.
struct FixedFrame {
    std::optional<double> width = std::nullopt;
    std::optional<double> height = std::nullopt;
    Alignment alignment = {};

    friend bool operator==(const FixedFrame&, const FixedFrame&) = default;
};

/// A frame that takes the offered room within the bounds; infinity fills all of it.
struct FlexibleFrame {
    std::optional<double> minWidth = std::nullopt;
    std::optional<double> idealWidth = std::nullopt;
    std::optional<double> maxWidth = std::nullopt;
    std::optional<double> minHeight = std::nullopt;
    std::optional<double> idealHeight = std::nullopt;
    std::optional<double> maxHeight = std::nullopt;
    Alignment alignment = {};

    friend bool operator==(const FlexibleFrame&, const FlexibleFrame&) = default;
};

/// A colour behind the element, as large as the element.
struct Background {
    Color color;
    Alignment alignment = {};

    friend bool operator==(const Background&, const Background&) = default;
};

/// The colour of text and symbols, also of inner ones that set none themselves.
struct ForegroundColor {
    Color color;

    friend bool operator==(const ForegroundColor&, const ForegroundColor&) = default;
};

/// A rectangle whose corners are circular arcs of this radius.
struct RoundedRectangle {
    double cornerRadius;

    friend bool operator==(const RoundedRectangle&, const RoundedRectangle&) = default;
};

/// Hides everything outside of the shape, which is as large as the element; its edge is anti-aliased.
struct ClipShape {
    RoundedRectangle shape;

    friend bool operator==(const ClipShape&, const ClipShape&) = default;
};

/// The toolkit's own font of this style, also for inner texts that set none themselves.
struct Font {
    TextStyle style;

    friend bool operator==(const Font&, const Font&) = default;
};

/// The same font, bold.
struct Bold {
    friend bool operator==(const Bold&, const Bold&) = default;
};

/// Alignment of the lines of a multi-line text.
struct MultilineTextAlignment {
    HorizontalAlignment alignment;

    friend bool operator==(const MultilineTextAlignment&, const MultilineTextAlignment&) = default;
};

/// Allows an image to stretch, as a whole, to the offered room.
struct Resizable {
    friend bool operator==(const Resizable&, const Resizable&) = default;
};

/// Scales to the offered room without distortion.
struct ScaledToFit {
    friend bool operator==(const ScaledToFit&, const ScaledToFit&) = default;
};

using Modifier = std::variant<Padding, FixedFrame, FlexibleFrame, Background, ForegroundColor, ClipShape, Font, Bold,
                              MultilineTextAlignment, Resizable, ScaledToFit>;

// The contents.

struct Element;
struct IdentifiedElement;

/// A key into the host application's default string table, shown itself when that has no entry. Then each "%@" is
/// replaced by the next of the arguments, which are neither translated nor interpreted.
struct LocalizedText {
    std::string key;
    std::vector<std::string> arguments;

    friend bool operator==(const LocalizedText&, const LocalizedText&) = default;
};

/// A text that is shown unchanged.
struct VerbatimText {
    std::string text;

    friend bool operator==(const VerbatimText&, const VerbatimText&) = default;
};

/// One text, broken into lines where the room requires it.
struct Text {
    std::variant<LocalizedText, VerbatimText> source;

    friend bool operator==(const Text&, const Text&) = default;
};

/// A symbol that each renderer draws itself. "gearshape.2.fill" is two filled gears, one larger than the other.
struct Image {
    std::string systemName;

    friend bool operator==(const Image&, const Image&) = default;
};

/// The largest filled circle that fits.
struct Circle {
    Color fill;

    friend bool operator==(const Circle&, const Circle&) = default;
};

/// Takes the room that the other elements of its stack leave; several share it equally.
struct Spacer {
    std::optional<double> minLength = std::nullopt;

    friend bool operator==(const Spacer&, const Spacer&) = default;
};

/// A button; its whole label is clickable.
struct Button {
    std::vector<Element> label;
    std::function<void()> action;  ///< called on the main thread, once for each click
    /// The same in every language, and shown nowhere: for renderers, bindings and tests.
    std::string name = {};  // NOLINT(readability-redundant-member-init): spares users of designators a warning

    bool operator==(const Button&) const;
};

/// Elements side by side, from the leading to the trailing edge.
struct HStack {
    VerticalAlignment alignment = VerticalAlignment::center;
    std::optional<double> spacing = std::nullopt;
    std::vector<Element> children;

    friend bool operator==(const HStack&, const HStack&) = default;
};

/// Elements from top to bottom.
struct VStack {
    HorizontalAlignment alignment = HorizontalAlignment::center;
    std::optional<double> spacing = std::nullopt;
    std::vector<Element> children;

    friend bool operator==(const VStack&, const VStack&) = default;
};

/// Rows made from a list: children, in this order, of the stack that it is a child of.
struct ForEach {
    std::vector<IdentifiedElement> rows;

    friend bool operator==(const ForEach&, const ForEach&) = default;
};

using Content = std::variant<Spacer, Text, Image, Circle, Button, HStack, VStack, ForEach>;

/// A content and its modifiers, of which the first is the innermost.
struct Element {
    Content content;
    std::vector<Modifier> modifiers;

    friend bool operator==(const Element&, const Element&) = default;
};

/// A row and its identity; equal readers share an identity.
struct IdentifiedElement {
    DataReader identity;
    Element element;

    friend bool operator==(const IdentifiedElement&, const IdentifiedElement&) = default;
};

inline bool Button::operator==(const Button& other) const {
    return label == other.label;
}

}  // namespace tarvex::ui
