// A small JSON writer for the tool's machine-readable output. Strings may hold
// any bytes (file names, keys read from files): invalid UTF-8 becomes U+FFFD
// and control characters are escaped, so the text is always valid JSON.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lumo::image::cli {

// `text` as a quoted JSON string.
std::string JsonQuote(std::string_view text);

// Builds one compact JSON value; commas and nesting are handled here, so
// callers only say what comes next. Misuse (a value without a key inside an
// object) is a programming error, not checked.
class JsonWriter {
 public:
  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  JsonWriter& Key(std::string_view key);
  JsonWriter& String(std::string_view value);
  JsonWriter& Number(unsigned long long value);
  JsonWriter& Bool(bool value);
  JsonWriter& Null();

  const std::string& Text() const { return text_; }

 private:
  void BeforeValue();

  std::string text_;
  // Per open container: whether it holds an element yet.
  std::vector<bool> filled_;
  bool after_key_ = false;
};

}  // namespace lumo::image::cli
