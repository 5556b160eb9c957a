#include "collector/ingest/document_reader.h"

// Numbers come as texts here, and that one is too big is a fault of its record, not of the document: the parser reads
// on. Its sum of the exponent's digits, which nobody uses, may then wrap around: hence -fwrapv for this file.
#define RAPIDJSON_PARSE_ERROR(code, offset)                           \
    do {                                                              \
        if constexpr ((code) != rapidjson::kParseErrorNumberTooBig) { \
            RAPIDJSON_PARSE_ERROR_NORETURN(code, offset);             \
            RAPIDJSON_PARSE_ERROR_EARLY_RETURN_VOID;                  \
        }                                                             \
    } while (false)

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "collector/ingest/record.h"

namespace tarvex::collector {
namespace {

using rapidjson::SizeType;

constexpr int greatestDepth = 16;
constexpr std::size_t longestText = 1024UL * 1024;  // bytes; the parser keeps one in memory
constexpr std::size_t longestIdentifier = 1024;
constexpr std::size_t mostExplained = 1000;
constexpr std::size_t longestExcerpt = 300;

/// The body as RapidJSON reads it: a window at a time.
class BodyStream {
public:
    using Ch = char;

    explicit BodyStream(const TemporaryFile& file) : file_(file), window_(64UL * 1024) { refill(); }

    Ch Peek() const { return position_ < filled_ ? window_[position_] : '\0'; }
    Ch Take() {
        const Ch taken = Peek();
        if (position_ < filled_ && ++position_ == filled_) refill();
        return taken;
    }
    std::size_t Tell() const { return static_cast<std::size_t>(begin_ + position_); }

    // What RapidJSON asks of a stream that is written as well.
    static Ch* PutBegin() { return nullptr; }
    static void Put(Ch /*letter*/) {}
    static void Flush() {}
    static std::size_t PutEnd(Ch* /*begin*/) { return 0; }

private:
    void refill() {
        begin_ += filled_;
        filled_ = file_.read(begin_, std::as_writable_bytes(std::span(window_)));
        position_ = 0;
    }

    const TemporaryFile& file_;
    std::vector<char> window_;
    std::uint64_t begin_ = 0;  ///< of the window, in the file
    std::size_t filled_ = 0;
    std::size_t position_ = 0;
};

/// Memory of the parser's stack, which holds one text at a time.
class BoundedMemory {
public:
    [[maybe_unused]] static constexpr bool kNeedFree = true;

    void* Malloc(std::size_t size) { return Realloc(nullptr, 0, size); }
    void* Realloc(void* memory, std::size_t /*before*/, std::size_t size) {
        if (size == 0) {
            std::free(memory);
            return nullptr;
        }
        // A stack grows by half.
        if (size > 2 * longestText) throw NotADocument("The document holds a text of more than a megabyte.");
        void* moved = std::realloc(memory, size);
        if (moved == nullptr) throw std::bad_alloc();
        return moved;
    }
    static void Free(void* memory) { std::free(memory); }
};

/// Absent where the number is beyond a double's range, or none.
std::optional<double> numberOf(std::string_view text) {
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    // Out of range is what is too small, too, which is zero, or nearly.
    if (failure == std::errc::result_out_of_range) number = std::strtod(std::string(text).c_str(), nullptr);
    if (failure == std::errc::invalid_argument || !std::isfinite(number)) return std::nullopt;
    return number;
}

/// Takes the parser's events, in the order of the body.
class Reader {
public:
    Reader(Document& document, const BodyStream& stream, const TemporaryFile& body)
        : document_(document), stream_(stream), body_(body) {}

    bool Null() { return value(); }
    bool Bool(bool /*value*/) { return value(); }
    bool RawNumber(const char* text, SizeType length, bool /*copy*/) { return number({text, length}); }
    bool String(const char* text, SizeType length, bool /*copy*/) { return string({text, length}); }
    bool Key(const char* text, SizeType length, bool /*copy*/);
    bool StartObject();
    bool StartArray();
    bool EndObject(SizeType /*members*/) { return end(); }
    bool EndArray(SizeType /*elements*/) { return end(); }

