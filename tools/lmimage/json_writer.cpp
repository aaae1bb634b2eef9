#include "json_writer.h"

#include <cstdint>
#include <cstdio>

namespace lumo::image::cli {
namespace {

// Length of the well-formed UTF-8 sequence at text[i], or 0 (overlong forms,
// surrogates and values above U+10FFFF are not well formed).
size_t Utf8Length(std::string_view text, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  size_t length;
  std::uint32_t code;
  if (lead < 0x80) return 1;
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2;
    code = lead & 0x1f;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3;
    code = lead & 0x0f;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4;
    code = lead & 0x07;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xc0) != 0x80) return 0;
    code = (code << 6) | (byte(i + k) & 0x3f);
  }
  if ((length == 3 && code < 0x800) || (length == 4 && code < 0x10000)) return 0;
  if ((code >= 0xd800 && code <= 0xdfff) || code > 0x10ffff) return 0;
  return length;
}

}  // namespace

std::string JsonQuote(std::string_view text) {
  std::string quoted = "\"";
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const size_t length = Utf8Length(text, i);
    if (length == 0) {
      quoted += "\xef\xbf\xbd";  // U+FFFD for each byte that starts no valid sequence
      ++i;
      continue;
    }
    if (length > 1) {
      quoted.append(text.substr(i, length));
    } else if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += static_cast<char>(c);
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (c == '\r') {
      quoted += "\\r";
    } else if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      quoted += escaped;
    } else {
      quoted += static_cast<char>(c);
    }
    i += length;
  }
  return quoted + '"';
}

void JsonWriter::BeforeValue() {
  if (after_key_) {
    after_key_ = false;
    return;
  }
  if (!filled_.empty()) {
    if (filled_.back()) text_ += ',';
    filled_.back() = true;
  }
}

JsonWriter& JsonWriter::BeginObject() {
  BeforeValue();
  text_ += '{';
  filled_.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  text_ += '}';
  filled_.pop_back();
  return *this;
}

JsonWriter& JsonWriter::BeginArray() {
  BeforeValue();
  text_ += '[';
  filled_.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  text_ += ']';
  filled_.pop_back();
  return *this;
}

JsonWriter& JsonWriter::Key(std::string_view key) {
  BeforeValue();
  text_ += JsonQuote(key);
  text_ += ':';
  after_key_ = true;
  return *this;
}

JsonWriter& JsonWriter::String(std::string_view value) {
  BeforeValue();
  text_ += JsonQuote(value);
  return *this;
}

JsonWriter& JsonWriter::Number(unsigned long long value) {
  BeforeValue();
  text_ += std::to_string(value);
  return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
  BeforeValue();
  text_ += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::Null() {
  BeforeValue();
  text_ += "null";
  return *this;
}

}  // namespace lumo::image::cli
