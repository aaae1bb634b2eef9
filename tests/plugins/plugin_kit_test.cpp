// The shared plugin kit: the bounded reader never reads past its buffer nor
// invents bytes, the writer never writes past its buffer, level views refuse
// what does not fit, row copies zero their padding, the entry guard turns
// every kind of throw into the failure result, and the decode limit.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "lumo/image/image_factory.h"
#include "plugins/byte_reader.h"
#include "plugins/byte_writer.h"
#include "plugins/decode_limit.h"
#include "plugins/entry_guard.h"
#include "plugins/level_views.h"
#include "plugins/row_copy.h"
#include "support/bytes.h"
#include "support/log_capture.h"

namespace lumo::image {
namespace {

using detail::ByteReader;
using detail::ByteWriter;
using testing::LogCapture;
using ull = unsigned long long;

TEST(ByteReader, FieldsInBothByteOrders) {
  const auto bytes = testing::Counting(43);  // 1, 2, 3, ...
  ByteReader in(bytes.get(), 43);
  std::uint8_t u8 = 0;
  std::uint16_t le16 = 0, be16 = 0;
  std::uint32_t le24 = 0, be24 = 0, le32 = 0, be32 = 0;
  std::uint64_t le64 = 0, be64 = 0;
  ASSERT_TRUE(in.U8(&u8) && in.U16LE(&le16) && in.U16BE(&be16) && in.U24LE(&le24) && in.U24BE(&be24) &&
              in.U32LE(&le32) && in.U32BE(&be32) && in.U64LE(&le64) && in.U64BE(&be64));
  EXPECT_EQ(u8, 1);
  EXPECT_EQ(std::make_tuple(le16, be16), std::make_tuple(0x0302, 0x0405));
  EXPECT_EQ(std::make_tuple(le24, be24), std::make_tuple(0x080706u, 0x090A0Bu));
  EXPECT_EQ(std::make_tuple(le32, be32), std::make_tuple(0x0F0E0D0Cu, 0x10111213u));
  EXPECT_EQ(std::make_tuple(le64, be64), std::make_tuple(0x1B1A191817161514ull, 0x1C1D1E1F20212223ull));
  EXPECT_EQ(std::make_tuple(in.Position(), in.Remaining()), std::make_tuple(size_t{35}, size_t{8}));
}

TEST(ByteReader, FailuresAreStickyAndInventNothing) {
  const char bytes[] = {'a', 'b', 'c', 'd', 'e'};
  struct Case {
    const char* name;
    bool (*read)(ByteReader&);
  } cases[] = {
      {"u32 over 1 byte left", [](ByteReader& r) { std::uint32_t v = 77; return r.U32LE(&v) || v != 77; }},
      {"u64 over 1 byte left", [](ByteReader& r) { std::uint64_t v = 77; return r.U64BE(&v) || v != 77; }},
      {"span of 2", [](ByteReader& r) { const char* p = nullptr; return r.Bytes(2, &p) || p != nullptr; }},
      {"skip 2", [](ByteReader& r) { return r.Skip(2); }},
      {"seek past the end", [](ByteReader& r) { return r.Seek(6); }},
      {"copy 2", [](ByteReader& r) { char c[2] = {'x', 'x'}; return r.CopyTo(c, 2) || c[0] != 'x'; }},
      {"sub-reader of 2", [](ByteReader& r) { ByteReader s(nullptr, 0); return r.Sub(2, &s); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ByteReader in(bytes, sizeof bytes);
    ASSERT_TRUE(in.Skip(4));
    EXPECT_FALSE(c.read(in));
    EXPECT_FALSE(in.Ok());
    std::uint8_t v = 0;
    EXPECT_FALSE(in.U8(&v)) << "a byte remains, but the reader has failed";
    EXPECT_FALSE(in.Seek(0));
  }
  ByteReader empty(nullptr, 100);
  std::uint8_t v = 0;
  EXPECT_EQ(empty.Size(), 0u) << "no data means no bytes, whatever size is claimed";
  EXPECT_FALSE(empty.U8(&v));
  std::uint32_t at = 0;
  EXPECT_FALSE(ByteReader(bytes, sizeof bytes).U32LEAt(2, &at));
  EXPECT_TRUE(ByteReader(bytes, sizeof bytes).U32LEAt(1, &at));
  EXPECT_EQ(at, 0x65646362u);
}

TEST(ByteReader, LinesNeedTheirNewline) {
  const std::string text = "#?RADIANCE\r\nFORMAT=32-bit_rle_rgbe\n\n-Y 2 +X 3";
  ByteReader in(text.data(), text.size());
  std::string_view line;
  for (const char* expected : {"#?RADIANCE", "FORMAT=32-bit_rle_rgbe", ""}) {
    ASSERT_TRUE(in.Line(&line, 100));
    EXPECT_EQ(line, expected);
  }
  EXPECT_FALSE(in.Line(&line, 100)) << "the last line has no newline";
  EXPECT_FALSE(ByteReader(text.data(), text.size()).Line(&line, 5)) << "no newline within the length limit";
}

TEST(ByteWriter, FieldsPaddingAndNoWritePastTheEnd) {
  std::vector<char> buffer(24, 'z');
  ByteWriter out(buffer.data(), 23);
  out.U8(0xAB);
  out.U16BE(0x0102);
  out.U24LE(0x030405);
  out.PadTo(8);
  out.U32LE(0x0A0B0C0D);
  out.U64BE(0x1112131415161718ull);
  ASSERT_TRUE(out.Ok());
  EXPECT_EQ(out.Position(), 20u);
  out.U32BE(0xFFFFFFFF);  // 3 bytes left: nothing written
  EXPECT_FALSE(out.Ok());
  out.U8(1);
  EXPECT_FALSE(out.Ok());
  const std::vector<char> expected = {'\xAB', 1, 2, 5, 4, 3, 0, 0, 0x0D, 0x0C, 0x0B, 0x0A,
                                      0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 'z', 'z', 'z', 'z'};
  EXPECT_EQ(buffer, expected);
}

TEST(RowCopy, BetweenPitchesZeroesPadding) {
  // 3 rows of 5 bytes: tight (pitch 5) into padded (pitch 8) and back.
  const std::string tight = "abcdeFGHIJklmno";
  std::string padded(24, '?');
  detail::CopyRows(padded.data(), 8, tight.data(), 5, 5, 3);
  EXPECT_EQ(padded, std::string("abcde\0\0\0FGHIJ\0\0\0klmno\0\0\0", 24));
  std::string back(15, '?');
  detail::CopyRows(back.data(), 5, padded.data(), 8, 5, 3);
  EXPECT_EQ(back, tight);

  // A level element whose rows are longer than the file's: each row is cut;
  // one that holds too little leaves zeros, never reads past its size.
  detail::LevelElement element{padded.data(), 24, 8, true};
  std::string out(15, '?');
  detail::CopyElement(out.data(), 15, 5, false, element);
  EXPECT_EQ(out, tight);
  element.size = 10;
  detail::CopyElement(out.data(), 15, 5, false, element);
  EXPECT_EQ(out, std::string("abcde\0\0\0\0\0\0\0\0\0\0", 15));
  detail::CopyElement(out.data(), 15, 5, true, element);
  EXPECT_EQ(out, std::string("abcde\0\0\0FG\0\0\0\0\0", 15)) << "block data is copied whole";
}

TEST(LevelViews, ViewsOnlyWhatTheBufferHolds) {
  const ull size = 64 + 16 + 2;  // 4x4 A8R8G8B8 and a 2x2 level, 2 bytes to spare
  const detail::LevelViews views(testing::Counting(size), size, formats::A8R8G8B8);
  const detail::Extent base{4, 4, 1};
  EXPECT_TRUE(views.SurfaceAt(0, base));
  EXPECT_TRUE(views.SurfaceAt(64, detail::LevelExtent(base, 1)));
  EXPECT_FALSE(views.SurfaceAt(67, detail::LevelExtent(base, 1)));
  EXPECT_FALSE(views.SurfaceAt(std::numeric_limits<ull>::max() - 3, {1, 1, 1})) << "offset + bytes wraps";
  EXPECT_FALSE(views.SurfaceAt(0, {0xFFFFFFFFull, 0xFFFFFFFFull, 1}));
  EXPECT_TRUE(views.VolumeAt(0, {2, 2, 5}));
  EXPECT_FALSE(views.VolumeAt(0, {2, 2, 6}));
  EXPECT_TRUE(views.ArrayAt({0, 16, 32}, {2, 2, 1}));
  const auto layers = views.LayersAt(16, {2, 2, 1}, 4);
  ASSERT_TRUE(layers);
  EXPECT_EQ(layers->GetSurface(3)->Buffer(), views.SurfaceAt(64, {2, 2, 1})->Buffer()) << "a view, not a copy";
  EXPECT_FALSE(views.LayersAt(16, {2, 2, 1}, 5));
  EXPECT_FALSE(views.ArrayAt({0, 70}, {2, 2, 1}));

  LogCapture log;
  std::array<std::shared_ptr<Surface>, detail::kCubeFaces> faces;
  for (unsigned f = 0; f < 5; ++f) faces[f] = views.SurfaceAt(4 * f, {1, 1, 1});
  EXPECT_FALSE(views.CubeAt(faces)) << "a missing face";
  faces[5] = views.SurfaceAt(20, {1, 1, 1});
  EXPECT_TRUE(views.CubeAt(faces));

  EXPECT_EQ(detail::CountThatFits(0xFFFFFFFF, 16, 100), 6u);
  EXPECT_EQ(detail::CountThatFits(3, 16, 100), 3u);
  EXPECT_EQ(detail::CountThatFits(7, 0, 5), 5u) << "an element takes at least one byte";
  const detail::Extent half = detail::LevelExtent({1000, 3, 9}, 2);
  EXPECT_EQ(std::make_tuple(half.width, half.height, detail::LevelExtent({1000, 3, 9}, 200).width),
            std::make_tuple(250ull, 1ull, 1ull));
}

TEST(EntryGuard, EveryThrowBecomesTheFailureResult) {
  const detail::GuardPolicy logged{"XYZ failed: %s", "XYZ: unexpected failure", true};
  const detail::GuardPolicy silent{nullptr, nullptr, false};
  struct Case {
    const char* name;
    void (*body)();
    const char* line;  // with the logged policy
  } cases[] = {
      {"decode error", [] { throw detail::DecodeError("bad header"); }, "XYZ failed: bad header"},
      {"std::exception", [] { throw std::out_of_range("index"); }, "XYZ failed: index"},
      {"C library message", [] { throw "Read Error"; }, "XYZ failed: Read Error"},
      {"std::string", [] { throw std::string("text"); }, "XYZ failed: text"},
      {"anything else", [] { throw 42; }, "XYZ: unexpected failure"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    EXPECT_EQ(detail::Guarded(logged, -1, [&] { c.body(); return 1; }), -1);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{c.line});
    EXPECT_EQ(detail::Guarded(silent, -1, [&] { c.body(); return 1; }), -1);
    EXPECT_EQ(log.lines.size(), 1u) << "the silent policy adds no line";
  }
  EXPECT_EQ(detail::Guarded(logged, -1, [] { return 7; }), 7);
  EXPECT_THROW(detail::Guarded(logged, -1, []() -> int { throw std::bad_alloc(); }), std::bad_alloc);
  LogCapture log;
  EXPECT_EQ(detail::Guarded(silent, -1, []() -> int { throw std::bad_alloc(); }), -1);
}

// The limit of the moment is followed at the plugins (see the PNG reader's test).
TEST(DecodeLimit, RefusesBeforeAllocatingWithOneLine) {
  struct Case {
    ull width, height, depth;
    const char* line;  // nullptr: within the limit
  } cases[] = {
      {16384, 16384, 1, nullptr},
      {16385, 16384, 1, "TGA image of 16385 x 16384 pixels exceeds the decode limit of 268435456 pixels"},
      {1024, 1024, 256, nullptr},
      {1024, 1024, 257, "TGA image of 1024 x 1024 x 257 pixels exceeds the decode limit of 268435456 pixels"},
      {1ull << 32, 1ull << 32, 1, "TGA image of 4294967296 x 4294967296 pixels exceeds"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.width) + " x " + std::to_string(c.height) + " x " + std::to_string(c.depth));
    LogCapture log;
    EXPECT_EQ(detail::WithinDecodeLimit("TGA", c.width, c.height, c.depth), c.line == nullptr);
    if (c.line == nullptr) {
      EXPECT_TRUE(log.lines.empty());
    } else {
      ASSERT_EQ(log.lines.size(), 1u);
      EXPECT_EQ(log.lines[0].severity, log::Severity::Error);
      EXPECT_EQ(log.lines[0].text.rfind(c.line, 0), 0u) << log.lines[0].text;
    }
  }
}

}  // namespace
}  // namespace lumo::image