    // Numbers come as texts.
    bool Int(int /*value*/) { return false; }
    bool Uint(unsigned /*value*/) { return false; }
    bool Int64(std::int64_t /*value*/) { return false; }
    bool Uint64(std::uint64_t /*value*/) { return false; }
    bool Double(double /*value*/) { return false; }

    void checkSender() const;

private:
    // Where the next value stands. Inside a value that is not looked at, `ignored_` counts its levels.
    enum class Place : std::uint8_t { root, document, samples, record, data };
    enum class Member : std::uint8_t { unknown, userId, device, application, samples, time, type, data };

    bool number(std::string_view text);
    bool string(std::string_view text);
    bool value();
    bool begin(bool isObject);
    bool end();
    void leave();
    void refuseValue();
    void finishRecord();
    std::size_t recordBegin() const;
    std::string excerpt() const;
    [[noreturn]] static void refuse(const char* why) { throw NotADocument(why); }

    Document& document_;
    const BodyStream& stream_;
    const TemporaryFile& body_;
    Place place_ = Place::root;
    Member member_ = Member::unknown;
    int ignored_ = 0;
    Record record_;
    std::size_t lastRecordEnd_ = 0;
    bool hasUserId_ = false;
    bool hasSamples_ = false;
};

bool Reader::Key(const char* text, SizeType length, bool /*copy*/) {
    if (ignored_ > 0) return true;
    const std::string_view name(text, length);
    if (place_ == Place::data) {
        record_.setName(name);
        return true;
    }
    struct Known {
        Place place;
        std::string_view name;
        Member member;
    };
    static constexpr std::array known{Known{Place::document, "userId", Member::userId},
                                      Known{Place::document, "device", Member::device},
                                      Known{Place::document, "applicationIdentifier", Member::application},
                                      Known{Place::document, "trackingData", Member::samples},
                                      Known{Place::record, "timestamp", Member::time},
                                      Known{Place::record, "type", Member::type},
                                      Known{Place::record, "data", Member::data}};
    const auto* const found = std::ranges::find_if(
        known, [&](const Known& candidate) { return candidate.place == place_ && candidate.name == name; });
    member_ = found != known.end() ? found->member : Member::unknown;
    if (place_ == Place::record && member_ == Member::unknown) record_.refuse("it has a member of an unknown name");
    return true;
}

bool Reader::number(std::string_view text) {
    if (ignored_ > 0) return true;
    const bool isTime = place_ == Place::record && member_ == Member::time;
    if (!isTime && place_ != Place::data) return value();
    const auto number = numberOf(text);
    if (!number)
        record_.refuse(isTime ? "its time stamp is no finite number" : "a value is no finite number");
    else if (isTime)
        record_.setTime(*number);
    else
        record_.addValue(*number);
    return true;
}

bool Reader::string(std::string_view text) {
    if (ignored_ > 0) return true;
    if (place_ == Place::record && member_ == Member::type) {
        record_.setType(text);
    } else if (place_ == Place::document && member_ == Member::userId) {
        document_.sender.participant = text;
        hasUserId_ = true;
    } else if (place_ == Place::document && member_ == Member::device) {
        document_.sender.device = text;
    } else if (place_ == Place::document && member_ == Member::application) {
        document_.sender.application = text;
    } else {
        return value();
    }
    return true;
}

/// A value that is of no use at its place.
bool Reader::value() {
    if (ignored_ > 0) return true;
    refuseValue();
    if (place_ == Place::samples) finishRecord();
    return true;
}

void Reader::refuseValue() {
    switch (place_) {
        case Place::root:
            refuse("The document is no JSON object.");
        case Place::document:
            if (member_ == Member::samples) refuse("The document's \"trackingData\" is no array.");
            if (member_ == Member::userId) refuse("The document's \"userId\" is no text.");
            break;
        case Place::samples:
            record_.begin();
            record_.refuse("it is no object");
            break;
        case Place::record:
            record_.refuse("a member is of the wrong type");
            break;
        case Place::data:
            record_.refuse("a value is no finite number");
            break;
    }
}

bool Reader::StartObject() {
    return begin(true);
}

bool Reader::StartArray() {
    return begin(false);
}

bool Reader::begin(bool isObject) {
    if (ignored_ > 0) {
        if (++ignored_ > greatestDepth) refuse("The document is nested more than 16 deep.");
        return true;
    }
    if (place_ == Place::root && isObject) {
        place_ = Place::document;
    } else if (place_ == Place::document && member_ == Member::samples && !isObject) {
        place_ = Place::samples;
        hasSamples_ = true;
        lastRecordEnd_ = stream_.Tell();
    } else if (place_ == Place::samples && isObject) {
        place_ = Place::record;
        record_.begin();
    } else if (place_ == Place::record && member_ == Member::data && isObject) {
        place_ = Place::data;
        record_.haveData();
    } else {
        refuseValue();
        ignored_ = 1;
    }
    return true;
}

bool Reader::end() {
    if (ignored_ > 0) {
        if (--ignored_ == 0 && place_ == Place::samples) finishRecord();
    } else if (place_ == Place::record) {
        finishRecord();
        place_ = Place::samples;
    } else {
        leave();
    }
    return true;
}

void Reader::leave() {
    switch (place_) {
        case Place::data:
            place_ = Place::record;
            break;
        case Place::samples:
            place_ = Place::document;
            break;
        default:
            place_ = Place::root;
    }
}

void Reader::finishRecord() {
    std::string reason;
    if (!record_.finish(document_, reason)) {
        ++document_.unreadableCount;
        if (document_.unreadable.size() < mostExplained)
            document_.unreadable.push_back({.reason = std::move(reason), .excerpt = excerpt()});
    }
    lastRecordEnd_ = stream_.Tell();
}

/// Of the record that has just been read, behind what stands between it and the one before.
std::size_t Reader::recordBegin() const {
    std::string bytes(longestExcerpt, '\0');
    for (std::size_t begin = lastRecordEnd_; begin < stream_.Tell(); begin += bytes.size()) {
        bytes.resize(body_.read(begin, std::as_writable_bytes(std::span(bytes))));
        const std::size_t first = bytes.find_first_not_of(", \t\r\n");
        if (first != std::string::npos) return begin + first;
        if (bytes.empty()) break;
    }
    return stream_.Tell();
}

/// The record's own bytes, as far as they are printable.
std::string Reader::excerpt() const {
    const std::size_t begin = recordBegin();
    std::string bytes(std::min(longestExcerpt, stream_.Tell() - begin), '\0');
    bytes.resize(body_.read(begin, std::as_writable_bytes(std::span(bytes))));
    for (char& letter : bytes)
        if (letter < ' ' || letter == '\x7f') letter = '?';  // bytes beyond ASCII are negative
    return bytes;
}

void Reader::checkSender() const {
    if (!hasSamples_) refuse("The document has no array \"trackingData\".");
    if (!hasUserId_) refuse("The document has no \"userId\".");
    for (const std::string* text :
         {&document_.sender.participant, &document_.sender.device, &document_.sender.application}) {
        if (text->size() > longestIdentifier) refuse("The document's sender has a name of more than 1024 bytes.");
        const bool isText = isUtf8(*text) && text->find('\0') == std::string::npos;
        if (!isText) refuse("The document's sender has a name that is no text.");
    }
}

}  // namespace

Document readDocument(const TemporaryFile& body, const std::filesystem::path& spool) {
    Document document(spool);
    BodyStream stream(body);
    Reader reader(document, stream, body);
    BoundedMemory memory;
    rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, BoundedMemory> parser(&memory);
    constexpr unsigned flags = rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseNanAndInfFlag;
    const auto result = parser.Parse<flags>(stream, reader);
    if (result.IsError())
        throw NotADocument("The document is no JSON at byte " + std::to_string(result.Offset()) + ": " +
                           rapidjson::GetParseError_En(result.Code()));
    if (stream.Tell() < body.size()) throw NotADocument("The document goes on after its end.");
    reader.checkSender();
    return document;
}

}  // namespace tarvex::collector
