#include "Platform/JSONReader.h"

#include <nlohmann/json.hpp>

namespace keepery::JSONReader {
namespace {

using nlohmann::json;
using DOMBuilder = nlohmann::detail::json_sax_dom_parser<json>;

// The library's own tree builder, stopped at the first container that would open past the bound: stopping
// the reader there keeps both its work and its memory in proportion to the bound, not to the text.
class BoundedBuilder {
public:
    explicit BoundedBuilder(json& root) : builder_(root, /*allow_exceptions=*/false) {}

    bool null() { return builder_.null(); }
    bool boolean(bool value) { return builder_.boolean(value); }
    bool number_integer(json::number_integer_t value) { return builder_.number_integer(value); }
    bool number_unsigned(json::number_unsigned_t value) { return builder_.number_unsigned(value); }
    bool number_float(json::number_float_t value, const json::string_t& text) {
        return builder_.number_float(value, text);
    }
    bool string(json::string_t& value) { return builder_.string(value); }
    bool binary(json::binary_t& value) { return builder_.binary(value); }
    bool key(json::string_t& value) { return builder_.key(value); }
    bool start_object(std::size_t size) { return open() && builder_.start_object(size); }
    bool end_object() { return close() && builder_.end_object(); }
    bool start_array(std::size_t size) { return open() && builder_.start_array(size); }
    bool end_array() { return close() && builder_.end_array(); }
    bool parse_error(std::size_t position, const std::string& token,
                     const nlohmann::detail::exception& error) {
        return builder_.parse_error(position, token, error);
    }

private:
    bool open() { return ++depth_ <= maximumDepth; }
    bool close() {
        --depth_;
        return true;
    }

    DOMBuilder builder_;
    std::size_t depth_ = 0;
};

} // namespace

std::optional<json> read(std::string_view text) {
    // The reader takes a NUL byte for the end of the input, which would let a line end early and still be
    // read as the value before it. JSON has no place for a raw NUL, not even inside a string.
    if (text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    json value;
    BoundedBuilder builder(value);
    try {
        if (!json::sax_parse(text, &builder, json::input_format_t::json, /*strict=*/true)) {
            return std::nullopt;
        }
    } catch (const json::exception&) {
        return std::nullopt;
    }
    return value;
}

} // namespace keepery::JSONReader
